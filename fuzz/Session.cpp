// A client's session with the software secure application, through the library, on both wires.
//
// Input: a byte of switches, then steps. A step is a byte that picks it, one that says which
// allocation fails in it (0: none), and what the step reads. Keys are the application's own blobs,
// operations its own handles. Beyond not crashing and not leaking: every result is a published
// error; an error leaves no output behind; what a key signed it verifies, and not with a bit
// changed; what it encrypted it decrypts to the same bytes; a call after a failed allocation works.

#include <algorithm>
#include <array>
#include <vector>

#include "Allocations.h"
#include "AppTransport.h"
#include "EnumBits.h"
#include "Hex.h"
#include "InputParams.h"
#include "KeymasterHalDevice.h"
#include "Limits.h"
#include "Outputs.h"
#include "QuietLog.h"
#include "SampleKeys.h"
#include "WrappedKeyVector.h"

namespace {

using keymasterdevice::errorFromWord;
using keymasterdevice::errorToWord;
using keymasterdevice::ErrorWord;
using keymasterdevice::KeymasterHalDevice;
using lumo::fuzz::AppTransport;
using lumo::fuzz::exactCopy;
using lumo::fuzz::FailingAllocation;
using lumo::fuzz::Input;
using lumo::fuzz::InputParams;
using lumo::fuzz::Outputs;
using lumo::fuzz::touch;
using lumo::test::fromHex;
using Bytes = std::vector<uint8_t>;

const char* const kProfiles[] = {"cbor", "legacy-4", "legacy-3", "legacy-3-encoding"};

enum Switch : uint8_t {
    kStrongBox = 0x04,
    kAppRunsOutOfMemory = 0x08,
    kUnconfigured = 0x10,
    kRollbackResistance = 0x20,
    kTrustedClock = 0x40,
    kUserPresence = 0x80,
};

// ---- Keys that are made or imported: what the input adds comes behind these ----

void addCommon(InputParams& params, keymaster_algorithm_t algorithm, uint32_t bits) {
    params.add(keymaster_param_enum(KM_TAG_ALGORITHM, static_cast<uint32_t>(algorithm)));
    params.add(keymaster_param_int(KM_TAG_KEY_SIZE, bits));
    params.add(keymaster_param_bool(KM_TAG_NO_AUTH_REQUIRED));
}

void addEach(InputParams& params, keymaster_tag_t tag, std::initializer_list<uint32_t> values) {
    for (const uint32_t value : values) params.add(keymaster_param_enum(tag, value));
}

void addCipherKey(InputParams& params, keymaster_algorithm_t algorithm, uint32_t bits) {
    addCommon(params, algorithm, bits);
    addEach(params, KM_TAG_PURPOSE, {KM_PURPOSE_ENCRYPT, KM_PURPOSE_DECRYPT});
    addEach(params, KM_TAG_BLOCK_MODE, {KM_MODE_ECB, KM_MODE_CBC});
    if (algorithm == KM_ALGORITHM_AES) {
        addEach(params, KM_TAG_BLOCK_MODE, {KM_MODE_CTR, KM_MODE_GCM});
        params.add(keymaster_param_int(KM_TAG_MIN_MAC_LENGTH, 96));
    }
    addEach(params, KM_TAG_PADDING, {KM_PAD_NONE, KM_PAD_PKCS7});
    params.add(keymaster_param_bool(KM_TAG_CALLER_NONCE));
}

void addSigningKey(InputParams& params, keymaster_algorithm_t algorithm, uint32_t bits) {
    addCommon(params, algorithm, bits);
    addEach(params, KM_TAG_PURPOSE, {KM_PURPOSE_SIGN, KM_PURPOSE_VERIFY});
    addEach(params, KM_TAG_DIGEST, {KM_DIGEST_SHA_2_256});
    if (algorithm == KM_ALGORITHM_HMAC) {
        params.add(keymaster_param_int(KM_TAG_MIN_MAC_LENGTH, 64));
    } else {
        addEach(params, KM_TAG_DIGEST, {KM_DIGEST_NONE});
    }
}

void addRsaKey(InputParams& params) {
    addCommon(params, KM_ALGORITHM_RSA, 2048);
    params.add(keymaster_param_long(KM_TAG_RSA_PUBLIC_EXPONENT, 65537));
    addEach(params, KM_TAG_PURPOSE,
            {KM_PURPOSE_SIGN, KM_PURPOSE_VERIFY, KM_PURPOSE_ENCRYPT, KM_PURPOSE_DECRYPT, 5});
    addEach(params, KM_TAG_DIGEST, {KM_DIGEST_NONE, KM_DIGEST_SHA1, KM_DIGEST_SHA_2_256});
    addEach(params, KM_TAG_PADDING,
            {KM_PAD_NONE, KM_PAD_RSA_OAEP, KM_PAD_RSA_PSS, KM_PAD_RSA_PKCS1_1_5_ENCRYPT,
             KM_PAD_RSA_PKCS1_1_5_SIGN});
}

// The parameters and, for an import, the bytes of a usual key.
Bytes addUsualKey(uint8_t pick, InputParams& params) {
    switch (pick % 6) {
        case 1:
            addCipherKey(params, KM_ALGORITHM_AES, 128);
            return Bytes(16, 0x11);
        case 2:
            addSigningKey(params, KM_ALGORITHM_HMAC, 256);
            return Bytes(32, 0x22);
        case 3:
            addSigningKey(params, KM_ALGORITHM_EC, 256);
            return fromHex(lumo::test::kP256);
        case 4:
            addRsaKey(params);
            return fromHex(lumo::test::kWrappingKey);
        case 5:
            addCipherKey(params, KM_ALGORITHM_TRIPLE_DES, 168);
            return Bytes(24, 0x33);
        default:
            return {};
    }
}

bool isRsa(const InputParams& params) {
    for (size_t i = 0; i < params.size(); ++i) {
        if (params[i].tag == KM_TAG_ALGORITHM && params[i].integer == KM_ALGORITHM_RSA) return true;
    }
    return false;
}

keymaster_blob_t blobOf(const Bytes& bytes) {
    return {bytes.data(), bytes.size()};
}

Bytes bytesOf(const keymaster_blob_t& blob) {
    return blob.data == nullptr ? Bytes() : Bytes(blob.data, blob.data + blob.data_length);
}

void append(Bytes& bytes, const Bytes& more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
}

void requirePublished(ErrorWord error) {
    REQUIRE(error <= KM_ERROR_OK && error >= KM_ERROR_UNKNOWN_ERROR);
}

class Session {
  public:
    Session(Input& input, uint8_t switches)
        : input_(input),
          transport_(kProfiles[switches % 4], levelOf(switches), configOf(switches)),
          device_(levelOf(switches)) {
        transport_.app_runs_out_of_memory = (switches & kAppRunsOutOfMemory) != 0;
        if ((switches & kUnconfigured) == 0) configure();
    }

