#include "Params.h"

#include <hardware/hw_auth_token.h>

#include <array>

namespace lumo::bench {
namespace {

constexpr uint64_t kNow = 1600000000000;  // ms since 1970
constexpr uint64_t kYear = 31536000000;

constexpr std::array<uint8_t, 32> kApplicationId = {'i', 'd'};
constexpr std::array<uint8_t, 40> kApplicationData = {'d', 'a', 't', 'a'};

keymaster_key_param_t enumParam(keymaster_tag_t tag, uint32_t value) {
    return keymaster_param_enum(tag, value);
}

template <size_t kSize>
keymaster_key_param_t bytesParam(keymaster_tag_t tag, const std::array<uint8_t, kSize>& bytes) {
    return keymaster_param_blob(tag, bytes.data(), bytes.size());
}

}  // namespace

std::vector<keymaster_key_param_t> coreParams(size_t count) {
    std::vector<keymaster_key_param_t> params = {
        enumParam(KM_TAG_PURPOSE, KM_PURPOSE_SIGN),
        enumParam(KM_TAG_PURPOSE, KM_PURPOSE_VERIFY),
        enumParam(KM_TAG_ALGORITHM, KM_ALGORITHM_EC),
        keymaster_param_int(KM_TAG_KEY_SIZE, 256),
        enumParam(KM_TAG_EC_CURVE, KM_EC_CURVE_P_256),
        enumParam(KM_TAG_DIGEST, KM_DIGEST_SHA_2_256),
        enumParam(KM_TAG_DIGEST, KM_DIGEST_SHA_2_512),
        enumParam(KM_TAG_DIGEST, KM_DIGEST_NONE),
        keymaster_param_bool(KM_TAG_NO_AUTH_REQUIRED),
        bytesParam(KM_TAG_APPLICATION_ID, kApplicationId),
        bytesParam(KM_TAG_APPLICATION_DATA, kApplicationData),
        keymaster_param_date(KM_TAG_CREATION_DATETIME, kNow),
        keymaster_param_date(KM_TAG_ACTIVE_DATETIME, kNow),
        keymaster_param_date(KM_TAG_ORIGINATION_EXPIRE_DATETIME, kNow + kYear),
        keymaster_param_date(KM_TAG_USAGE_EXPIRE_DATETIME, kNow + 2 * kYear),
    };
    if (count > params.size()) params[8] = enumParam(KM_TAG_USER_AUTH_TYPE, HW_AUTH_PASSWORD);
    for (uint64_t user = 1; params.size() < count; ++user) {
        params.push_back(keymaster_param_long(KM_TAG_USER_SECURE_ID, user));
    }
    params.resize(count);
    return params;
}

hidl_vec<KeyParameter> hidlParams(const std::vector<keymaster_key_param_t>& params) {
    using ::android::hardware::keymaster::V4_0::Tag;
    hidl_vec<KeyParameter> out(params.size());
    for (size_t i = 0; i < params.size(); ++i) {
        out[i].tag = static_cast<Tag>(params[i].tag);
        switch (keymaster_tag_get_type(params[i].tag)) {
            case KM_BYTES:
            case KM_BIGNUM:
                out[i].blob = std::vector<uint8_t>(
                    params[i].blob.data, params[i].blob.data + params[i].blob.data_length);
                break;
            case KM_BOOL:
                out[i].f.boolValue = true;
                break;
            case KM_DATE:
            case KM_ULONG:
            case KM_ULONG_REP:
                out[i].f.longInteger = params[i].long_integer;
                break;
            default:
                out[i].f.integer = params[i].integer;
        }
    }
    return out;
}

}  // namespace lumo::bench
