// One software secure application and the CBOR requests to it, without a transport between.
#pragma once

#include <KeymasterSerialize.h>
#include <KeymasterUtils.h>

#include <functional>
#include <string>
#include <vector>

#include "secureapp/device/Device.h"

namespace lumo::bench {

using secureapp::Bytes;

class SecureAppClient {
  public:
    // `name` is its state directory in the scratch folder; `world` the lines of its world.conf.
    explicit SecureAppClient(const std::string& name, const std::string& world = "");

    // Each ends the process when the secure application refuses.
    Bytes generateKey(const std::vector<keymaster_key_param_t>& params);
    Bytes importRawKey(const std::vector<keymaster_key_param_t>& params, const Bytes& material);
    void attestKey(const Bytes& blob, const Bytes& challenge);
    uint64_t begin(keymaster_purpose_t purpose, const Bytes& blob,
                   const std::vector<keymaster_key_param_t>& params);
    Bytes finish(uint64_t operation, const Bytes& input);
    void abort(uint64_t operation);

    std::string stateFolder() const { return directory_ + "/default"; }

  private:
    // Encodes a request with `encode`, has it answered and returns the answer's body.
    Bytes call(
        uint32_t command,
        const std::function<keymaster_error_t(KeymasterSerialize&, keymaster_blob_t*)>& encode);
    Bytes keyBlobOf(const Bytes& answer);

    std::string directory_;
    secureapp::Device device_;
    secureapp::SecureApp& app_;
    keymasterutils::KeymasterUtils codec_transport_;
    Bytes request_;
};

}  // namespace lumo::bench
