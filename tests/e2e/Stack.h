// The whole stack in one process: the 4.1 service object from its factory, the shared library, the
// transport and the secure application, over a state directory of the test's own.
#pragma once

#include <android/hardware/keymaster/4.1/IKeymasterDevice.h>
#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "Folder.h"
#include "Hex.h"
#include "Program.h"
#include "Words.h"
#include "secureapp/access/Tokens.h"

namespace android::hardware::keymaster::V4_1 {
inline void PrintTo(ErrorCode error, std::ostream* out) {
    *out << toString(error);
}
}  // namespace android::hardware::keymaster::V4_1

namespace lumo::test {

using ::android::sp;
using ::android::hardware::keymaster::V4_0::HardwareAuthenticatorType;
using ::android::hardware::keymaster::V4_0::HardwareAuthToken;
using ::android::hardware::keymaster::V4_0::HmacSharingParameters;
using ::android::hardware::keymaster::V4_0::KeyCharacteristics;
using ::android::hardware::keymaster::V4_0::KeyFormat;
using ::android::hardware::keymaster::V4_0::KeyPurpose;
using ::android::hardware::keymaster::V4_0::VerificationToken;
using ::android::hardware::keymaster::V4_1::IKeymasterDevice;
using E = ::android::hardware::keymaster::V4_1::ErrorCode;
using secureapp::AuthToken;
using secureapp::Bytes;

struct Target {
    const char* profile;
    bool strongbox;
    // Whether key blobs are of version 4.1 at least, which report more.
    bool new_blobs;
    bool legacy;
};

// What a call must answer at the two security levels.
struct Answers {
    E tee;
    E strongbox;
    Answers(E both) : tee(both), strongbox(both) {}  // NOLINT: implicit
    Answers(E at_tee, E at_strongbox) : tee(at_tee), strongbox(at_strongbox) {}
};

struct Key {
    E error = E::OK;
    Bytes blob;
    std::string hardware, software;  // sorted words
};

struct Begun {
    E error = E::OK;
    std::string out;  // words
    uint64_t handle = 0;
};

struct Output {
    E error = E::OK;
    Bytes data;
    std::string out;  // begin's parameters, as words
};

Bytes text(const std::string& characters);
Bytes pattern(size_t count);  // bytes without a pattern that a cipher might hide
Bytes joined(Bytes first, const Bytes& second);
Bytes flipped(Bytes bytes, size_t at);
bool contains(const std::string& words, const std::string& word);

class Stack : public testing::TestWithParam<Target> {
  protected:
    Stack();

    // Ends the running boot, if any, and starts another with the world as it is now.
    void boot();
    // A line of the world file of the next boots, and a property of the platform.
    void setWorld(const std::string& line) { world_ += line + "\n"; }
    void clearWorld() { world_ = kFirstWorld; }
    void setVersions(const std::string& release, const std::string& patch);

    bool strongbox() const { return GetParam().strongbox; }
    E expected(const Answers& answers) const {
        return strongbox() ? answers.strongbox : answers.tee;
    }

    // Each checks that a refusal comes with empty outputs.
    Key generate(const std::string& key);
    Key import(const std::string& key, KeyFormat format, const Bytes& data);
    Key importWrapped(const Bytes& wrapped, const Bytes& wrapping, const Bytes& mask,
                      uint64_t password_sid = 0, uint64_t biometric_sid = 0);
    Key characteristics(const Bytes& blob, const std::string& id = "",
                        const std::string& data = "");
    Output exportKey(const Bytes& blob, KeyFormat format = KeyFormat::X509,
                     const std::string& id = "", const std::string& data = "");
    Output upgrade(const Bytes& blob, const std::string& binding);
    std::pair<E, std::vector<Bytes>> attest(const Bytes& blob, const std::string& how);

    Begun begin(KeyPurpose purpose, const Bytes& blob, const std::string& how,
                const HardwareAuthToken& token = {});
    // Everything is consumed, and nothing but data comes out.
    Output update(uint64_t handle, const Bytes& input, const std::string& how = "",
                  const HardwareAuthToken& token = {});
    Output finish(uint64_t handle, const Bytes& input = {}, const Bytes& signature = {},
                  const std::string& how = "", const HardwareAuthToken& token = {});
    E abort(uint64_t handle);
    E deleteKey(const Bytes& blob);

    // A whole operation; all but the last `step` bytes go in as updates.
    Output run(KeyPurpose purpose, const Bytes& blob, const std::string& how, const Bytes& input,
               const Bytes& signature = {}, size_t step = 16384, const std::string& aad = "");
    Output sign(const Bytes& blob, const std::string& how, const Bytes& input) {
        return run(KeyPurpose::SIGN, blob, how, input);
    }
    E verify(const Bytes& blob, const std::string& how, const Bytes& input, const Bytes& sig) {
        return run(KeyPurpose::VERIFY, blob, how, input, sig).error;
    }
    // The error of begin; a good operation is aborted again.
    E tryBegin(KeyPurpose purpose, const Bytes& blob, const std::string& how,
               const HardwareAuthToken& token = {});

    HmacSharingParameters sharingParameters(const sp<IKeymasterDevice>& km);
    // The sharing check; empty when refused.
    Bytes agree(const sp<IKeymasterDevice>& km, const std::vector<HmacSharingParameters>& all);
    // The key that the device agreed on with itself, as an authenticator computes it.
    Bytes sharedKey();
    HardwareAuthToken token(const AuthToken& fields);

    // Runs a shell line in the folder of the test; its output must be as expected.
    void expectShell(const std::string& line, const std::string& output = "");
    std::string file(const std::string& name, const Bytes& content);
    std::string path(const std::string& name) const { return files_ / name; }

    static sp<IKeymasterDevice> create(bool strongbox);

    sp<IKeymasterDevice> km_;

  private:
    static constexpr char kFirstWorld[] = "test_attestation_keys = yes\n";

    std::string world_ = kFirstWorld;
    Folder state_;
    Folder files_;
};

// RSA keys of the openssl command, made once: unencrypted PKCS#8.
const Bytes& rsaPrivate(unsigned bits);
Bytes ecPrivate(const std::string& curve);

extern const Target kTargets[8];
std::string nameOf(const testing::TestParamInfo<Target>& tested);

}  // namespace lumo::test

#define LUMO_ON_ALL_TARGETS(Suite) \
    INSTANTIATE_TEST_SUITE_P(All, Suite, testing::ValuesIn(kTargets), nameOf)
