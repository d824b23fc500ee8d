// Service objects over the scripted transport, with a platform of known versions.
#pragma once

#include <ScriptedTransport.h>
#include <android/hardware/keymaster/4.1/IKeymasterDevice.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace lumo::test {

using ::android::sp;
using ::android::hardware::hidl_vec;
using ::android::hardware::keymaster::V4_0::ErrorCode;
using ::android::hardware::keymaster::V4_0::HardwareAuthToken;
using ::android::hardware::keymaster::V4_0::HmacSharingParameters;
using ::android::hardware::keymaster::V4_0::IKeymasterDevice;
using ::android::hardware::keymaster::V4_0::KeyCharacteristics;
using ::android::hardware::keymaster::V4_0::KeyFormat;
using ::android::hardware::keymaster::V4_0::KeyParameter;
using ::android::hardware::keymaster::V4_0::KeyPurpose;
using ::android::hardware::keymaster::V4_0::SecurityLevel;
using ::android::hardware::keymaster::V4_0::Tag;
using ::android::hardware::keymaster::V4_0::VerificationToken;

class ServiceTest : public testing::Test {
  protected:
    // Android 11 with patches of December 2020.
    ServiceTest();

    // What `create` makes when the secure application supports dates and takes the configuration;
    // the script is empty afterwards.
    template <typename Interface>
    sp<Interface> start(Interface* (*create)()) {
        transport.willReply(words({0}));
        transport.willReply(words({0}));
        const sp<Interface> device = create();
        transport.calls.clear();
        return device;
    }

    ScriptedTransport& transport = ScriptedTransport::instance();
};

void setProperty(const std::string& name, const std::string& value);

KeyParameter integerParam(Tag tag, uint32_t value);
KeyParameter longParam(Tag tag, uint64_t value);
KeyParameter booleanParam(Tag tag, bool value);
KeyParameter bytesParam(Tag tag, const hidl_vec<uint8_t>& value);

Bytes toBytes(const hidl_vec<uint8_t>& bytes);

// A callback of any method: counts its calls and keeps the error and whether all outputs were
// empty. Handed over with std::ref.
struct Answer {
    ErrorCode error = ErrorCode::OK;
    bool empty = true;
    int calls = 0;

    template <typename... Outputs>
    void operator()(ErrorCode result, const Outputs&... outputs) {
        error = result;
        empty = (isEmpty(outputs) && ...);
        ++calls;
    }

  private:
    template <typename T>
    static bool isEmpty(const hidl_vec<T>& list) {
        return list.size() == 0;
    }
    static bool isEmpty(uint64_t number) { return number == 0; }
    static bool isEmpty(const KeyCharacteristics& sets) {
        return isEmpty(sets.softwareEnforced) && isEmpty(sets.hardwareEnforced);
    }
    static bool isEmpty(const HmacSharingParameters& params) { return isEmpty(params.seed); }
    static bool isEmpty(const VerificationToken& token) {
        return isEmpty(token.challenge) && isEmpty(token.timestamp) && isEmpty(token.mac);
    }
};

}  // namespace lumo::test