    void step() {
        const uint8_t pick = input_.byte();
        failing_ = input_.byte();
        (this->*kSteps[pick % kSteps.size()])();
    }

  private:
    static keymaster_security_level_t levelOf(uint8_t switches) {
        return (switches & kStrongBox) != 0 ? KM_SECURITY_LEVEL_STRONGBOX
                                            : KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT;
    }
    static lumo::secureapp::DeviceConfig configOf(uint8_t switches) {
        lumo::secureapp::DeviceConfig config;
        config.rollback_resistance = (switches & kRollbackResistance) != 0;
        config.trusted_clock = (switches & kTrustedClock) != 0;
        config.user_presence = (switches & kUserPresence) != 0;
        config.test_attestation_keys = true;
        config.device_ids[KM_TAG_ATTESTATION_ID_BRAND] = {'b'};
        return config;
    }

    void configure() {
        keymaster_key_param_t params[] = {keymaster_param_int(KM_TAG_OS_VERSION, 110000),
                                          keymaster_param_int(KM_TAG_OS_PATCHLEVEL, 202012)};
        const keymaster_key_param_set_t set = {params, std::size(params)};
        REQUIRE(device_.configure(&set) == KM_ERROR_OK);
    }

    // A call of the library in which the allocation that the step asks for fails. The caller's
    // vectors are made before it.
    template <typename Work>
    ErrorWord call(Work work) {
        const FailingAllocation failing(failing_);
        const ErrorWord error = errorToWord(work());
        if (!failing.happened()) requirePublished(error);
        return error;
    }

    // ---- What a step reads ----

    Bytes data() { return input_.string<Bytes>(); }

    // One of the blobs so far, or bytes of the input.
    const Bytes& blob() {
        const uint8_t pick = input_.byte();
        if (pick == 0xFF || blobs_.empty()) {
            literal_ = data();
            return literal_;
        }
        return blobs_[pick % blobs_.size()];
    }

    uint64_t handle() {
        const uint8_t pick = input_.byte();
        if (pick == 0xFF || handles_.empty()) return input_.number(8);
        return handles_[pick % handles_.size()];
    }

    keymaster_key_blob_t keyOf(const Bytes& bytes) { return {bytes.data(), bytes.size()}; }

