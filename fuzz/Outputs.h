// What calls on a device core hand out: read to the last byte, then released.
#pragma once

#include <hardware/keymaster_defs.h>

#include <cstdlib>
#include <vector>

#include "KeymasterRecords.h"
#include "Property.h"

namespace lumo::fuzz {

inline void touchParams(const keymaster_key_param_set_t& set) {
    if (set.params == nullptr) return;
    for (size_t i = 0; i < set.length; ++i) {
        const keymaster_key_param_t& param = set.params[i];
        touch(&param.tag, sizeof(param.tag));
        switch (keymaster_tag_get_type(param.tag)) {
            case KM_BIGNUM:
            case KM_BYTES:
                REQUIRE(param.blob.data != nullptr || param.blob.data_length == 0);
                touch(param.blob.data, param.blob.data_length);
                break;
            case KM_ULONG:
            case KM_ULONG_REP:
            case KM_DATE:
                touch(&param.long_integer, sizeof(param.long_integer));
                break;
            case KM_BOOL:
                touch(&param.boolean, sizeof(param.boolean));
                break;
            default:
                touch(&param.integer, sizeof(param.integer));
        }
    }
}

struct Outputs {
    Outputs() = default;
    Outputs(const Outputs&) = delete;
    Outputs& operator=(const Outputs&) = delete;
    ~Outputs() {
        readAll();
        std::free(const_cast<uint8_t*>(key.key_material));
        std::free(const_cast<uint8_t*>(data.data));
        keymaster_free_param_set(&params);
        keymaster_free_characteristics(&characteristics);
        if (chain.entries == &callers_entry) return;
        for (size_t i = 0; i < chain.entry_count; ++i) {
            std::free(const_cast<uint8_t*>(chain.entries[i].data));
        }
        std::free(chain.entries);
    }

    bool chainIsCallers() const {
        return chain.entries == &callers_entry && chain.entry_count == 1;
    }
    bool hasCharacteristics() const {
        return characteristics.hw_enforced.params != nullptr &&
               characteristics.sw_enforced.params != nullptr;
    }

    keymaster_key_blob_t key = {nullptr, 0};
    keymaster_blob_t data = {nullptr, 0};
    keymaster_key_param_set_t params = {nullptr, 0};
    keymaster_key_characteristics_t characteristics = {};
    keymaster_blob_t callers_entry = {nullptr, 0};
    keymaster_cert_chain_t chain = {&callers_entry, 1};
    uint64_t handle = 0;
    uint32_t consumed = 0;
    std::vector<uint8_t> check = {0x99};
    hmac_sharing_params_t hmac = {};
    verification_token_t token = {};
    bool flag = false;

  private:
    // An output without memory has no length.
    void readAll() const {
        REQUIRE(key.key_material != nullptr || key.key_material_size == 0);
        touch(key.key_material, key.key_material_size);
        REQUIRE(data.data != nullptr || data.data_length == 0);
        touch(data.data, data.data_length);
        touchParams(params);
        touchParams(characteristics.hw_enforced);
        touchParams(characteristics.sw_enforced);
        for (size_t i = 0; i < chain.entry_count; ++i) {
            const keymaster_blob_t& entry = chain.entries[i];
            REQUIRE(entry.data != nullptr || entry.data_length == 0);
            touch(entry.data, entry.data_length);
        }
        touch(check.data(), check.size());
        touch(&hmac, sizeof(hmac));
        touch(&token.challenge, sizeof(token.challenge));
        touch(token.mac, sizeof(token.mac));
    }
};

}  // namespace lumo::fuzz
