// Key parameters as entries of a message.
#pragma once

#include <KeymasterUtils.h>
#include <hardware/keymaster_defs.h>

#include <memory>

#include "CborHelpers.h"
#include "Outputs.h"

namespace keymasterdevice {

class ResponseReader;

using ParamSetHolder = std::unique_ptr<keymaster_key_param_set_t, ::keymasterKeyParamSetDelete>;

void addParam(const keymaster_key_param_t& param, QCBOREncodeContext* encoder);
keymaster_error_t parseParam(CborReader* reader, keymasterutils::KeymasterUtils* transport,
                             keymaster_key_param_t* out);

// The parameter group of begin, update and finish responses, which may be absent.
keymaster_error_t readParams(keymasterutils::KeymasterUtils* transport, ResponseReader& response,
                             keymaster_key_param_set_t* announced, ParamSetHolder* params);

// Moves the array to the caller, who has its length already; without a place it is released.
void storeParams(ParamSetHolder params, keymaster_key_param_set_t* out_params);

}  // namespace keymasterdevice
