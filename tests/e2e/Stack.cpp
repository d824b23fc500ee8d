#include "Stack.h"

#include <Keymaster41Device.h>
#include <android-base/properties.h>
#include <android/log.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>

#include "secureapp/access/SharedHmac.h"

namespace lumo::test {
namespace {

using V4_0Error = ::android::hardware::keymaster::V4_0::ErrorCode;

E toError(V4_0Error error) {
    return static_cast<E>(error);
}

Bytes toBytes(const hidl_vec<uint8_t>& bytes) {
    return {bytes.data(), bytes.data() + bytes.size()};
}

std::string fileContent(const std::string& path) {
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
}

// What generateKey, importKey and importWrappedKey answer.
auto storeKey(Key& key) {
    return [&key](V4_0Error error, const hidl_vec<uint8_t>& blob, const KeyCharacteristics& lists) {
        key = {toError(error), toBytes(blob), words(lists.hardwareEnforced),
               words(lists.softwareEnforced)};
        EXPECT_EQ(key.blob.empty(), key.error != E::OK);
        EXPECT_EQ(key.hardware.empty(), key.error != E::OK);
        EXPECT_EQ(key.software.empty(), key.error != E::OK);
    };
}

auto storeOutput(Output& output) {
    return [&output](V4_0Error error, const hidl_vec<uint8_t>& data) {
        output = {toError(error), toBytes(data), ""};
        EXPECT_TRUE(output.error == E::OK || output.data.empty());
    };
}

}  // namespace

Bytes text(const std::string& characters) {
    return {characters.begin(), characters.end()};
}

Bytes pattern(size_t count) {
    Bytes bytes(count);
    uint32_t state = static_cast<uint32_t>(count) + 1;
    for (uint8_t& byte : bytes) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<uint8_t>(state >> 24);
    }
    return bytes;
}

