// A device core over a scripted transport that speaks fixed-layout records.
#pragma once

#include <gmock/gmock.h>

#include <cstdlib>
#include <functional>
#include <string>

#include "KeymasterHalDevice.h"
#include "LogCapture.h"
#include "ScriptedTransport.h"

namespace lumo::test {

constexpr uint32_t kSharedBytes = 40960;
constexpr uint32_t kUntouched = 0xEEEEEEEE;  // a word as the shared buffer came
constexpr int32_t kSendFails = 7;            // a transport's own code

class LegacyDevice : public ::testing::Test {
  protected:
    LegacyDevice() { restart(); }

    // A fresh script, whose shared buffer is filled with 0xEE.
    void restart() {
        script().reset(0xEE);
        script().legacy = true;
    }
    ScriptedTransport& script() { return ScriptedTransport::instance(); }
    const Bytes& request() { return script().lastSent().request; }

    keymasterdevice::KeymasterHalDevice device_{KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT};
    keymasterdevice::KeymasterHalDevice strongbox_{KM_SECURITY_LEVEL_STRONGBOX};
    LogCapture log_;
};

// Records that borrow.
inline keymaster_key_blob_t keyOf(const Bytes& bytes) {
    return {bytes.data(), bytes.size()};
}
inline keymaster_blob_t blobOf(const Bytes& bytes) {
    return {bytes.data(), bytes.size()};
}
inline keymaster_key_param_set_t setOf(std::vector<keymaster_key_param_t>& params) {
    return {params.data(), params.size()};
}

// What a call handed out; released with the object.
struct Outputs {
    ~Outputs() { release(); }
    void release() {
        std::free(const_cast<uint8_t*>(key.key_material));
        std::free(const_cast<uint8_t*>(data.data));
        keymaster_free_param_set(&params);
        keymaster_free_characteristics(&characteristics);
        for (size_t i = 0; i < chain.entry_count; ++i) {
            std::free(const_cast<uint8_t*>(chain.entries[i].data));
        }
        std::free(chain.entries);
        key = {};
        data = {};
        chain = {};
    }

    keymaster_key_blob_t key = {};
    keymaster_blob_t data = {};
    keymaster_key_param_set_t params = {};
    keymaster_key_characteristics_t characteristics = {};
    keymaster_cert_chain_t chain = {};
    uint64_t handle = 0;
    uint32_t consumed = 0;
};

inline Bytes bytesOf(const keymaster_blob_t& blob) {
    return {blob.data, blob.data + blob.data_length};
}
inline Bytes bytesOf(const keymaster_key_blob_t& key) {
    return {key.key_material, key.key_material + key.key_material_size};
}

// `count` bytes of `value`.
inline Bytes fill(size_t count, uint8_t value) {
    return Bytes(count, value);
}
// The clear part of a version 4.0 key blob of `size` bytes that has no authorizations.
inline Bytes plainKeyBlob(size_t size = 395) {
    return words({0x4B4D4B44, 0, 0, 4}) + fill(size - 16, 0);
}

}  // namespace lumo::test
