#include "SoakWorker.h"

#include <unistd.h>

#include "Hex.h"
#include "Scratch.h"
#include "WrappedKeyVector.h"

namespace lumo::bench::soak {
namespace {

using ::android::hardware::keymaster::V4_0::HardwareAuthToken;
using ::android::hardware::keymaster::V4_0::HmacSharingParameters;
using ::android::hardware::keymaster::V4_0::KeyCharacteristics;
using ::android::hardware::keymaster::V4_0::Tag;
using ::android::hardware::keymaster::V4_0::VerificationToken;

constexpr uint32_t kRsaBits = 2048;
constexpr size_t kMaxMessage = 4096;

Params cipherUse(const Blob& nonce) {
    Params params = {keymaster_param_enum(KM_TAG_BLOCK_MODE, KM_MODE_GCM),
                     keymaster_param_enum(KM_TAG_PADDING, KM_PAD_NONE),
                     keymaster_param_int(KM_TAG_MAC_LENGTH, 128)};
    if (!nonce.empty()) {
        params.push_back(keymaster_param_blob(KM_TAG_NONCE, nonce.data(), nonce.size()));
    }
    return params;
}

Params keyParams(KeyKind kind, uint32_t rsa_bits = kRsaBits) {
    Params params = {keymaster_param_bool(KM_TAG_NO_AUTH_REQUIRED)};
    const auto add = [&](keymaster_tag_t tag, uint32_t value) {
        params.push_back(keymaster_param_enum(tag, value));
    };
    switch (kind) {
        case KeyKind::resistant:
            params.push_back(
                keymaster_param_bool(static_cast<keymaster_tag_t>(Tag::ROLLBACK_RESISTANCE)));
            [[fallthrough]];
        case KeyKind::aes:
            add(KM_TAG_ALGORITHM, KM_ALGORITHM_AES);
            params.push_back(keymaster_param_int(KM_TAG_KEY_SIZE, 256));
            add(KM_TAG_PURPOSE, KM_PURPOSE_ENCRYPT);
            add(KM_TAG_PURPOSE, KM_PURPOSE_DECRYPT);
            add(KM_TAG_BLOCK_MODE, KM_MODE_GCM);
            add(KM_TAG_PADDING, KM_PAD_NONE);
            params.push_back(keymaster_param_int(KM_TAG_MIN_MAC_LENGTH, 128));
            return params;
        case KeyKind::hmac:
            add(KM_TAG_ALGORITHM, KM_ALGORITHM_HMAC);
            params.push_back(keymaster_param_int(KM_TAG_KEY_SIZE, 256));
            params.push_back(keymaster_param_int(KM_TAG_MIN_MAC_LENGTH, 256));
            break;
        case KeyKind::ec:
            add(KM_TAG_ALGORITHM, KM_ALGORITHM_EC);
            params.push_back(keymaster_param_int(KM_TAG_KEY_SIZE, 256));
            add(KM_TAG_EC_CURVE, KM_EC_CURVE_P_256);
            break;
        case KeyKind::rsa:
        case KeyKind::wrapped:
            add(KM_TAG_ALGORITHM, KM_ALGORITHM_RSA);
            params.push_back(keymaster_param_int(KM_TAG_KEY_SIZE, rsa_bits));
            params.push_back(keymaster_param_long(KM_TAG_RSA_PUBLIC_EXPONENT, 65537));
            add(KM_TAG_PADDING, KM_PAD_RSA_PKCS1_1_5_SIGN);
            break;
    }
    add(KM_TAG_PURPOSE, KM_PURPOSE_SIGN);
    add(KM_TAG_PURPOSE, KM_PURPOSE_VERIFY);
    add(KM_TAG_DIGEST, KM_DIGEST_SHA_2_256);
    return params;
}

Params signUse(KeyKind kind, KeyPurpose purpose) {
    Params params = {keymaster_param_enum(KM_TAG_DIGEST, KM_DIGEST_SHA_2_256)};
    if (kind == KeyKind::hmac && purpose == KeyPurpose::SIGN) {
        params.push_back(keymaster_param_int(KM_TAG_MAC_LENGTH, 256));
    }
    if (kind == KeyKind::rsa) {
        params.push_back(keymaster_param_enum(KM_TAG_PADDING, KM_PAD_RSA_PKCS1_1_5_SIGN));
    }
    return params;
}

const Params kWrappingKey = {
    keymaster_param_bool(KM_TAG_NO_AUTH_REQUIRED),
    keymaster_param_enum(KM_TAG_ALGORITHM, KM_ALGORITHM_RSA),
    keymaster_param_int(KM_TAG_KEY_SIZE, 2048),
    keymaster_param_long(KM_TAG_RSA_PUBLIC_EXPONENT, 65537),
    keymaster_param_enum(KM_TAG_PURPOSE, static_cast<keymaster_purpose_t>(KeyPurpose::WRAP_KEY)),
    keymaster_param_enum(KM_TAG_PADDING, KM_PAD_RSA_OAEP),
    keymaster_param_enum(KM_TAG_DIGEST, KM_DIGEST_SHA_2_256),
};

const Params kUnwrapping = {
    keymaster_param_enum(KM_TAG_PADDING, KM_PAD_RSA_OAEP),
    keymaster_param_enum(KM_TAG_DIGEST, KM_DIGEST_SHA_2_256),
};

}  // namespace

Worker::Worker(const std::string& name, Shared& shared, Ledger& ledger, bool interruptible,
               uint32_t seed)
    : name_(name),
      shared_(shared),
      ledger_(ledger),
      interruptible_(interruptible),
      random_(seed),
      device_(::keymaster::V4_0::CreateKeymasterDevice()) {
    ledger_.ready = true;
}

// ---- Results ----

void Worker::expect(ErrorCode error, const char* call, ErrorCode wanted) {
    if (error == ErrorCode::SECURE_HW_COMMUNICATION_FAILED && interruptible_) throw Interrupted();
    if (error != wanted) {
        giveUp(name_ + ": " + call + " gave " + std::to_string(static_cast<int32_t>(error)) +
               " instead of " + std::to_string(static_cast<int32_t>(wanted)));
    }
    ++shared_.operations;
}

void Worker::expectEqual(const Blob& result, const Blob& wanted, const char* call) {
    if (result != wanted) giveUp(name_ + ": " + call + " gave other bytes");
}

// ---- Keys ----

Blob Worker::generate(KeyKind kind) {
    Blob key;
    ErrorCode result = ErrorCode::OK;
    const auto store = [&](ErrorCode error, const hidl_vec<uint8_t>& blob,
                           const KeyCharacteristics&) {
        result = error;
        key = blob;
    };
    if (kind != KeyKind::wrapped) {
        device_->generateKey(hidlParams(keyParams(kind)), store);
        expect(result, "generateKey");
        if (kind == KeyKind::rsa) ++shared_.rsa;
        return key;
    }
    if (wrapping_key_.empty()) {
        device_->importKey(hidlParams(kWrappingKey), KeyFormat::PKCS8,
                           test::fromHex(test::kWrappingKey), store);
        expect(result, "importKey");
        wrapping_key_ = key;
    }
    static const Blob wrapped = test::fromHex(test::kWrappedKey);
    static const Blob mask =
        test::fromHex("e0e1e2e3e4e5e6e7e8e9eaebecedeeeff0f1f2f3f4f5f6f7f8f9fafbfcfdfeff");
    device_->importWrappedKey(wrapped, wrapping_key_, mask, hidlParams(kUnwrapping), 0, 0, store);
    expect(result, "importWrappedKey");
    ++shared_.wrapped_imports;
    return key;
}

void Worker::keep(KeyKind kind, const Blob& blob) {
    for (KeyPlace& place : ledger_.keys[static_cast<size_t>(kind)]) {
        if (place.state == KeyState::live) continue;
        require(blob.size() <= place.blob.size(), "a key blob is longer than any should be");
        place.state = KeyState::none;
        place.kind = kind;
        place.size = static_cast<uint32_t>(blob.size());
        std::copy(blob.begin(), blob.end(), place.blob.begin());
        place.state = KeyState::live;
        return;
    }
    giveUp(name_ + ": no place for a key");
}

// Deletes one key of `kind` where every place is taken.
void Worker::drop(KeyKind kind) {
    auto& places = ledger_.keys[static_cast<size_t>(kind)];
    for (const KeyPlace& place : places) {
        if (place.state != KeyState::live) return;
    }
    KeyPlace& place = places[random_() % places.size()];
    place.state = KeyState::deleting;
    const Blob blob(place.blob.begin(), place.blob.begin() + place.size);
    expect(device_->deleteKey(blob), "deleteKey");
    const bool final = kind == KeyKind::resistant;
    place.state = final ? KeyState::deleted : KeyState::none;
    if (final) expect(open(kind, blob), "begin with a deleted key", ErrorCode::INVALID_KEY_BLOB);
}

void Worker::replace(KeyKind kind) {
    drop(kind);
    const Blob blob = generate(kind);
    keep(kind, blob);
    expect(open(kind, blob), "begin with a new key");
}

// A live key, made if there is none.
Blob Worker::keyOf(KeyKind kind) {
    auto& places = ledger_.keys[static_cast<size_t>(kind)];
    const size_t first = random_() % places.size();
    for (size_t i = 0; i < places.size(); ++i) {
        const KeyPlace& place = places[(first + i) % places.size()];
        if (place.state == KeyState::live) {
            return {place.blob.begin(), place.blob.begin() + place.size};
        }
    }
    const Blob blob = generate(kind);
    keep(kind, blob);
    return blob;
}

// What begin says of a key; an operation that it gives is aborted again.
ErrorCode Worker::open(KeyKind kind, const Blob& blob) {
    const bool cipher = kind == KeyKind::aes || kind == KeyKind::resistant;
    const Params cbc = {keymaster_param_enum(KM_TAG_BLOCK_MODE, KM_MODE_CBC),
                        keymaster_param_enum(KM_TAG_PADDING, KM_PAD_PKCS7)};
    const bool encrypts = cipher || kind == KeyKind::wrapped;
    const Params params = cipher                     ? cipherUse({})
                          : kind == KeyKind::wrapped ? cbc
                                                     : signUse(kind, KeyPurpose::SIGN);
    ErrorCode result = ErrorCode::OK;
    uint64_t handle = 0;
    device_->begin(encrypts ? KeyPurpose::ENCRYPT : KeyPurpose::SIGN, blob, hidlParams(params),
                   HardwareAuthToken{},
                   [&](ErrorCode error, const hidl_vec<KeyParameter>&, uint64_t operation) {
                       result = error;
                       handle = operation;
                   });
    if (result == ErrorCode::OK) expect(device_->abort(handle), "abort");
    return result;
}

// ---- Operations ----

Worker::Begun Worker::begin(KeyPurpose purpose, const Blob& key, const Params& params) {
    Begun begun;
    ErrorCode result = ErrorCode::OK;
    device_->begin(purpose, key, hidlParams(params), HardwareAuthToken{},
                   [&](ErrorCode error, const hidl_vec<KeyParameter>& out, uint64_t operation) {
                       result = error;
                       begun.handle = operation;
                       for (const KeyParameter& param : out) {
                           if (param.tag == Tag::NONCE) begun.nonce = param.blob;
                       }
                   });
    expect(result, "begin");
    return begun;
}

Blob Worker::update(uint64_t handle, const Blob& input) {
    Blob output;
    ErrorCode result = ErrorCode::OK;
    device_->update(handle, {}, input, HardwareAuthToken{}, VerificationToken{},
                    [&](ErrorCode error, uint32_t consumed, const hidl_vec<KeyParameter>&,
                        const hidl_vec<uint8_t>& made) {
                        result = error;
                        output = made;
                        require(error != ErrorCode::OK || consumed == input.size(),
                                "update left input over");
                    });
    expect(result, "update");
    return output;
}

Blob Worker::finish(uint64_t handle, const Blob& input, const Blob& signature) {
    Blob output;
    ErrorCode result = ErrorCode::OK;
    device_->finish(
        handle, {}, input, signature, HardwareAuthToken{}, VerificationToken{},
        [&](ErrorCode error, const hidl_vec<KeyParameter>&, const hidl_vec<uint8_t>& made) {
            result = error;
            output = made;
        });
    expect(result, "finish");
    return output;
}

// AES-GCM there and back.
void Worker::cipher() {
    const Blob key = keyOf(KeyKind::aes);
    const Blob message(1 + random_() % kMaxMessage, static_cast<uint8_t>(random_()));
    const Begun encryption = begin(KeyPurpose::ENCRYPT, key, cipherUse({}));
    Blob sealed = update(encryption.handle, message);
    const Blob rest = finish(encryption.handle, {});
    sealed.insert(sealed.end(), rest.begin(), rest.end());
    const Begun decryption = begin(KeyPurpose::DECRYPT, key, cipherUse(encryption.nonce));
    expectEqual(finish(decryption.handle, sealed), message, "decryption");
}

void Worker::signAndVerify(KeyKind kind, size_t size) {
    const Blob key = keyOf(kind);
    const Blob message(size, static_cast<uint8_t>(random_()));
    const Begun signing = begin(KeyPurpose::SIGN, key, signUse(kind, KeyPurpose::SIGN));
    const Blob signature = finish(signing.handle, message);
    const Begun verifying = begin(KeyPurpose::VERIFY, key, signUse(kind, KeyPurpose::VERIFY));
    finish(verifying.handle, message, signature);
}

void Worker::rsa() {
    signAndVerify(KeyKind::rsa, 64);
    ++shared_.rsa;
}

void Worker::attest() {
    const Blob key = keyOf(KeyKind::ec);
    const Blob challenge(32, static_cast<uint8_t>(random_()));
    const Params params = {
        keymaster_param_blob(KM_TAG_ATTESTATION_CHALLENGE, challenge.data(), challenge.size()),
        keymaster_param_blob(KM_TAG_ATTESTATION_APPLICATION_ID, challenge.data(), 8)};
    ErrorCode result = ErrorCode::OK;
    device_->attestKey(key, hidlParams(params),
                       [&](ErrorCode error, const hidl_vec<hidl_vec<uint8_t>>& chain) {
                           result = error;
                           require(error != ErrorCode::OK || chain.size() > 1, "no chain");
                       });
    expect(result, "attestKey");
    ++shared_.attestations;
}

void Worker::exportKey() {
    ErrorCode result = ErrorCode::OK;
    device_->exportKey(KeyFormat::X509, keyOf(KeyKind::ec), {}, {},
                       [&](ErrorCode error, const hidl_vec<uint8_t>& key) {
                           result = error;
                           require(error != ErrorCode::OK || key.size() > 0, "an empty public key");
                       });
    expect(result, "exportKey");
}

void Worker::characteristics() {
    ErrorCode result = ErrorCode::OK;
    device_->getKeyCharacteristics(
        keyOf(KeyKind::hmac), {}, {}, [&](ErrorCode error, const KeyCharacteristics& lists) {
            result = error;
            require(error != ErrorCode::OK || lists.hardwareEnforced.size() > 0,
                    "a key without characteristics");
        });
    expect(result, "getKeyCharacteristics");
}

void Worker::sharing() {
    ErrorCode result = ErrorCode::OK;
    device_->getHmacSharingParameters(
        [&](ErrorCode error, const HmacSharingParameters&) { result = error; });
    expect(result, "getHmacSharingParameters");
}

// A key blob with one byte changed at its end, where it is sealed.
void Worker::spoiled() {
    Blob key = keyOf(KeyKind::aes);
    key.back() = static_cast<uint8_t>(key.back() ^ 1);
    expect(open(KeyKind::aes, key), "begin with a spoiled key", ErrorCode::INVALID_KEY_BLOB);
}

// An operation that stays begun until the next one, or until the worker's end.
void Worker::leaveOpen() {
    if (left_open_ != 0) expect(device_->abort(std::exchange(left_open_, 0)), "abort");
    left_open_ =
        begin(KeyPurpose::SIGN, keyOf(KeyKind::ec), signUse(KeyKind::ec, KeyPurpose::SIGN)).handle;
}

// ---- The mixture ----

void Worker::step() {
    // In ten thousand.
    static const std::pair<uint32_t, void (Worker::*)()> kMixture[] = {
        {4300, &Worker::cipher},
        {2500, &Worker::mac},
        {1200, &Worker::ec},
        {500, &Worker::characteristics},
        {400, &Worker::exportKey},
        {300, &Worker::sharing},
        {300, &Worker::spoiled},
        {180, &Worker::leaveOpen},
        {100, &Worker::replaceAes},
        {60, &Worker::replaceHmac},
        {60, &Worker::replaceEc},
        {40, &Worker::attest},
        {30, &Worker::rsa},
        {18, &Worker::importWrapped},
        {10, &Worker::replaceResistant},
        {2, &Worker::replaceRsa},
    };
    auto rest = static_cast<uint32_t>(random_() % 10000);
    for (const auto& [share, run] : kMixture) {
        if (rest < share) return (this->*run)();
        rest -= share;
    }
    giveUp("the shares of the mixture are less than the whole");
}

void Worker::work() {
    while (!shared_.done()) {
        try {
            step();
        } catch (const Interrupted&) {
            // A restart: what was begun is gone.
            ++shared_.interrupted;
            left_open_ = 0;
            ::usleep(1000);
        }
    }
}

// ---- After the run ----

size_t Worker::audit(uint64_t& checked) {
    size_t wrong = 0;
    for (const auto& places : ledger_.keys) {
        for (const KeyPlace& place : places) {
            if (place.state == KeyState::none) continue;
            const Blob blob(place.blob.begin(), place.blob.begin() + place.size);
            const ErrorCode result = open(place.kind, blob);
            const bool opens = result == ErrorCode::OK;
            const bool gone = result == ErrorCode::INVALID_KEY_BLOB;
            const bool right = place.state == KeyState::live      ? opens
                               : place.state == KeyState::deleted ? gone
                                                                  : opens || gone;
            if (!right) ++wrong;
            ++checked;
        }
    }
    return wrong;
}

size_t Worker::freeSlots() {
    constexpr size_t kTooMany = 1000;
    const Blob key = keyOf(KeyKind::ec);
    std::vector<uint64_t> handles;
    ErrorCode result = ErrorCode::OK;
    while (handles.size() < kTooMany) {
        device_->begin(KeyPurpose::SIGN, key, hidlParams(signUse(KeyKind::ec, KeyPurpose::SIGN)),
                       HardwareAuthToken{},
                       [&](ErrorCode error, const hidl_vec<KeyParameter>&, uint64_t operation) {
                           result = error;
                           if (error == ErrorCode::OK) handles.push_back(operation);
                       });
        if (result != ErrorCode::OK) break;
    }
    expect(result, "begin without a free slot", ErrorCode::TOO_MANY_OPERATIONS);
    for (const uint64_t handle : handles) expect(device_->abort(handle), "abort");
    return handles.size();
}

void Worker::generateRsa(uint32_t bits) {
    ErrorCode result = ErrorCode::OK;
    device_->generateKey(hidlParams(keyParams(KeyKind::rsa, bits)),
                         [&](ErrorCode error, const hidl_vec<uint8_t>&, const KeyCharacteristics&) {
                             result = error;
                         });
    expect(result, "generateKey");
}

void Worker::signOnce() {
    finish(
        begin(KeyPurpose::SIGN, keyOf(KeyKind::ec), signUse(KeyKind::ec, KeyPurpose::SIGN)).handle,
        Blob(32, 1));
}

}  // namespace lumo::bench::soak