Bytes joined(Bytes first, const Bytes& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

Bytes flipped(Bytes bytes, size_t at) {
    bytes[at] = static_cast<uint8_t>(bytes[at] ^ 1);
    return bytes;
}

bool contains(const std::string& words, const std::string& word) {
    return (" " + words + " ").find(" " + word + " ") != std::string::npos;
}

Stack::Stack() {
    // Refusals are what many of these tests are about.
    __android_log_set_minimum_priority(ANDROID_LOG_FATAL);
    const std::string transport = std::string("sim:profile=") + GetParam().profile;
    setenv("LUMO_TRANSPORT", transport.c_str(), 1);
    setenv("LUMO_STATE_DIR", state_.path().c_str(), 1);
    setVersions("11", "2020-12-05");
    boot();
}

void Stack::boot() {
    km_ = nullptr;  // with its last service object the device goes down
    const std::string path = state_.write("world.conf", text(world_));
    ASSERT_EQ(chmod(path.c_str(), 0600), 0);
    km_ = create(strongbox());
}

void Stack::setVersions(const std::string& release, const std::string& patch) {
    ASSERT_TRUE(android::base::SetProperty("ro.build.version.release", release));
    ASSERT_TRUE(android::base::SetProperty("ro.build.version.security_patch", patch));
    ASSERT_TRUE(android::base::SetProperty("ro.vendor.build.security_patch", "2020-12-05"));
}

sp<IKeymasterDevice> Stack::create(bool strongbox) {
    return strongbox ? ::keymaster::V4_1::CreateSbKeymasterDevice()
                     : ::keymaster::V4_1::CreateKeymasterDevice();
}

Key Stack::generate(const std::string& key) {
    Key made;
    km_->generateKey(params(key), storeKey(made));
    return made;
}

Key Stack::import(const std::string& key, KeyFormat format, const Bytes& data) {
    Key made;
    km_->importKey(params(key), format, data, storeKey(made));
    return made;
}

Key Stack::importWrapped(const Bytes& wrapped, const Bytes& wrapping, const Bytes& mask,
                         uint64_t password_sid, uint64_t biometric_sid) {
    Key made;
    km_->importWrappedKey(wrapped, wrapping, mask, params("oaep sha256"), password_sid,
                          biometric_sid, storeKey(made));
    return made;
}

Key Stack::characteristics(const Bytes& blob, const std::string& id, const std::string& data) {
    Key key;
    km_->getKeyCharacteristics(blob, text(id), text(data),
                               [&](V4_0Error error, const KeyCharacteristics& lists) {
                                   key = {toError(error), blob, words(lists.hardwareEnforced),
                                          words(lists.softwareEnforced)};
                               });
    EXPECT_EQ(key.hardware.empty(), key.error != E::OK);
    return key;
}

Output Stack::exportKey(const Bytes& blob, KeyFormat format, const std::string& id,
                        const std::string& data) {
    Output output;
    km_->exportKey(format, blob, text(id), text(data), storeOutput(output));
    return output;
}

Output Stack::upgrade(const Bytes& blob, const std::string& binding) {
    Output output;
    km_->upgradeKey(blob, params(binding), storeOutput(output));
    return output;
}

std::pair<E, std::vector<Bytes>> Stack::attest(const Bytes& blob, const std::string& how) {
    std::pair<E, std::vector<Bytes>> result;
    km_->attestKey(blob, params(how),
                   [&](V4_0Error error, const hidl_vec<hidl_vec<uint8_t>>& chain) {
                       result.first = toError(error);
                       for (const auto& certificate : chain) {
                           result.second.push_back(toBytes(certificate));
                       }
                       EXPECT_EQ(chain.size() == 0, result.first != E::OK);
                   });
    return result;
}

E Stack::abort(uint64_t handle) {
    const V4_0Error error = km_->abort(handle);
    return toError(error);
}

E Stack::deleteKey(const Bytes& blob) {
    const V4_0Error error = km_->deleteKey(blob);
    return toError(error);
}

Begun Stack::begin(KeyPurpose purpose, const Bytes& blob, const std::string& how,
                   const HardwareAuthToken& token) {
    Begun begun;
    km_->begin(purpose, blob, params(how), token,
               [&](V4_0Error error, const hidl_vec<KeyParameter>& out, uint64_t handle) {
                   begun = {toError(error), words(out), handle};
                   EXPECT_TRUE(begun.error == E::OK || begun.out.empty());
               });
    return begun;
}

Output Stack::update(uint64_t handle, const Bytes& input, const std::string& how,
                     const HardwareAuthToken& token) {
    Output output;
    km_->update(handle, params(how), input, token, VerificationToken{},
                [&](V4_0Error error, uint32_t consumed, const hidl_vec<KeyParameter>& out,
                    const hidl_vec<uint8_t>& data) {
                    output = {toError(error), toBytes(data), words(out)};
                    EXPECT_EQ(consumed, output.error == E::OK ? input.size() : 0);
                    EXPECT_EQ(output.out, "");
                    EXPECT_TRUE(output.error == E::OK || output.data.empty());
                });
    return output;
}

Output Stack::finish(uint64_t handle, const Bytes& input, const Bytes& signature,
                     const std::string& how, const HardwareAuthToken& token) {
    Output output;
    km_->finish(
        handle, params(how), input, signature, token, VerificationToken{},
        [&](V4_0Error error, const hidl_vec<KeyParameter>& out, const hidl_vec<uint8_t>& data) {
            output = {toError(error), toBytes(data), words(out)};
            EXPECT_EQ(output.out, "");
            EXPECT_TRUE(output.error == E::OK || output.data.empty());
        });
    return output;
}

Output Stack::run(KeyPurpose purpose, const Bytes& blob, const std::string& how, const Bytes& input,
                  const Bytes& signature, size_t step, const std::string& aad) {
    const Begun begun = begin(purpose, blob, how);
    if (begun.error != E::OK) return {begun.error, {}, begun.out};
    std::string extra = aad;
    Bytes result;
    auto next = input.begin();
    for (; static_cast<size_t>(input.end() - next) > step; extra.clear()) {
        const auto end = next + static_cast<ptrdiff_t>(step);
        const Output part = update(begun.handle, Bytes(next, end), extra);
        if (part.error != E::OK) return part;
        result = joined(result, part.data);
        next = end;
    }
    Output last = finish(begun.handle, Bytes(next, input.end()), signature, extra);
    if (last.error == E::OK) last.data = joined(result, last.data);
    last.out = begun.out;
    return last;
}

E Stack::tryBegin(KeyPurpose purpose, const Bytes& blob, const std::string& how,
                  const HardwareAuthToken& token) {
    const Begun begun = begin(purpose, blob, how, token);
    if (begun.error != E::OK) return begun.error;
    EXPECT_EQ(abort(begun.handle), E::OK);
    return begun.error;
}

HmacSharingParameters Stack::sharingParameters(const sp<IKeymasterDevice>& km) {
    HmacSharingParameters result;
    km->getHmacSharingParameters([&](V4_0Error error, const HmacSharingParameters& own) {
        EXPECT_EQ(toError(error), E::OK);
        result.seed = toBytes(own.seed);  // what the callback is given does not last
        result.nonce = own.nonce;
    });
    return result;
}

Bytes Stack::agree(const sp<IKeymasterDevice>& km, const std::vector<HmacSharingParameters>& all) {
    Bytes result;
    km->computeSharedHmac(all, [&](V4_0Error error, const hidl_vec<uint8_t>& check) {
        result = toBytes(check);
        EXPECT_EQ(toError(error), result.empty() ? E::INVALID_ARGUMENT : E::OK);
    });
    return result;
}

Bytes Stack::sharedKey() {
    const HmacSharingParameters own = sharingParameters(km_);
    EXPECT_EQ(agree(km_, {own}).size(), 32U);
    secureapp::HmacSharingParameters same;
    // All zeros say that there is no seed.
    if (toBytes(own.seed) != Bytes(32, 0)) same.seed = toBytes(own.seed);
    same.nonce.assign(own.nonce.data(), own.nonce.data() + own.nonce.size());
    const std::string secret = fileContent(state_ / "shared/shared-secret");
    return secureapp::deriveSharedKey(text(secret), {same});
}

HardwareAuthToken Stack::token(const AuthToken& fields) {
    const Bytes record = secureapp::makeAuthToken(fields, sharedKey());
    HardwareAuthToken token;
    token.challenge = fields.challenge;
    token.userId = fields.user_id;
    token.authenticatorId = fields.authenticator_id;
    token.authenticatorType = static_cast<HardwareAuthenticatorType>(fields.authenticator_type);
    token.timestamp = fields.timestamp;
    token.mac = Bytes(record.end() - 32, record.end());
    return token;
}

std::string Stack::file(const std::string& name, const Bytes& content) {
    return files_.write(name, content);
}

void Stack::expectShell(const std::string& line, const std::string& output) {
    const ProgramResult result = test::run("cd " + files_.path() + " && " + line);
    EXPECT_EQ(result.status, 0) << line << "\n" << result.output;
    EXPECT_EQ(result.output, output) << line;
}

namespace {

Bytes opensslKey(const std::string& options) {
    const Folder folder;
    const ProgramResult made =
        run("cd " + folder.path() + " && openssl genpkey -quiet -out pem " + options +
            " && openssl pkcs8 -topk8 -nocrypt -in pem -outform der -out key");
    EXPECT_EQ(made.status, 0) << made.output;
    return text(fileContent(folder / "key"));
}

}  // namespace

const Bytes& rsaPrivate(unsigned bits) {
    static std::map<unsigned, Bytes> keys;
    Bytes& key = keys[bits];
    if (key.empty()) {
        key = opensslKey("-algorithm rsa -pkeyopt rsa_keygen_bits:" + std::to_string(bits));
    }
    return key;
}

Bytes ecPrivate(const std::string& curve) {
    return opensslKey("-algorithm ec -pkeyopt ec_paramgen_curve:" + curve);
}

const Target kTargets[8] = {
    {"cbor", false, true, false},
    {"cbor", true, true, false},
    {"legacy-4", false, true, true},
    {"legacy-4", true, true, true},
    {"legacy-3", false, false, true},
    {"legacy-3", true, false, true},
    {"legacy-3-encoding", false, false, true},
    {"legacy-3-encoding", true, false, true},
};

std::string nameOf(const testing::TestParamInfo<Target>& tested) {
    std::string name =
        std::string(tested.param.profile) + (tested.param.strongbox ? "_strongbox" : "_tee");
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

}  // namespace lumo::test
