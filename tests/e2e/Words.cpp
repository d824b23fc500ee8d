#include "Words.h"

#include <hardware/keymaster_defs.h>

#include <map>
#include <set>
#include <sstream>
#include <vector>

#include "Hex.h"

namespace lumo::test {
namespace {

using ::android::hardware::keymaster::V4_0::Tag;

// A tag that not every release has a KM_TAG_ name for.
template <typename HidlTag>
constexpr keymaster_tag_t record(HidlTag tag) {
    return static_cast<keymaster_tag_t>(tag);
}

struct Enumeration {
    keymaster_tag_t tag;
    std::map<std::string, uint32_t> values;
};

const std::vector<Enumeration> kEnumerations = {
    {KM_TAG_PURPOSE, {{"encrypt", 0}, {"decrypt", 1}, {"sign", 2}, {"verify", 3}, {"wrap", 5}}},
    {KM_TAG_ALGORITHM, {{"rsa", 1}, {"ec", 3}, {"aes", 32}, {"3des", 33}, {"hmac", 128}}},
    {KM_TAG_BLOCK_MODE, {{"ecb", 1}, {"cbc", 2}, {"ctr", 3}, {"gcm", 32}}},
    {KM_TAG_DIGEST,
     {{"nodigest", 0},
      {"md5", 1},
      {"sha1", 2},
      {"sha224", 3},
      {"sha256", 4},
      {"sha384", 5},
      {"sha512", 6}}},
    {KM_TAG_PADDING,
     {{"nopad", 1}, {"oaep", 2}, {"pss", 3}, {"pkcs1crypt", 4}, {"pkcs1sign", 5}, {"pkcs7", 64}}},
    {KM_TAG_EC_CURVE, {{"p224", 0}, {"p256", 1}, {"p384", 2}, {"p521", 3}}},
    {KM_TAG_BLOB_USAGE_REQUIREMENTS, {{"standalone", 0}}},
    {KM_TAG_ORIGIN, {{"generated", 0}, {"imported", 2}, {"unwrapped", 4}}},
};

// Booleans stand for themselves, others in front of their value.
const std::map<std::string, keymaster_tag_t> kNames = {
    {"aad", KM_TAG_ASSOCIATED_DATA},
    {"active", KM_TAG_ACTIVE_DATETIME},
    {"appdata", KM_TAG_APPLICATION_DATA},
    {"appid", KM_TAG_APPLICATION_ID},
    {"attestid", KM_TAG_ATTESTATION_APPLICATION_ID},
    {"authtype", KM_TAG_USER_AUTH_TYPE},
    {"bootloader", KM_TAG_BOOTLOADER_ONLY},
    {"bootpatch", record(Tag::BOOT_PATCHLEVEL)},
    {"brand", KM_TAG_ATTESTATION_ID_BRAND},
    {"callernonce", KM_TAG_CALLER_NONCE},
    {"challenge", KM_TAG_ATTESTATION_CHALLENGE},
    {"confirm", record(Tag::CONFIRMATION_TOKEN)},
    {"confirmed", KM_TAG_TRUSTED_CONFIRMATION_REQUIRED},
    {"created", KM_TAG_CREATION_DATETIME},
    {"credential", KM_TAG_IDENTITY_CREDENTIAL_KEY},
    {"curve", KM_TAG_EC_CURVE},
    {"digest", KM_TAG_DIGEST},
    {"e", KM_TAG_RSA_PUBLIC_EXPONENT},
    {"earlyboot", KM_TAG_EARLY_BOOT_ONLY},
    {"from", KM_TAG_ORIGIN},
    {"hardware", record(Tag::HARDWARE_TYPE)},
    {"imei", KM_TAG_ATTESTATION_ID_IMEI},
    {"mac", KM_TAG_MAC_LENGTH},
    {"minmac", KM_TAG_MIN_MAC_LENGTH},
    {"mode", KM_TAG_BLOCK_MODE},
    {"noauth", KM_TAG_NO_AUTH_REQUIRED},
    {"nonce", KM_TAG_NONCE},
    {"oldrollback", KM_TAG_ROLLBACK_RESISTANT},
    {"onbody", KM_TAG_ALLOW_WHILE_ON_BODY},
    {"os", KM_TAG_OS_VERSION},
    {"originateby", KM_TAG_ORIGINATION_EXPIRE_DATETIME},
    {"patch", KM_TAG_OS_PATCHLEVEL},
    {"presence", record(Tag::TRUSTED_USER_PRESENCE_REQUIRED)},
    {"rollback", KM_TAG_ROLLBACK_RESISTANCE},
    {"seconds", KM_TAG_MIN_SECONDS_BETWEEN_OPS},
    {"sid", KM_TAG_USER_SECURE_ID},
    {"size", KM_TAG_KEY_SIZE},
    {"storage", record(::android::hardware::keymaster::V4_1::Tag::STORAGE_KEY)},
    {"timeout", KM_TAG_AUTH_TIMEOUT},
    {"unique", KM_TAG_DEVICE_UNIQUE_ATTESTATION},
    {"uniqueid", KM_TAG_INCLUDE_UNIQUE_ID},
    {"unlocked", KM_TAG_UNLOCKED_DEVICE_REQUIRED},
    {"user", KM_TAG_USER_ID},
    {"useby", KM_TAG_USAGE_EXPIRE_DATETIME},
    {"uses", KM_TAG_MAX_USES_PER_BOOT},
    {"vendorpatch", record(Tag::VENDOR_PATCHLEVEL)},
};

bool isWide(keymaster_tag_t tag) {
    const keymaster_tag_type_t type = keymaster_tag_get_type(tag);
    return type == KM_ULONG || type == KM_ULONG_REP || type == KM_DATE;
}

KeyParameter numberParam(keymaster_tag_t tag, uint64_t value) {
    KeyParameter param{};
    param.tag = static_cast<Tag>(tag);
    if (isWide(tag)) {
        param.f.longInteger = value;
    } else {
        param.f.integer = static_cast<uint32_t>(value);
    }
    return param;
}

KeyParameter paramOf(const std::string& word) {
    for (const Enumeration& each : kEnumerations) {
        const auto value = each.values.find(word);
        if (value != each.values.end()) return numberParam(each.tag, value->second);
    }
    const size_t colon = word.find(':');
    const std::string value = colon == std::string::npos ? "1" : word.substr(colon + 1);
    const keymaster_tag_t tag = kNames.at(word.substr(0, colon));
    if (keymaster_tag_get_type(tag) != KM_BYTES) return numberParam(tag, std::stoull(value));
    KeyParameter param{};
    param.tag = static_cast<Tag>(tag);
    const bool hex = value.rfind("0x", 0) == 0;
    param.blob = hex ? fromHex(value.substr(2)) : std::vector<uint8_t>(value.begin(), value.end());
    return param;
}

std::string valueOf(const KeyParameter& param, keymaster_tag_t tag) {
    const keymaster_tag_type_t type = keymaster_tag_get_type(tag);
    if (type == KM_BOOL) return "";
    if (type == KM_BYTES) {
        return ":0x" + toHex(param.blob.data(), param.blob.size());
    }
    return ":" + std::to_string(isWide(tag) ? param.f.longInteger : param.f.integer);
}

std::string wordOf(const KeyParameter& param) {
    const auto tag = static_cast<keymaster_tag_t>(param.tag);
    for (const Enumeration& each : kEnumerations) {
        for (const auto& [word, value] : each.values) {
            if (each.tag == tag && value == param.f.integer) return word;
        }
    }
    for (const auto& [name, named] : kNames) {
        if (named == tag) return name + valueOf(param, tag);
    }
    return "tag-" + std::to_string(static_cast<uint32_t>(param.tag));
}

}  // namespace

hidl_vec<KeyParameter> params(const std::string& words) {
    std::vector<KeyParameter> list;
    std::istringstream in(words);
    for (std::string word; in >> word;) list.push_back(paramOf(word));
    return list;
}

std::string words(const hidl_vec<KeyParameter>& params) {
    std::multiset<std::string> sorted;
    for (const KeyParameter& param : params) sorted.insert(wordOf(param));
    std::string joined;
    for (const std::string& word : sorted) joined += (joined.empty() ? "" : " ") + word;
    return joined;
}

}  // namespace lumo::test
