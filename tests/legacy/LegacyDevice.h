// A device core over a scripted transport that speaks fixed-layout records.
#pragma once

#include <gmock/gmock.h>

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
    void restart();
    ScriptedTransport& script() { return ScriptedTransport::instance(); }
    const Bytes& request() { return script().lastSent().request; }

    keymasterdevice::KeymasterHalDevice device_{KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT};
    keymasterdevice::KeymasterHalDevice strongbox_{KM_SECURITY_LEVEL_STRONGBOX};
    LogCapture log_;
};

// Records that borrow.
keymaster_key_blob_t keyOf(const Bytes& bytes);
keymaster_blob_t blobOf(const Bytes& bytes);
keymaster_key_param_set_t setOf(std::vector<keymaster_key_param_t>& params);

// What a call handed out; released with the object.
struct Outputs {
    Outputs() = default;
    ~Outputs() { release(); }
    Outputs(const Outputs&) = delete;
    Outputs& operator=(const Outputs&) = delete;
    void release();

    keymaster_key_blob_t key = {};
    keymaster_blob_t data = {};
    keymaster_key_param_set_t params = {};
    keymaster_key_characteristics_t characteristics = {};
    keymaster_cert_chain_t chain = {};
    uint64_t handle = 0;
    uint32_t consumed = 0;
};

Bytes bytesOf(const keymaster_key_blob_t& key);
Bytes bytesOf(const keymaster_blob_t& blob);

// The clear part of a version 4.0 key blob of `size` bytes that has no authorizations.
Bytes plainKeyBlob(size_t size = 395);
// `count` bytes of `value`.
Bytes fill(size_t count, uint8_t value);

}  // namespace lumo::test
