// The CBOR messages around a parameter set, as the library and as libcbor alone write them.
#pragma once

#include <KeymasterSerialize.h>
#include <KeymasterUtils.h>

#include <vector>

namespace lumo::bench {

// The request of generateKey with `count` parameters.
class ParamsRequest {
  public:
    explicit ParamsRequest(size_t count);

    // Each returns the number of bytes encoded. The two encodings are equal.
    size_t encode();
    size_t encodeWithLibcbor();
    size_t encodeWithQcbor();  // the calls that the library must make, and nothing else

  private:
    std::vector<keymaster_key_param_t> params_;
    keymaster_key_param_set_t set_;
    std::vector<uint8_t> buffer_;
    keymasterutils::KeymasterUtils transport_;
};

// A response of begin with `count` parameters.
class ParamsResponse {
  public:
    explicit ParamsResponse(size_t count);

    void decode();
    // Walks over the items and adds up what they hold, as anyone must who decodes the message.
    uint64_t decodeWithQcbor();

  private:
    std::vector<uint8_t> message_;
    keymasterutils::KeymasterUtils transport_;
};

}  // namespace lumo::bench
