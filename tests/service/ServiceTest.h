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

// A callback of any method, handed over with std::ref: counts its calls and keeps what it was
// given. Outputs are texts behind one another: bytes and tags in hexadecimal, parameters as
// {tag:value,...}, lists of bytes in brackets, characteristics as hw{...}sw{...}.
struct Answer {
    ErrorCode error = ErrorCode::OK;
    std::string outputs;
    int calls = 0;

    template <typename... Outputs>
    void operator()(ErrorCode result, const Outputs&... values) {
        error = result;
        outputs.clear();
        ((outputs += (outputs.empty() ? "" : " ") + toText(values)), ...);
        ++calls;
    }
    // Nothing but zeros and brackets.
    bool empty() const { return outputs.find_first_of("123456789abcdef") == std::string::npos; }

  private:
    static std::string toText(uint64_t number) { return std::to_string(number); }
    static std::string toText(const hidl_vec<uint8_t>& bytes);
    static std::string toText(const hidl_vec<hidl_vec<uint8_t>>& list);
    static std::string toText(const hidl_vec<KeyParameter>& params);
    static std::string toText(const KeyCharacteristics& sets);
    static std::string toText(const HmacSharingParameters& params);
    static std::string toText(const VerificationToken& token);
};

}  // namespace lumo::test