    void keep(const Outputs& out) {
        constexpr size_t kMaxBlobs = 8;
        Bytes bytes(out.key.key_material, out.key.key_material + out.key.key_material_size);
        if (blobs_.size() == kMaxBlobs) blobs_.erase(blobs_.begin());
        blobs_.push_back(std::move(bytes));
    }

    static void requireNoKey(Outputs& out) {
        REQUIRE(out.characteristics.sw_enforced.params == nullptr);
        forgetLengths(out);
    }
    // Where there was no memory for an output, its length may stay.
    static void forgetLengths(Outputs& out) {
        if (out.key.key_material == nullptr) out.key.key_material_size = 0;
        if (out.data.data == nullptr) out.data.data_length = 0;
    }

    // ---- Keys ----

    void generate() {
        const uint8_t usual = input_.byte();
        InputParams params(input_);
        addUsualKey(usual, params);
        if (isRsa(params)) return;  // takes too long; an import makes one
        Outputs out;
        const ErrorWord error = call(
            [&] { return device_.generate_key(params.get(), &out.key, &out.characteristics); });
        if (error != KM_ERROR_OK) return requireNoKey(out);
        REQUIRE(out.hasCharacteristics());
        keep(out);
    }

    void import() {
        const uint8_t usual = input_.byte();
        const auto format = static_cast<keymaster_key_format_t>(input_.byte() % 4);
        const Bytes literal = data();
        InputParams params(input_);
        Bytes key = addUsualKey(usual, params);
        if (!literal.empty() || key.empty()) key = literal;
        const auto exact = exactCopy(key);
        const keymaster_blob_t material = {exact.get(), key.size()};
        Outputs out;
        const ErrorWord error = call([&] {
            return device_.import_key(params.get(), format, &material, &out.key,
                                      &out.characteristics);
        });
        if (error != KM_ERROR_OK) return requireNoKey(out);
        REQUIRE(out.hasCharacteristics());
        keep(out);
    }

    void importWrapped() {
        const Bytes wrapping = blob();
        Bytes wrapped = data();
        if (wrapped.empty()) wrapped = fromHex(lumo::test::kWrappedKey);
        Bytes masking = data();
        if (masking.empty()) {
            for (unsigned i = 0; i < 32; ++i) masking.push_back(static_cast<uint8_t>(0xE0 + i));
        }
        InputParams params(input_);
        Outputs out;
        Bytes wrapping_copy = wrapping;
        const ErrorWord error = call([&] {
            return device_.import_wrapped_key(params.get(), 7, 8, std::move(wrapped),
                                              std::move(wrapping_copy), std::move(masking),
                                              &out.key, &out.characteristics);
        });
        if (error != KM_ERROR_OK) return requireNoKey(out);
        keep(out);
    }

    void characteristics() {
        const Bytes key = blob();
        const Bytes client_id = data();
        const Bytes app_data = data();
        const keymaster_key_blob_t view = keyOf(key);
        const keymaster_blob_t id = blobOf(client_id);
        const keymaster_blob_t more = blobOf(app_data);
        Outputs out;
        const ErrorWord error = call([&] {
            return device_.get_key_characteristics(&view, &id, &more, &out.characteristics);
        });
        REQUIRE(out.hasCharacteristics() == (error == KM_ERROR_OK));
    }

    void exportKey() {
        const Bytes key = blob();
        const auto format = static_cast<keymaster_key_format_t>(input_.byte() % 4);
        const Bytes client_id = data();
        const Bytes app_data = data();
        const keymaster_key_blob_t view = keyOf(key);
        const keymaster_blob_t id = blobOf(client_id);
        const keymaster_blob_t more = blobOf(app_data);
        Outputs out;
        const ErrorWord error =
            call([&] { return device_.export_key(format, &view, &id, &more, &out.data); });
        REQUIRE((out.data.data != nullptr) == (error == KM_ERROR_OK));
        if (error != KM_ERROR_OK) forgetLengths(out);
    }

    void upgrade() {
        const Bytes key = blob();
        InputParams params(input_);
        const keymaster_key_blob_t view = keyOf(key);
        Outputs out;
        const ErrorWord error =
            call([&] { return device_.upgrade_key(&view, params.get(), &out.key); });
        if (error != KM_ERROR_OK) return requireNoKey(out);
        if (out.key.key_material_size != 0) keep(out);
    }

