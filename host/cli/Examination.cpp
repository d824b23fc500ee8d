#include "Examination.h"

#include <algorithm>

#include "Command.h"

namespace lumo::cli {

namespace {

using km::V4_0::Algorithm;
using km::V4_0::BlockMode;
using km::V4_0::Digest;
using km::V4_0::EcCurve;
using km::V4_0::KeyCharacteristics;
using km::V4_0::KeyOrigin;
using km::V4_0::PaddingMode;

constexpr uint64_t kExponent = 65537;
constexpr size_t kTransportKeyBytes = 32;
constexpr size_t kGcmTagBytes = 16;
constexpr uint8_t kOctets = 0x04, kSequence = 0x30;

Bytes joinedBytes(std::initializer_list<Bytes> parts) {
    Bytes whole;
    for (const Bytes& part : parts) whole.insert(whole.end(), part.begin(), part.end());
    return whole;
}

Bytes der(uint8_t tag, const Bytes& content) {
    Bytes element = {tag};
    const size_t size = content.size();
    if (size >= 0x100) {
        element.insert(element.end(),
                       {0x82, static_cast<uint8_t>(size >> 8), static_cast<uint8_t>(size)});
    } else if (size >= 0x80) {
        element.insert(element.end(), {0x81, static_cast<uint8_t>(size)});
    } else {
        element.push_back(static_cast<uint8_t>(size));
    }
    return joinedBytes({element, content});
}

// The key description of a wrapper, for a raw AES key of 256 bits: encrypt and decrypt, ECB without
// padding, no user.
const Bytes kWrappedDescription = *fromHex(
    "302e020103"            // SEQUENCE, format RAW
    "3029"                  // the authorizations
    "a1083106020100020101"  // [1] purposes encrypt, decrypt
    "a203020120"            // [2] algorithm AES
    "a30402020100"          // [3] 256 bits
    "a4053103020101"        // [4] mode ECB
    "a6053103020101"        // [6] padding none
    "bf8377020500");        // [503] no auth required

}  // namespace

ErrorCode codeOf(const Return<void>& result, const ErrorCode& error) {
    if (!result.isOk()) throw Failure(Exit::transport, result.description());
    return error;
}

Parameters ecParameters() {
    return {makeParameter(Tag::ALGORITHM, Algorithm::EC),
            makeParameter(Tag::EC_CURVE, EcCurve::P_256),
            makeParameter(Tag::KEY_SIZE, 256),
            makeParameter(Tag::PURPOSE, KeyPurpose::SIGN),
            makeParameter(Tag::PURPOSE, KeyPurpose::VERIFY),
            makeParameter(Tag::DIGEST, Digest::SHA_2_256),
            makeBool(Tag::NO_AUTH_REQUIRED)};
}

Parameters rsaParameters() {
    return {makeParameter(Tag::ALGORITHM, Algorithm::RSA),
            makeParameter(Tag::KEY_SIZE, 2048),
            makeLong(Tag::RSA_PUBLIC_EXPONENT, kExponent),
            makeParameter(Tag::PURPOSE, KeyPurpose::SIGN),
            makeParameter(Tag::PURPOSE, KeyPurpose::VERIFY),
            makeParameter(Tag::PURPOSE, KeyPurpose::ENCRYPT),
            makeParameter(Tag::PURPOSE, KeyPurpose::DECRYPT),
            makeParameter(Tag::DIGEST, Digest::SHA_2_256),
            makeParameter(Tag::PADDING, PaddingMode::RSA_PSS),
            makeParameter(Tag::PADDING, PaddingMode::RSA_OAEP),
            makeBool(Tag::NO_AUTH_REQUIRED)};
}

Parameters aesParameters(uint32_t bits) {
    return {makeParameter(Tag::ALGORITHM, Algorithm::AES),
            makeParameter(Tag::KEY_SIZE, bits),
            makeParameter(Tag::PURPOSE, KeyPurpose::ENCRYPT),
            makeParameter(Tag::PURPOSE, KeyPurpose::DECRYPT),
            makeParameter(Tag::BLOCK_MODE, BlockMode::CBC),
            makeParameter(Tag::BLOCK_MODE, BlockMode::GCM),
            makeParameter(Tag::PADDING, PaddingMode::NONE),
            makeParameter(Tag::PADDING, PaddingMode::PKCS7),
            makeParameter(Tag::MIN_MAC_LENGTH, kGcmTagBytes * 8),
            makeBool(Tag::NO_AUTH_REQUIRED)};
}

Parameters hmacParameters() {
    return {makeParameter(Tag::ALGORITHM, Algorithm::HMAC),
            makeParameter(Tag::KEY_SIZE, 256),
            makeParameter(Tag::PURPOSE, KeyPurpose::SIGN),
            makeParameter(Tag::PURPOSE, KeyPurpose::VERIFY),
            makeParameter(Tag::DIGEST, Digest::SHA_2_256),
            makeParameter(Tag::MIN_MAC_LENGTH, 128),
            makeBool(Tag::NO_AUTH_REQUIRED)};
}

Examination::Examination(SecurityLevel level) : level_(level), device_(connect(level)) {}

Examination::~Examination() {
    for (const Bytes& key : made_) static_cast<void>(device_->deleteKey(key).isOk());
}

Answer Examination::keep(ErrorCode error, const Bytes& made, const KeyCharacteristics& described,
                         KeyOrigin origin, Bytes* blob) {
    if (error != ErrorCode::OK) {
        return {error, made.empty() ? "" : "a key blob came with the error"};
    }
    made_.push_back(made);
    if (blob != nullptr) *blob = made;
    if (made.empty()) return {error, "the key blob is empty"};
    const auto& enforced = described.hardwareEnforced;
    const bool has_origin =
        std::any_of(enforced.begin(), enforced.end(), [&](const KeyParameter& parameter) {
            return tagOf(parameter) == Tag::ORIGIN &&
                   parameter.f.integer == static_cast<uint32_t>(origin);
        });
    if (!has_origin) return {error, "the hardware does not enforce the key's origin"};
    return {error, ""};
}

Answer Examination::generate(const Parameters& parameters, Bytes* blob) {
    Answer answer;
    codeOf(device_->generateKey(parameters,
                                [&](ErrorCode code, const auto& made, const auto& described) {
                                    answer =
                                        keep(code, made, described, KeyOrigin::GENERATED, blob);
                                }),
           answer.code);
    return answer;
}

Answer Examination::import(const Parameters& parameters, KeyFormat format, const Bytes& material,
                           Bytes* blob) {
    Answer answer;
    codeOf(device_->importKey(parameters, format, material,
                              [&](ErrorCode code, const auto& made, const auto& described) {
                                  answer = keep(code, made, described, KeyOrigin::IMPORTED, blob);
                              }),
           answer.code);
    return answer;
}

Answer Examination::importWrapped(const Bytes& wrapped, const Bytes& wrapping_key,
                                  const Bytes& masking_key) {
    Answer answer;
    codeOf(device_->importWrappedKey(wrapped, wrapping_key, masking_key,
                                     {makeParameter(Tag::PADDING, PaddingMode::RSA_OAEP),
                                      makeParameter(Tag::DIGEST, Digest::SHA_2_256)},
                                     0, 0,
                                     [&](ErrorCode code, const auto& made, const auto& described) {
                                         answer = keep(code, made, described,
                                                       KeyOrigin::SECURELY_IMPORTED, nullptr);
                                     }),
           answer.code);
    return answer;
}

ErrorCode Examination::begin(const Use& use, uint64_t* handle, Bytes* nonce) {
    ErrorCode error = ErrorCode::UNKNOWN_ERROR;
    return codeOf(device_->begin(use.purpose, use.key, use.parameters, {},
                                 [&](ErrorCode code, const auto& parameters, uint64_t begun) {
                                     error = code;
                                     *handle = begun;
                                     for (const KeyParameter& parameter : parameters) {
                                         if (nonce == nullptr) break;
                                         if (tagOf(parameter) == Tag::NONCE) {
                                             *nonce = parameter.blob;
                                         }
                                     }
                                 }),
                  error);
}

ErrorCode Examination::use(const Use& use, Bytes* output, Bytes* nonce) {
    uint64_t handle = 0;
    ErrorCode error = begin(use, &handle, nonce);
    if (error != ErrorCode::OK) return error;
    Bytes all;
    const auto add = [&](const HidlBytes& bytes) {
        all.insert(all.end(), bytes.begin(), bytes.end());
    };
    codeOf(device_->update(handle, use.at_update, use.input, {}, {},
                           [&](ErrorCode code, uint32_t consumed, const auto&, const auto& bytes) {
                               error = code;
                               if (code == ErrorCode::OK && consumed != use.input.size()) {
                                   error = ErrorCode::INVALID_INPUT_LENGTH;
                               }
                               add(bytes);
                           }),
           error);
    if (error != ErrorCode::OK) return error;
    codeOf(device_->finish(handle, {}, {}, use.signature, {}, {},
                           [&](ErrorCode code, const auto&, const auto& bytes) {
                               error = code;
                               add(bytes);
                           }),
           error);
    if (output != nullptr) *output = all;
    return error;
}

const Bytes& Examination::shared(const char* name, const Parameters& parameters) {
    Bytes& blob = shared_[name];
    if (blob.empty()) {
        require(std::string("make the ") + name + " key for this",
                generate(parameters, &blob).code);
    }
    return blob;
}

const Bytes& Examination::ecKey() {
    return shared("EC", ecParameters());
}

const Bytes& Examination::rsaKey() {
    return shared("RSA", rsaParameters());
}

const Bytes& Examination::aesKey() {
    return shared("AES", aesParameters(256));
}

const Bytes& Examination::hmacKey() {
    return shared("HMAC", hmacParameters());
}

const Bytes& Examination::wrappingKey() {
    return shared("wrapping",
                  joined(rsaParameters(), {makeParameter(Tag::PURPOSE, KeyPurpose::WRAP_KEY)}));
}

Bytes Examination::wrapped(const Bytes& masking_key) {
    const Bytes transport_key(kTransportKeyBytes, 0x5A);
    Bytes masked = transport_key;
    for (size_t i = 0; i < masked.size(); i++) masked[i] ^= masking_key[i];
    Bytes encrypted_transport_key;
    require("encrypt a transport key", use({KeyPurpose::ENCRYPT,
                                            wrappingKey(),
                                            {makeParameter(Tag::PADDING, PaddingMode::RSA_OAEP),
                                             makeParameter(Tag::DIGEST, Digest::SHA_2_256)},
                                            masked,
                                            {},
                                            {}},
                                           &encrypted_transport_key));

    Bytes key;
    require(
        "import a transport key",
        import(aesParameters(kTransportKeyBytes * 8), KeyFormat::RAW, transport_key, &key).code);
    Bytes encrypted;
    Bytes nonce;
    require("encrypt the key to wrap", use({KeyPurpose::ENCRYPT,
                                            key,
                                            {makeParameter(Tag::BLOCK_MODE, BlockMode::GCM),
                                             makeParameter(Tag::PADDING, PaddingMode::NONE),
                                             makeParameter(Tag::MAC_LENGTH, kGcmTagBytes * 8)},
                                            Bytes(32, 0x77),
                                            {},
                                            {makeBytes(Tag::ASSOCIATED_DATA, kWrappedDescription)}},
                                           &encrypted, &nonce));
    if (encrypted.size() < kGcmTagBytes) {
        throw Failure(Exit::check, "AES-GCM gave less than a tag");
    }
    const auto tag = encrypted.end() - kGcmTagBytes;
    return der(kSequence, joinedBytes({{0x02, 0x01, 0x00},  // version
                                       der(kOctets, encrypted_transport_key),
                                       der(kOctets, nonce),
                                       kWrappedDescription,
                                       der(kOctets, Bytes(encrypted.begin(), tag)),
                                       der(kOctets, Bytes(tag, encrypted.end()))}));
}

}  // namespace lumo::cli
