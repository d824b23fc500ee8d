#include "DoctorCases.h"

#include <string.h>

#include <algorithm>
#include <tuple>

#include "Command.h"

namespace lumo::cli {

namespace {

using km::V4_0::Algorithm;
using km::V4_0::BlockMode;
using km::V4_0::Digest;
using km::V4_0::HmacSharingParameters;
using km::V4_0::PaddingMode;

constexpr size_t kMaskingKeyBytes = 32;
constexpr size_t kSharingCheckBytes = 32;
constexpr uint64_t kUnknownHandle = 0x5A5A5A5A5A5A5A5A;

// An EC key on P-256 that is no secret, as PKCS#8.
constexpr char kEcKey[] =
    "308187020100301306072a8648ce3d020106082a8648ce3d030107046d306b0201010420f6ba24f7ef16f64d8ed69a"
    "38ec988b901d802d1b2efbca3aec1040ffef691b10a14403420004dff23b8c0403dce04ead3f453e8951e1f4827b30"
    "5e870408363cc3ec6972353a7c09f7e04a70a1ff877aeda17062226690c417fdf8cb54a04281a59d341d6864";

Bytes text(const char* words) {
    return Bytes(words, words + strlen(words));
}

const Bytes& message() {
    static const Bytes bytes = text("the data that a case signs or encrypts");
    return bytes;
}

Parameters without(Parameters parameters, Tag tag) {
    parameters.erase(
        std::remove_if(parameters.begin(), parameters.end(),
                       [&](const KeyParameter& parameter) { return tagOf(parameter) == tag; }),
        parameters.end());
    return parameters;
}

Parameters sha256() {
    return {makeParameter(Tag::DIGEST, Digest::SHA_2_256)};
}

Parameters pss() {
    return joined(sha256(), {makeParameter(Tag::PADDING, PaddingMode::RSA_PSS)});
}

Parameters oaep() {
    return joined(sha256(), {makeParameter(Tag::PADDING, PaddingMode::RSA_OAEP)});
}

Parameters mac() {
    return joined(sha256(), {makeParameter(Tag::MAC_LENGTH, 256)});
}

Parameters gcm() {
    return {makeParameter(Tag::BLOCK_MODE, BlockMode::GCM),
            makeParameter(Tag::PADDING, PaddingMode::NONE), makeParameter(Tag::MAC_LENGTH, 128)};
}

Parameters cbc() {
    return {makeParameter(Tag::BLOCK_MODE, BlockMode::CBC),
            makeParameter(Tag::PADDING, PaddingMode::PKCS7)};
}

// Signs, and verifies what came out.
Answer signAndVerify(Examination& e, const Bytes& key, const Parameters& parameters) {
    Bytes signature;
    const ErrorCode error =
        e.use({KeyPurpose::SIGN, key, parameters, message(), {}, {}}, &signature);
    if (error != ErrorCode::OK) return {error, ""};
    return {e.use({KeyPurpose::VERIFY, key, parameters, message(), signature, {}}), ""};
}

// The same with other data when it comes to verifying.
Answer verifyAltered(Examination& e, const Bytes& key, const Parameters& parameters) {
    Bytes signature;
    require("sign", e.use({KeyPurpose::SIGN, key, parameters, message(), {}, {}}, &signature));
    return {e.use({KeyPurpose::VERIFY, key, parameters, text("other data"), signature, {}}), ""};
}

// Encrypts, has `change` alter the result, and decrypts. What comes out is compared.
Answer encryptAndDecrypt(Examination& e, const Bytes& key, const Parameters& parameters,
                         void (*change)(Bytes& encrypted) = nullptr) {
    Bytes encrypted;
    Bytes nonce;
    require("encrypt",
            e.use({KeyPurpose::ENCRYPT, key, parameters, message(), {}, {}}, &encrypted, &nonce));
    if (change != nullptr && !encrypted.empty()) change(encrypted);
    Parameters back = parameters;
    if (!nonce.empty()) back.push_back(makeBytes(Tag::NONCE, nonce));
    Bytes decrypted;
    const ErrorCode error = e.use({KeyPurpose::DECRYPT, key, back, encrypted, {}, {}}, &decrypted);
    const bool same = error != ErrorCode::OK || decrypted == message();
    return {error, same ? "" : "other data came out than went in"};
}

Answer hardwareInfo(Device& device, SecurityLevel wanted) {
    Answer answer = {ErrorCode::UNKNOWN_ERROR, "the callback was not called"};
    codeOf(device.getHardwareInfo([&](SecurityLevel level, const auto& name, const auto& author) {
        answer = {ErrorCode::OK, ""};
        if (level != wanted) answer.fault = "it is of level " + toString(level);
        if (name.empty() || author.empty()) answer.fault = "name or author is empty";
    }),
           answer.code);
    return answer;
}

HmacSharingParameters sharingParameters(Device& device) {
    ErrorCode error = ErrorCode::UNKNOWN_ERROR;
    HmacSharingParameters parameters{};
    require("read the HMAC sharing parameters",
            device.getHmacSharingParameters([&](ErrorCode code, const auto& found) {
                error = code;
                parameters = found;
            }),
            error);
    return parameters;
}

auto inOrder(const HmacSharingParameters& parameters) {
    return std::make_tuple(Bytes(parameters.seed),
                           Bytes(parameters.nonce.data(),
                                 parameters.nonce.data() + decltype(parameters.nonce)::size()));
}

Answer sharingParametersTwice(Examination& e) {
    const HmacSharingParameters first = sharingParameters(e.device());
    if (!first.seed.size() || first.seed.size() == 32) {
        const bool same = inOrder(first) == inOrder(sharingParameters(e.device()));
        return {ErrorCode::OK, same ? "" : "they change between two calls"};
    }
    return {ErrorCode::OK, "the seed has " + std::to_string(first.seed.size()) + " bytes"};
}

Answer agree(Examination& e, const std::vector<HmacSharingParameters>& parameters) {
    Answer answer;
    codeOf(e.device().computeSharedHmac(parameters,
                                        [&](ErrorCode code, const HidlBytes& check) {
                                            answer.code = code;
                                            if (code != ErrorCode::OK) return;
                                            if (check.size() != kSharingCheckBytes) {
                                                answer.fault = "the check value is not 32 bytes";
                                            }
                                        }),
           answer.code);
    return answer;
}

// As the platform does at boot, so that the agreed key stays what it is. A device may have no
// StrongBox.
Answer agreeAsAtBoot(Examination& e) {
    std::vector<HmacSharingParameters> parameters = {sharingParameters(e.device())};
    const SecurityLevel other = e.level() == SecurityLevel::STRONGBOX
                                    ? SecurityLevel::TRUSTED_ENVIRONMENT
                                    : SecurityLevel::STRONGBOX;
    try {
        parameters.push_back(sharingParameters(*connect(other)));
    } catch (const Failure&) {
        return agree(e, parameters);
    }
    std::sort(parameters.begin(), parameters.end(),
              [](const auto& a, const auto& b) { return inOrder(a) < inOrder(b); });
    return agree(e, parameters);
}

Answer verifyAuthorization(Examination& e) {
    Answer answer;
    codeOf(e.device().verifyAuthorization(
               7, {}, {},
               [&](ErrorCode code, const km::V4_0::VerificationToken& token) {
                   answer.code = code;
                   if (code != ErrorCode::OK) return;
                   if (token.challenge != 7) answer.fault = "the token has another challenge";
                   if (token.mac.size() != 32) answer.fault = "the token's MAC is not 32 bytes";
               }),
           answer.code);
    return answer;
}

Answer characteristics(Examination& e, const Bytes& key) {
    Answer answer;
    codeOf(e.device().getKeyCharacteristics(key, {}, {},
                                            [&](ErrorCode code, const auto& found) {
                                                answer.code = code;
                                                if (code == ErrorCode::OK &&
                                                    found.hardwareEnforced.size() == 0) {
                                                    answer.fault = "the hardware enforces nothing";
                                                }
                                            }),
           answer.code);
    return answer;
}

Answer exportPublic(Examination& e, const Bytes& key) {
    Answer answer;
    codeOf(e.device().exportKey(KeyFormat::X509, key, {}, {},
                                [&](ErrorCode code, const HidlBytes& made) {
                                    answer.code = code;
                                    if (code == ErrorCode::OK &&
                                        (made.size() == 0 || made[0] != 0x30)) {
                                        answer.fault = "what was exported is no public key";
                                    }
                                }),
           answer.code);
    return answer;
}

Answer attest(Examination& e, const Bytes& key, const Parameters& parameters) {
    Answer answer;
    const Bytes challenge = text("doctor's challenge");
    codeOf(e.device().attestKey(
               key, joined(parameters, {makeBytes(Tag::ATTESTATION_CHALLENGE, challenge)}),
               [&](ErrorCode code, const hidl_vec<HidlBytes>& chain) {
                   answer.code = code;
                   if (code != ErrorCode::OK) return;
                   if (chain.size() < 2) {
                       answer.fault = "the chain is shorter than two certificates";
                       return;
                   }
                   const Bytes leaf = chain[0];
                   if (std::search(leaf.begin(), leaf.end(), challenge.begin(), challenge.end()) ==
                       leaf.end()) {
                       answer.fault = "the certificate lacks the challenge";
                   }
               }),
           answer.code);
    return answer;
}

Answer upgrade(Examination& e, const Bytes& key) {
    Answer answer;
    codeOf(e.device().upgradeKey(key, {makeBool(Tag::NO_AUTH_REQUIRED)},
                                 [&](ErrorCode code, const HidlBytes& made) {
                                     answer.code = code;
                                     if (code == ErrorCode::OK && made.size() != 0) {
                                         answer.fault = "a key that is up to date was upgraded";
                                     }
                                 }),
           answer.code);
    return answer;
}

// With rollback resistance, where the keymaster has it, the key must not work afterwards.
Answer deleteKey(Examination& e) {
    Bytes key;
    const bool resistant =
        e.generate(joined(ecParameters(), {makeBool(Tag::ROLLBACK_RESISTANCE)}), &key).code ==
        ErrorCode::OK;
    if (!resistant) require("make a key", e.generate(ecParameters(), &key).code);
    const ErrorCode error = e.device().deleteKey(key);
    if (error != ErrorCode::OK || !resistant) return {error, ""};
    const ErrorCode used = e.use({KeyPurpose::SIGN, key, sha256(), message(), {}, {}});
    if (used == ErrorCode::INVALID_KEY_BLOB) return {error, ""};
    if (used != ErrorCode::OK) require("use the key to see that it is gone", used);
    return {error, "the key works after that"};
}

Answer beginAndAbort(Examination& e) {
    uint64_t handle = 0;
    const ErrorCode error = e.begin({KeyPurpose::SIGN, e.ecKey(), sha256(), {}, {}, {}}, &handle);
    if (error != ErrorCode::OK) return {error, ""};
    const ErrorCode aborted = e.device().abort(handle);
    if (aborted != ErrorCode::OK) return {aborted, ""};
    const ErrorCode again = e.device().abort(handle);
    return {aborted, again == ErrorCode::INVALID_OPERATION_HANDLE ? "" : "it can be aborted twice"};
}

Answer begin(Examination& e, KeyPurpose purpose, const Bytes& key, const Parameters& parameters) {
    uint64_t handle = 0;
    const ErrorCode error = e.begin({purpose, key, parameters, {}, {}, {}}, &handle);
    if (error == ErrorCode::OK) static_cast<void>(e.device().abort(handle).isOk());
    return {error, ""};
}

std::vector<DoctorCase> makeCases() {
    using E = ErrorCode;
    using P = KeyPurpose;
    const auto bad_handle = std::vector<E>{E::INVALID_OPERATION_HANDLE};
    const auto bad_blob = std::vector<E>{E::INVALID_KEY_BLOB};
    return {
        {"getHardwareInfo",
         "level, name and author",
         {},
         [](Examination& e) { return hardwareInfo(e.device(), e.level()); }},
        {"getHardwareInfo",
         "the 4.1 object answers, too",
         {},
         [](Examination& e) { return hardwareInfo(*connect41(e.level()), e.level()); }},
        {"getHmacSharingParameters", "the same on every call", {}, sharingParametersTwice},
        {"computeSharedHmac", "the parameters of each level, as at boot", {}, agreeAsAtBoot},
        {"computeSharedHmac",
         "without its own parameters",
         {E::INVALID_ARGUMENT},
         [](Examination& e) { return agree(e, {HmacSharingParameters{}}); }},
        {"verifyAuthorization",
         "a challenge",
         {},
         verifyAuthorization,
         Levels::kTrustedEnvironment},
        {"verifyAuthorization",
         "a challenge",
         {E::UNIMPLEMENTED},
         verifyAuthorization,
         Levels::kStrongbox},
        {"addRngEntropy",
         "32 bytes",
         {},
         [](Examination& e) -> Answer {
             return {e.device().addRngEntropy(Bytes(32, 1)), ""};
         }},

        {"generateKey",
         "an EC key on P-256",
         {},
         [](Examination& e) { return e.generate(ecParameters()); }},
        {"generateKey",
         "an RSA key of 2048 bits",
         {},
         [](Examination& e) -> Answer {
             return {e.rsaKey().empty() ? E::UNKNOWN_ERROR : E::OK, ""};
         }},
        {"generateKey",
         "an AES key of 128 bits",
         {},
         [](Examination& e) { return e.generate(aesParameters(128)); }},
        {"generateKey",
         "an HMAC key of 256 bits",
         {},
         [](Examination& e) { return e.generate(hmacParameters()); }},
        {"generateKey",
         "an AES key of 100 bits",
         {E::UNSUPPORTED_KEY_SIZE},
         [](Examination& e) { return e.generate(aesParameters(100)); }},
        {"generateKey",
         "a GCM key without a shortest tag",
         {E::MISSING_MIN_MAC_LENGTH},
         [](Examination& e) {
             return e.generate(without(aesParameters(128), Tag::MIN_MAC_LENGTH));
         }},

        {"importKey",
         "an AES key",
         {},
         [](Examination& e) {
             return e.import(aesParameters(128), KeyFormat::RAW, Bytes(16, 0x42));
         }},
        {"importKey",
         "an EC key on P-256",
         {},
         [](Examination& e) {
             return e.import(ecParameters(), KeyFormat::PKCS8, *fromHex(kEcKey));
         }},
        {"importKey",
         "an AES key of another size than it says",
         {E::IMPORT_PARAMETER_MISMATCH},
         [](Examination& e) {
             return e.import(aesParameters(256), KeyFormat::RAW, Bytes(16, 0x42));
         }},
        {"importKey",
         "an AES key as PKCS#8",
         {E::UNSUPPORTED_KEY_FORMAT},
         [](Examination& e) {
             return e.import(aesParameters(128), KeyFormat::PKCS8, Bytes(16, 0x42));
         }},

        {"importWrappedKey",
         "an AES key that was wrapped for it",
         {},
         [](Examination& e) {
             const Bytes mask(kMaskingKeyBytes, 0x3C);
             return e.importWrapped(e.wrapped(mask), e.wrappingKey(), mask);
         }},
        {"importWrappedKey",
         "the same under another masking key",
         {E::VERIFICATION_FAILED},
         [](Examination& e) {
             return e.importWrapped(e.wrapped(Bytes(kMaskingKeyBytes, 0x3C)), e.wrappingKey(),
                                    Bytes(kMaskingKeyBytes, 0x3D));
         }},
        {"importWrappedKey",
         "with a key that was not made for it",
         {E::INCOMPATIBLE_PURPOSE},
         [](Examination& e) {
             const Bytes mask(kMaskingKeyBytes, 0x3C);
             return e.importWrapped(e.wrapped(mask), e.rsaKey(), mask);
         }},

        {"getKeyCharacteristics",
         "an EC key",
         {},
         [](Examination& e) { return characteristics(e, e.ecKey()); }},
        {"getKeyCharacteristics", "bytes that are no key", bad_blob,
         [](Examination& e) { return characteristics(e, message()); }},
        {"exportKey", "an EC key", {}, [](Examination& e) { return exportPublic(e, e.ecKey()); }},
        {"exportKey", "an RSA key", {}, [](Examination& e) { return exportPublic(e, e.rsaKey()); }},
        {"exportKey",
         "an AES key",
         {E::UNSUPPORTED_KEY_FORMAT},
         [](Examination& e) { return exportPublic(e, e.aesKey()); }},

        {"attestKey",
         "an EC key",
         {},
         [](Examination& e) {
             return attest(e, e.ecKey(),
                           {makeBytes(Tag::ATTESTATION_APPLICATION_ID, text("doctor"))});
         }},
        {"attestKey",
         "an EC key, for nobody",
         {E::ATTESTATION_APPLICATION_ID_MISSING},
         [](Examination& e) { return attest(e, e.ecKey(), {}); }},
        {"attestKey",
         "an AES key",
         {E::INCOMPATIBLE_ALGORITHM},
         [](Examination& e) {
             return attest(e, e.aesKey(),
                           {makeBytes(Tag::ATTESTATION_APPLICATION_ID, text("doctor"))});
         }},

        {"upgradeKey",
         "a key that is up to date",
         {},
         [](Examination& e) { return upgrade(e, e.ecKey()); }},
        {"upgradeKey", "bytes that are no key", bad_blob,
         [](Examination& e) { return upgrade(e, message()); }},
        {"deleteKey", "a key, with rollback resistance where there is any", {}, deleteKey},

        {"begin",
         "signing with an EC key",
         {},
         [](Examination& e) { return begin(e, P::SIGN, e.ecKey(), sha256()); }},
        {"begin",
         "signing with an AES key",
         {E::UNSUPPORTED_PURPOSE},
         [](Examination& e) { return begin(e, P::SIGN, e.aesKey(), {}); }},
        {"begin",
         "a digest that the key does not allow",
         {E::INCOMPATIBLE_DIGEST},
         [](Examination& e) {
             return begin(e, P::SIGN, e.ecKey(), {makeParameter(Tag::DIGEST, Digest::NONE)});
         }},
        {"begin", "bytes that are no key", bad_blob,
         [](Examination& e) { return begin(e, P::SIGN, message(), sha256()); }},
        {"update",
         "AES-CBC encrypts, and decrypts to the same",
         {},
         [](Examination& e) { return encryptAndDecrypt(e, e.aesKey(), cbc()); }},
        {"update", "an operation that was not begun", bad_handle,
         [](Examination& e) {
             Answer answer;
             codeOf(e.device().update(kUnknownHandle, {}, message(), {}, {},
                                      [&](ErrorCode code, uint32_t, const auto&, const auto&) {
                                          answer.code = code;
                                      }),
                    answer.code);
             return answer;
         }},
        {"finish",
         "an EC signature is good",
         {},
         [](Examination& e) { return signAndVerify(e, e.ecKey(), sha256()); }},
        {"finish",
         "an RSA signature with PSS is good",
         {},
         [](Examination& e) { return signAndVerify(e, e.rsaKey(), pss()); }},
        {"finish",
         "an HMAC is good",
         {},
         [](Examination& e) { return signAndVerify(e, e.hmacKey(), mac()); }},
        {"finish",
         "AES-GCM encrypts, and decrypts to the same",
         {},
         [](Examination& e) { return encryptAndDecrypt(e, e.aesKey(), gcm()); }},
        {"finish",
         "RSA with OAEP encrypts, and decrypts to the same",
         {},
         [](Examination& e) { return encryptAndDecrypt(e, e.rsaKey(), oaep()); }},
        {"finish",
         "an EC signature of other data",
         {E::VERIFICATION_FAILED},
         [](Examination& e) { return verifyAltered(e, e.ecKey(), sha256()); }},
        {"finish",
         "an HMAC of other data",
         {E::VERIFICATION_FAILED},
         [](Examination& e) { return verifyAltered(e, e.hmacKey(), mac()); }},
        {"finish",
         "an altered AES-GCM tag",
         {E::VERIFICATION_FAILED},
         [](Examination& e) {
             return encryptAndDecrypt(e, e.aesKey(), gcm(),
                                      [](Bytes& encrypted) { encrypted.back() ^= 1; });
         }},
        {"finish", "an operation that was not begun", bad_handle,
         [](Examination& e) {
             Answer answer;
             codeOf(e.device().finish(
                        kUnknownHandle, {}, {}, {}, {}, {},
                        [&](ErrorCode code, const auto&, const auto&) { answer.code = code; }),
                    answer.code);
             return answer;
         }},
        {"abort", "an operation, once", {}, beginAndAbort},
        {"abort", "an operation that was not begun", bad_handle,
         [](Examination& e) -> Answer {
             return {e.device().abort(kUnknownHandle), ""};
         }},

        {"deleteAllKeys", "would delete every key with rollback resistance", {}, nullptr},
        {"destroyAttestationIds", "would end the attestation of device ids for good", {}, nullptr},
        {"deviceLocked", "would lock keys of the user until the next token", {}, nullptr},
        {"earlyBootEnded", "would end early boot until the next start", {}, nullptr},
    };
}

}  // namespace

const std::vector<DoctorCase>& doctorCases() {
    static const std::vector<DoctorCase> cases = makeCases();
    return cases;
}

}  // namespace lumo::cli
