// What a call hands out.
#pragma once

#include <KeymasterCryptoDevice.h>
#include <KeymasterHalDevice.h>

#include <string>
#include <utility>
#include <vector>

#include "Values.h"

namespace lumo::test {

// The places that a call may write to. They begin with values that no call leaves behind, so that
// it shows which of them were set; whatever is in them at the end is released.
struct Outputs {
    Outputs();
    ~Outputs();
    Outputs(const Outputs&) = delete;
    Outputs& operator=(const Outputs&) = delete;

    // Name and content of every place.
    std::vector<std::pair<std::string, std::string>> texts() const;

    keymaster_key_blob_t blob = {nullptr, 5};
    keymaster_blob_t output = {nullptr, 5};
    keymaster_key_param_set_t out = {nullptr, 5};
    keymaster_key_characteristics_t chars = {{nullptr, 5}, {nullptr, 5}};
    keymaster_blob_t callers_entry = {nullptr, 0};
    keymaster_cert_chain_t chain = {&callers_entry, 1};
    uint64_t handle = 0x5555;
    uint32_t consumed = 0x5555;
    Bytes check = {0x99};
    hmac_sharing_params_t hmac;
    verification_token_t token;
    bool supported = false;
    keymasterdevice::_keymaster_ec_import_internal_t ec_key = {};
    keymasterdevice::_keymaster_ec_sig_internal_t ec_sig = {};
    std::string said;  // what a method without an output says, as text
};

}  // namespace lumo::test
