// The service's conversions of key parameters, and of dates in properties.
//
// Input: a byte of switches, then HIDL parameters, then an auth token and a text. Beyond not
// crashing: a parameter of a known type comes back the same from both conversions, without a copy
// of its bytes; the token is the last parameter, with the client's fields at their places; a date
// is read as the number that its digits say.

#include <cstring>
#include <string>

#include "Allocations.h"
#include "AuthTokenParams.h"
#include "InputParams.h"
#include "KmParamSet.h"
#include "PlatformVersion.h"
#include "QuietLog.h"

namespace {

using android::hardware::hidl_vec;
using android::hardware::keymaster::V4_0::HardwareAuthToken;
using android::hardware::keymaster::V4_0::KeyParameter;
using lumo::fuzz::Input;
using lumo::fuzz::InputParams;
using lumo::fuzz::touch;
using Bytes = std::vector<uint8_t>;

constexpr size_t kTokenBytes = 69;
constexpr size_t kMacAt = 37;

// As a client's message holds it: a boolean may be any byte.
KeyParameter hidlParam(const keymaster_key_param_t& param, uint8_t boolean) {
    KeyParameter result;
    result.tag = static_cast<android::hardware::keymaster::V4_0::Tag>(param.tag);
    switch (keymaster_tag_get_type(param.tag)) {
        case KM_BOOL:
            std::memcpy(&result.f, &boolean, sizeof(boolean));
            break;
        case KM_BIGNUM:
        case KM_BYTES:
            if (param.blob.data != nullptr) {
                result.blob.setToExternal(const_cast<uint8_t*>(param.blob.data),
                                          param.blob.data_length);
            }
            break;
        default:
            result.f.longInteger = param.long_integer;
    }
    return result;
}

void requireSame(const KeyParameter& before, const keymaster_key_param_t& between,
                 const KeyParameter& after) {
    const auto tag = static_cast<keymaster_tag_t>(before.tag);
    if (between.tag == KM_TAG_INVALID) {
        REQUIRE(after.tag == static_cast<android::hardware::keymaster::V4_0::Tag>(between.tag));
        return;
    }
    REQUIRE(between.tag == tag && after.tag == before.tag);
    switch (keymaster_tag_get_type(tag)) {
        case KM_ULONG:
        case KM_ULONG_REP:
        case KM_DATE:
            REQUIRE(after.f.longInteger == before.f.longInteger);
            break;
        case KM_BOOL:
            REQUIRE(between.boolean);
            break;
        case KM_BIGNUM:
        case KM_BYTES:
            REQUIRE(after.blob.size() == before.blob.size());
            REQUIRE(after.blob.size() == 0 || after.blob.data() == before.blob.data());
            touch(after.blob.data(), after.blob.size());
            break;
        default:
            REQUIRE(after.f.integer == before.f.integer);
    }
}

void bothWays(const hidl_vec<KeyParameter>& params) {
    const keymaster::V4_0::KmParamSet set(params);
    REQUIRE(set.length == params.size());
    // Converting back may rewrite tags of the set, so the comparison is with those before.
    const std::vector<keymaster_key_param_t> between(set.params, set.params + set.length);
    const hidl_vec<KeyParameter> again = keymaster::V4_0::kmParamSet2Hidl(set);
    REQUIRE(again.size() == params.size());
    for (size_t i = 0; i < again.size(); ++i) requireSame(params[i], between[i], again[i]);
}

// Of a set as a secure application answers it: tags of any type.
void fromAnswer(const InputParams& params) {
    keymaster_key_param_set_t set = *params.get();
    std::vector<keymaster_key_param_t> copy(set.params, set.params + set.length);
    for (keymaster_key_param_t& param : copy) {
        if (keymaster_tag_get_type(param.tag) == KM_BYTES && param.blob.data == nullptr) {
            param.blob.data_length = 0;
        }
    }
    set.params = copy.data();
    const hidl_vec<KeyParameter> result = keymaster::V4_0::kmParamSet2Hidl(set);
    REQUIRE(result.size() == copy.size());
    for (size_t i = 0; i < result.size(); ++i) {
        touch(result[i].blob.data(), result[i].blob.size());
    }
}

void withToken(const hidl_vec<KeyParameter>& params, const HardwareAuthToken& token,
               uint32_t failing) {
    const lumo::fuzz::FailingAllocation failed(failing);
    try {
        const keymaster::V4_0::AuthTokenParams with(params, token);
        const lumo::fuzz::AllocationsSucceed always;
        if (!with.valid()) {
            REQUIRE(failed.happened());
            return;
        }
        const keymaster_key_param_set_t& set = *with.get();
        REQUIRE(set.length == params.size() + 1);
        const keymaster_key_param_t& last = set.params[set.length - 1];
        REQUIRE(last.tag == KM_TAG_AUTH_TOKEN && last.blob.data_length == kTokenBytes);
        REQUIRE(std::memcmp(last.blob.data + 1, &token.challenge, sizeof(token.challenge)) == 0);
        const size_t mac = std::min<size_t>(token.mac.size(), kTokenBytes - kMacAt);
        REQUIRE(mac == 0 || std::memcmp(last.blob.data + kMacAt, token.mac.data(), mac) == 0);
    } catch (const std::bad_alloc&) {
        REQUIRE(failed.happened());
    }
}

void date(const Bytes& bytes) {
    const std::string text(bytes.begin(), bytes.end());
    const uint32_t level = keymaster::V4_0::GetPatchlevel(text.c_str());
    if (level == 0) return;
    char again[16];
    std::snprintf(again, sizeof(again), "%04u-%02u-", level / 100, level % 100);
    REQUIRE(std::strncmp(text.c_str(), again, std::strlen(again)) == 0);
    REQUIRE(std::strlen(text.c_str()) == std::strlen("YYYY-MM-DD"));
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const lumo::fuzz::QuietLog log;
    Input input(data, size);
    const uint32_t failing = input.byte();
    const uint8_t boolean = input.byte();
    const InputParams params(input);
    std::vector<KeyParameter> list;
    for (size_t i = 0; i < params.size(); ++i) list.push_back(hidlParam(params[i], boolean));
    const hidl_vec<KeyParameter> hidl(list);
    bothWays(hidl);
    fromAnswer(params);
    HardwareAuthToken token;
    token.challenge = input.number(8);
    token.userId = input.number(8);
    token.authenticatorId = input.number(8);
    token.timestamp = input.number(8);
    token.mac = input.take<Bytes>(input.byte() % 48);
    withToken(hidl, token, failing);
    date(input.take<Bytes>(input.size()));
    return 0;
}
