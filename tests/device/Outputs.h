// What an operation hands out, owned and readable as text.
#pragma once

#include <KeymasterHalDevice.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "KeyBlobs.h"
#include "ScriptedTransport.h"

namespace lumo::test {

inline std::string text(const uint8_t* bytes, size_t length) {
    return bytes == nullptr ? "null" : toHex(Bytes(bytes, bytes + length));
}

struct Outputs {
    Outputs() = default;
    Outputs(const Outputs&) = delete;
    ~Outputs() {
        free(const_cast<uint8_t*>(key_blob.key_material));
        free(const_cast<uint8_t*>(output.data));
        keymaster_free_param_set(&params);
        if (chain.entries == &placeholder) return;
        for (size_t i = 0; i < chain.entry_count; ++i) {
            free(const_cast<uint8_t*>(chain.entries[i].data));
        }
        free(chain.entries);
    }

    std::string paramsText() const {
        if (params.params == nullptr) return "null";
        std::string all;
        for (const std::string& line : linesOf(params)) all += line + " ";
        return all;
    }

    // Every output but the announced number of parameters.
    std::string all() const {
        std::string result = "blob " + text(key_blob.key_material, key_blob.key_material_size) +
                             ", output " + text(output.data, output.data_length) + ", params " +
                             paramsText() + ", handle " + std::to_string(handle) + ", consumed " +
                             std::to_string(consumed) + ", check " + toHex(check) + ", seed " +
                             text(hmac.seed, 32) + text(hmac.nonce, 32) + ", chain";
        if (chain.entries == &placeholder) return result + " of the caller";
        for (size_t i = 0; i < chain.entry_count; ++i) {
            result += " " + text(chain.entries[i].data, chain.entries[i].data_length);
        }
        return result;
    }

    keymaster_key_blob_t key_blob = {nullptr, 0};
    keymaster_blob_t output = {nullptr, 0};
    keymaster_key_param_set_t params = {nullptr, 0};
    uint64_t handle = 0;
    uint32_t consumed = 0;
    std::vector<uint8_t> check = {0x99};
    hmac_sharing_params_t hmac = {};
    keymaster_blob_t placeholder = {nullptr, 0};
    keymaster_cert_chain_t chain = {&placeholder, 1};
};

}  // namespace lumo::test
