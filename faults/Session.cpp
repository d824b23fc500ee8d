#include "Session.h"

#include <cstdlib>
#include <map>
#include <memory>

#include "Allocations.h"
#include "Hex.h"
#include "Outputs.h"
#include "PlatformTags.h"
#include "SampleKeys.h"
#include "WrappedKeyVector.h"

namespace lumo::faults {
namespace {

using namespace keymasterdevice;
using test::fromHex;

using Params = std::vector<keymaster_key_param_t>;

keymaster_key_param_set_t setOf(Params& params) {
    return {params.data(), params.size()};
}

keymaster_blob_t blobOf(const Bytes& bytes) {
    return {bytes.data(), bytes.size()};
}

keymaster_key_blob_t keyOf(const Bytes& bytes) {
    return {bytes.data(), bytes.size()};
}

// An output that is released with its owner.
template <typename Output>
struct Owned {
    Owned() = default;
    ~Owned() { releaseOutput(&value); }
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;

    Output value = {};
};

Params operator+(Params params, const Params& more) {
    params.insert(params.end(), more.begin(), more.end());
    return params;
}

Params versions() {
    return {keymaster_param_int(KM_TAG_OS_VERSION, 110000),
            keymaster_param_int(KM_TAG_OS_PATCHLEVEL, 202012)};
}

Params common(keymaster_algorithm_t algorithm,
              std::initializer_list<keymaster_purpose_t> purposes) {
    Params params = {keymaster_param_enum(KM_TAG_ALGORITHM, algorithm),
                     keymaster_param_bool(KM_TAG_NO_AUTH_REQUIRED)};
    for (const keymaster_purpose_t purpose : purposes) {
        params.push_back(keymaster_param_enum(KM_TAG_PURPOSE, purpose));
    }
    return params;
}

Params digestSha256() {
    return {keymaster_param_enum(KM_TAG_DIGEST, KM_DIGEST_SHA_2_256)};
}

Params ecKey() {
    return common(KM_ALGORITHM_EC, {KM_PURPOSE_SIGN, KM_PURPOSE_VERIFY}) + digestSha256() +
           Params{keymaster_param_enum(KM_TAG_EC_CURVE, KM_EC_CURVE_P_256),
                  keymaster_param_int(KM_TAG_KEY_SIZE, 256)};
}

Params gcm() {
    return {keymaster_param_enum(KM_TAG_BLOCK_MODE, KM_MODE_GCM),
            keymaster_param_enum(KM_TAG_PADDING, KM_PAD_NONE)};
}

Params aesKey() {
    return common(KM_ALGORITHM_AES, {KM_PURPOSE_ENCRYPT, KM_PURPOSE_DECRYPT}) + gcm() +
           Params{keymaster_param_int(KM_TAG_KEY_SIZE, 128),
                  keymaster_param_int(KM_TAG_MIN_MAC_LENGTH, 128)};
}

Params oaep() {
    return digestSha256() + Params{keymaster_param_enum(KM_TAG_PADDING, KM_PAD_RSA_OAEP)};
}

const Bytes kData(100, 0x61);

// Of the sample keys, decoded once.
const Bytes& sample(const char* digits) {
    static std::map<const char*, Bytes> decoded;
    Bytes& bytes = decoded[digits];
    if (bytes.empty()) bytes = fromHex(digits);
    return bytes;
}

}  // namespace

Session::Session() : device_(KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT) {}

// Only what the device core allocates, and what stands below it, fails: not the caller's arguments.
template <typename Call>
int32_t Session::measured(Call call) {
    if (failing_allocation == 0) return call();
    failAllocation(failing_allocation);
    const int32_t result = call();
    allocation_failed = allocationFailed();
    return result;
}

bool Session::works() {
    hmac_sharing_params_t params;
    return device_.get_hmac_sharing_parameters(&params) == KM_ERROR_OK;
}

int32_t Session::generate(const Params& wanted, Bytes& key) {
    Params params = wanted;
    const keymaster_key_param_set_t set = setOf(params);
    Owned<keymaster_key_blob_t> blob;
    Owned<keymaster_key_characteristics_t> characteristics;
    const int32_t result =
        measured([&] { return device_.generate_key(&set, &blob.value, &characteristics.value); });
    if (result == KM_ERROR_OK) {
        key.assign(blob.value.key_material, blob.value.key_material + blob.value.key_material_size);
    }
    return result;
}

int32_t Session::import(const Params& wanted, keymaster_key_format_t format, const Bytes& data,
                        Bytes& key) {
    Params params = wanted;
    const keymaster_key_param_set_t set = setOf(params);
    const keymaster_blob_t input = blobOf(data);
    Owned<keymaster_key_blob_t> blob;
    Owned<keymaster_key_characteristics_t> characteristics;
    const int32_t result = measured([&] {
        return device_.import_key(&set, format, &input, &blob.value, &characteristics.value);
    });
    if (result == KM_ERROR_OK) {
        key.assign(blob.value.key_material, blob.value.key_material + blob.value.key_material_size);
    }
    return result;
}

int32_t Session::begin(keymaster_purpose_t purpose, const Bytes& key, const Params& wanted) {
    Params params = wanted;
    const keymaster_key_param_set_t set = setOf(params);
    const keymaster_key_blob_t blob = keyOf(key);
    Owned<keymaster_key_param_set_t> out_params;
    return measured(
        [&] { return device_.begin_operation(purpose, &blob, &set, &out_params.value, &handle_); });
}

int32_t Session::update(const Bytes& input) {
    const keymaster_blob_t data = blobOf(input);
    uint32_t consumed = 0;
    Owned<keymaster_key_param_set_t> out_params;
    Owned<keymaster_blob_t> output;
    return measured([&] {
        return device_.update_operation(handle_, nullptr, &data, &consumed, &out_params.value,
                                        &output.value);
    });
}

int32_t Session::finish(const Bytes& input, const Bytes& signature, Bytes& made) {
    const keymaster_blob_t data = blobOf(input);
    const keymaster_blob_t compared = blobOf(signature);
    Owned<keymaster_key_param_set_t> out_params;
    Owned<keymaster_blob_t> output;
    const int32_t result = measured([&] {
        return device_.finish_operation(handle_, nullptr, &data, &compared, &out_params.value,
                                        &output.value);
    });
    if (result == KM_ERROR_OK) {
        made.assign(output.value.data, output.value.data + output.value.data_length);
    }
    return result;
}

void Session::abort() {
    static_cast<void>(device_.abort_operation(handle_));  // it may have ended
}

std::vector<Session::Step> Session::steps() {
    const auto nothing = [] {};
    const auto end = [this] { abort(); };
    const auto begins = [this](keymaster_purpose_t purpose, Bytes Session::*key,
                               const Params& params) {
        return [=] { static_cast<void>(begin(purpose, this->*key, params)); };
    };
    const Params sealed = gcm() + Params{keymaster_param_int(KM_TAG_MAC_LENGTH, 128)};
    std::vector<Step> steps;
    const auto step = [&](const char* name, const std::function<int32_t()>& call,
                          const std::function<void()>& prepare = nullptr,
                          const std::function<void()>& finish = nullptr, int32_t wanted = 0) {
        steps.push_back(
            {name, prepare ? prepare : nothing, call, finish ? finish : nothing, wanted});
    };

    step("get_date_support", [this] {
        bool supported = false;
        return measured([&] { return device_.get_date_support(&supported); });
    });
    step("configure", [this] {
        Params params = versions();
        const keymaster_key_param_set_t set = setOf(params);
        return measured([&] { return device_.configure(&set); });
    });
    step("generate_key EC", [this] { return generate(ecKey(), ec_); });
    step("generate_key AES", [this] { return generate(aesKey(), aes_); });
    step("import_key EC",
         [this] { return import(ecKey(), KM_KEY_FORMAT_PKCS8, sample(test::kP256), imported_); });
    step("import_key RSA", [this] {
        return import(common(KM_ALGORITHM_RSA, {KM_PURPOSE_WRAP}) + oaep(), KM_KEY_FORMAT_PKCS8,
                      sample(test::kWrappingKey), wrapping_);
    });
    step("import_wrapped_key", [this] {
        Params params = oaep();
        const keymaster_key_param_set_t set = setOf(params);
        Owned<keymaster_key_blob_t> blob;
        Owned<keymaster_key_characteristics_t> characteristics;
        Bytes wrapped = sample(test::kWrappedKey);
        Bytes wrapping = wrapping_;
        Bytes mask;
        for (unsigned byte = 0xE0; byte <= 0xFF; ++byte) mask.push_back(static_cast<uint8_t>(byte));
        return measured([&] {
            return device_.import_wrapped_key(&set, 0, 0, std::move(wrapped), std::move(wrapping),
                                              std::move(mask), &blob.value, &characteristics.value);
        });
    });
    step("get_key_characteristics", [this] {
        const keymaster_key_blob_t blob = keyOf(ec_);
        Owned<keymaster_key_characteristics_t> characteristics;
        return measured([&] {
            return device_.get_key_characteristics(&blob, nullptr, nullptr, &characteristics.value);
        });
    });
    for (Bytes Session::*key : {&Session::ec_, &Session::wrapping_}) {
        step(key == &Session::ec_ ? "export_key EC" : "export_key RSA", [this, key] {
            const keymaster_key_blob_t blob = keyOf(this->*key);
            Owned<keymaster_blob_t> exported;
            return measured([&] {
                return device_.export_key(KM_KEY_FORMAT_X509, &blob, nullptr, nullptr,
                                          &exported.value);
            });
        });
    }
    step("upgrade_key", [this] {
        Params params = versions();
        const keymaster_key_param_set_t set = setOf(params);
        const keymaster_key_blob_t blob = keyOf(ec_);
        Owned<keymaster_key_blob_t> upgraded;
        return measured([&] { return device_.upgrade_key(&blob, &set, &upgraded.value); });
    });
    step("attest_key", [this] {
        Params params = {keymaster_param_blob(KM_TAG_ATTESTATION_CHALLENGE, kData.data(), 16),
                         keymaster_param_blob(KM_TAG_ATTESTATION_APPLICATION_ID, kData.data(), 16)};
        const keymaster_key_param_set_t set = setOf(params);
        const keymaster_key_blob_t blob = keyOf(ec_);
        keymaster_blob_t unused = {nullptr, 0};
        keymaster_cert_chain_t chain = {&unused, 1};
        const int32_t result = measured([&] { return device_.attest_key(&blob, &set, &chain); });
        if (chain.entries != &unused) releaseOutput(&chain);
        return result;
    });
    step(
        "begin_operation sign", [=] { return begin(KM_PURPOSE_SIGN, ec_, digestSha256()); },
        nullptr, end);
    step(
        "update_operation sign", [this] { return update(kData); },
        begins(KM_PURPOSE_SIGN, &Session::ec_, digestSha256()), end);
    step(
        "finish_operation sign", [this] { return finish(kData, {}, signature_); },
        begins(KM_PURPOSE_SIGN, &Session::ec_, digestSha256()), end);
    step(
        "finish_operation verify", [this] { return finish(kData, signature_, output_); },
        begins(KM_PURPOSE_VERIFY, &Session::ec_, digestSha256()), end);
    step(
        "begin_operation encrypt", [=] { return begin(KM_PURPOSE_ENCRYPT, aes_, sealed); }, nullptr,
        end);
    step(
        "update_operation encrypt", [this] { return update(kData); },
        begins(KM_PURPOSE_ENCRYPT, &Session::aes_, sealed), end);
    step(
        "finish_operation encrypt", [this] { return finish(kData, {}, output_); },
        begins(KM_PURPOSE_ENCRYPT, &Session::aes_, sealed), end);
    step(
        "abort_operation",
        [this] { return measured([&] { return device_.abort_operation(handle_); }); },
        begins(KM_PURPOSE_SIGN, &Session::ec_, digestSha256()), end);
    step("get_hmac_sharing_parameters", [this] {
        hmac_sharing_params_t params;
        return measured([&] { return device_.get_hmac_sharing_parameters(&params); });
    });
    const auto own = std::make_shared<hmac_sharing_params_t>();
    step(
        "compute_shared_hmac",
        [this, own] {
            Bytes check;
            std::vector<hmac_sharing_params_t> shares = {*own};
            return measured([&] { return device_.compute_shared_hmac(std::move(shares), check); });
        },
        [this, own] { static_cast<void>(device_.get_hmac_sharing_parameters(own.get())); });
    step("verifyAuthorization", [this] {
        verification_token_t token = {};
        return measured([&] { return device_.verifyAuthorization(7, &token); });
    });
    step("set_device_locked",
         [this] { return measured([&] { return device_.set_device_locked(false); }); });
    step("set_early_boot_ended",
         [this] { return measured([&] { return device_.set_early_boot_ended(); }); });
    step("delete_key", [this] {
        const keymaster_key_blob_t blob = keyOf(imported_);
        return measured([&] { return device_.delete_key(&blob); });
    });
    step("destroy_device_ids",
         [this] { return measured([&] { return device_.destroy_device_ids(); }); });
    // As the boot loader's hand-over would find it after the boot: refused.
    step(
        "SetRot",
        [this] {
            uint8_t root[32] = {};
            uint8_t state[4] = {};
            return measured([&] {
                return device_.SetRot(root, nullptr, true, state, KM_BOOT_STATE_GREEN, 110000,
                                      202012);
            });
        },
        nullptr, nullptr, KM_ERROR_ROOT_OF_TRUST_ALREADY_SET);
    step("delete_all_keys", [this] { return measured([&] { return device_.delete_all_keys(); }); });
    return steps;
}

}  // namespace lumo::faults