    void attest() {
        const Bytes key = blob();
        const uint8_t usual = input_.byte();
        InputParams params(input_);
        static const uint8_t kChallenge[] = {'c'};
        if ((usual & 1) != 0) {
            params.add(keymaster_param_blob(KM_TAG_ATTESTATION_CHALLENGE, kChallenge, 1));
            params.add(keymaster_param_blob(KM_TAG_ATTESTATION_APPLICATION_ID, kChallenge, 1));
        }
        const keymaster_key_blob_t view = keyOf(key);
        const keymaster_key_param_set_t* set = params.get();
        const bool by_device = std::any_of(set->params, set->params + set->length, [](auto& each) {
            // A false boolean counts as absent.
            return each.tag == KM_TAG_DEVICE_UNIQUE_ATTESTATION && each.boolean;
        });
        Outputs out;
        const ErrorWord error = call([&] { return device_.attest_key(&view, set, &out.chain); });
        // The device's own key is certified by the root, the others by a batch's.
        if (error == KM_ERROR_OK) REQUIRE(out.chain.entry_count == (by_device ? 2u : 3u));
    }

    void remove() {
        const Bytes key = blob();
        const keymaster_key_blob_t view = keyOf(key);
        if (key.size() != 64) call([&] { return device_.delete_key(&view); });
    }

    // ---- Operations ----

    void begin() {
        const auto purpose = static_cast<keymaster_purpose_t>(input_.byte() % 4);
        const Bytes key = blob();
        InputParams params(input_);
        const keymaster_key_blob_t view = keyOf(key);
        Outputs out;
        const ErrorWord error = call([&] {
            return device_.begin_operation(purpose, &view, params.get(), &out.params, &out.handle);
        });
        if (error == KM_ERROR_OK) handles_.push_back(out.handle);
    }

    void update() {
        const uint64_t operation = handle();
        const Bytes bytes = data();
        InputParams params(input_);
        const keymaster_blob_t view = blobOf(bytes);
        Outputs out;
        const ErrorWord error = call([&] {
            return device_.update_operation(operation, params.get(), &view, &out.consumed,
                                            &out.params, &out.data);
        });
        if (error == KM_ERROR_OK) REQUIRE(out.consumed <= bytes.size());
        if (error != KM_ERROR_OK) forgetLengths(out);
    }

    void finish() {
        const uint64_t operation = handle();
        const Bytes bytes = data();
        const Bytes signature = data();
        InputParams params(input_);
        const keymaster_blob_t view = blobOf(bytes);
        const keymaster_blob_t signature_view = blobOf(signature);
        Outputs out;
        const ErrorWord error = call([&] {
            return device_.finish_operation(operation, params.get(), &view, &signature_view,
                                            &out.params, &out.data);
        });
        if (error != KM_ERROR_OK) forgetLengths(out);
    }

    void abort() {
        const uint64_t operation = handle();
        call([&] { return device_.abort_operation(operation); });
    }

    struct Result {
        ErrorWord error = KM_ERROR_OK;
        Bytes output;
        Bytes nonce;
    };

    // Begin, updates from half of the bytes on and finish. `nonce` is empty where the application
    // is to choose it.
    Result operate(keymaster_purpose_t purpose, const Bytes& key, InputParams& params,
                   const Bytes& bytes, const Bytes& signature) {
        Result result;
        const keymaster_key_blob_t view = keyOf(key);
        uint64_t operation = 0;
        {
            Outputs begun;
            result.error = call([&] {
                return device_.begin_operation(purpose, &view, params.get(), &begun.params,
                                               &begun.handle);
            });
            if (result.error != KM_ERROR_OK) return result;
            operation = begun.handle;
            if (begun.params.length == 1) result.nonce = bytesOf(begun.params.params[0].blob);
        }
        Bytes rest = bytes;
        size_t offered = bytes.size() / 2;
        do {
            const Bytes part(rest.begin(), rest.begin() + static_cast<ptrdiff_t>(offered));
            const keymaster_blob_t input = blobOf(part);
            Outputs updated;
            result.error = call([&] {
                return device_.update_operation(operation, nullptr, &input, &updated.consumed,
                                                &updated.params, &updated.data);
            });
            if (result.error != KM_ERROR_OK) return abandon(operation, result, updated);
            append(result.output, bytesOf(updated.data));
            rest.erase(rest.begin(), rest.begin() + static_cast<ptrdiff_t>(updated.consumed));
            offered = rest.size();
            // Over records finish sends no more than this either.
        } while (offered > keymasterdevice::kMaxInputBytes);
        const keymaster_blob_t last = blobOf(rest);
        const keymaster_blob_t signed_with = blobOf(signature);
        Outputs finished;
        result.error = call([&] {
            return device_.finish_operation(operation, nullptr, &last, &signed_with,
                                            &finished.params, &finished.data);
        });
        if (result.error != KM_ERROR_OK) return abandon(operation, result, finished);
        append(result.output, bytesOf(finished.data));
        return result;
    }

