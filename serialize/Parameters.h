// Key parameters as entries of a message: the tag is the label, the value goes by the tag's type.
#pragma once

#include <KeymasterUtils.h>
#include <hardware/keymaster_defs.h>

#include <cstddef>

#include "CborHelpers.h"
#include "Outputs.h"
#include "ResponseReader.h"

namespace keymasterdevice {

// `count` parameters as consecutive entries; see KeymasterSerialize::addParams and parseParams for
// what becomes of each. Reading ends at the first bad one.
void addParams(const keymaster_key_param_t* params, size_t count, QCBOREncodeContext* encoder);
[[nodiscard]] keymaster_error_t parseParams(CborReader* reader,
                                            keymasterutils::KeymasterUtils* transport, size_t count,
                                            keymaster_key_param_t* out);

// The parameters of a response, held until the whole message turned out to be good.
class ResponseParams {
  public:
    ResponseParams() = default;
    ~ResponseParams() { keymasterKeyParamSetDelete()(&set_); }
    ResponseParams(const ResponseParams&) = delete;
    ResponseParams& operator=(const ResponseParams&) = delete;

    // Reads kParamCount and the parameters, a group that may be absent. `announced`, unless null,
    // gets the count at once. A bad parameter is KM_ERROR_INVALID_TAG; what was read before it is
    // released. Throws std::bad_alloc.
    [[nodiscard]] keymaster_error_t read(ResponseReader& response,
                                         keymasterutils::KeymasterUtils* transport,
                                         keymaster_key_param_set_t* announced);

    // Moves the array to a caller who has the length already. A null `out_params` drops it, and an
    // empty array leaves `out_params` alone.
    void moveTo(keymaster_key_param_set_t* out_params);

  private:
    keymaster_key_param_set_t set_ = {nullptr, 0};
};

}  // namespace keymasterdevice