    Result abandon(uint64_t operation, const Result& result, Outputs& out) {
        forgetLengths(out);
        failing_ = 0;
        static_cast<void>(device_.abort_operation(operation));
        return result;
    }

    void signAndVerify() {
        const Bytes key = blob();
        const Bytes message = data();
        InputParams signing(input_);
        const Result made = operate(KM_PURPOSE_SIGN, key, signing, message, {});
        if (made.error != KM_ERROR_OK) return;
        failing_ = 0;
        const uint8_t changed_bit = input_.byte();
        InputParams verifying(input_);
        Result checked = operate(KM_PURPOSE_VERIFY, key, verifying, message, made.output);
        // The input may ask for another digest; only a signature that verifies is then changed.
        if (checked.error != KM_ERROR_OK || made.output.empty()) return;
        Bytes changed = made.output;
        changed[changed_bit % changed.size()] ^= 1;
        checked = operate(KM_PURPOSE_VERIFY, key, verifying, message, changed);
        REQUIRE(checked.error != KM_ERROR_OK);
    }

    void encryptAndDecrypt() {
        const Bytes key = blob();
        const Bytes message = data();
        InputParams params(input_);
        const Result made = operate(KM_PURPOSE_ENCRYPT, key, params, message, {});
        if (made.error != KM_ERROR_OK) return;
        failing_ = 0;
        if (!made.nonce.empty()) {
            params.add(keymaster_param_blob(KM_TAG_NONCE, made.nonce.data(), made.nonce.size()));
        }
        const Result back = operate(KM_PURPOSE_DECRYPT, key, params, made.output, {});
        if (back.error != KM_ERROR_OK) return;
        // Raw RSA gives its numbers at full width.
        const bool padded = back.output.size() == 256 && message.size() < 256;
        REQUIRE(padded || back.output == message);
    }

    // ---- The device ----

    void agreeOnHmacKey() {
        Outputs out;
        if (call([&] { return device_.get_hmac_sharing_parameters(&out.hmac); }) != KM_ERROR_OK) {
            return;
        }
        std::vector<hmac_sharing_params_t> shares(input_.byte() % 4, out.hmac);
        for (size_t i = 1; i < shares.size(); ++i) shares[i].nonce[0] = input_.byte();
        call([&] { return device_.compute_shared_hmac(std::move(shares), out.check); });
        call([&] { return device_.verifyAuthorization(input_.byte(), &out.token); });
    }

    void setState() {
        const uint8_t pick = input_.byte();
        InputParams params(input_);
        bool supported = false;
        switch (pick % 9) {
            case 0:
                call([&] { return device_.configure(params.get()); });
                break;
            case 1:
                call([&] { return device_.set_early_boot_ended(); });
                break;
            case 2:
                call([&] { return device_.set_device_locked((pick & 0x80) != 0); });
                break;
            case 3:
                call([&] { return device_.destroy_device_ids(); });
                break;
            case 4:
                call([&] { return device_.delete_all_keys(); });
                break;
            case 5:
                call([&] { return device_.get_date_support(&supported); });
                break;
            case 6:
                transport_.app.confirmPresence();
                break;
            case 7:
                transport_.own.broken = !transport_.own.broken;
                break;
            default:
                transport_.clock.advance(uint64_t{pick} * 100);
        }
    }

    void endClient() {
        transport_.app.endClient(0);
        handles_.clear();
    }

    static constexpr std::array kSteps = {
        &Session::generate,       &Session::import,
        &Session::importWrapped,  &Session::characteristics,
        &Session::exportKey,      &Session::upgrade,
        &Session::attest,         &Session::remove,
        &Session::begin,          &Session::update,
        &Session::finish,         &Session::abort,
        &Session::signAndVerify,  &Session::encryptAndDecrypt,
        &Session::agreeOnHmacKey, &Session::setState,
        &Session::endClient,
    };

    Input& input_;
    AppTransport transport_;
    KeymasterHalDevice device_;
    uint32_t failing_ = 0;
    std::vector<Bytes> blobs_;
    Bytes literal_;
    std::vector<uint64_t> handles_;
};

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr size_t kMaxSteps = 32;
    const lumo::fuzz::QuietLog log;
    Input input(data, size);
    Session session(input, input.byte());
    for (size_t i = 0; i < kMaxSteps && input.size() != 0; ++i) session.step();
    return 0;
}
