#include "Words.h"

#include <hardware/keymaster_defs.h>

#include <cstring>
#include <set>
#include <sstream>
#include <stdexcept>

#include "Hex.h"

namespace lumo::test {
namespace {

using ::android::hardware::keymaster::V4_0::Tag;

struct Word {
    const char* word;
    keymaster_tag_t tag;
    uint32_t value;
};

constexpr Word kValues[] = {
    {"encrypt", KM_TAG_PURPOSE, KM_PURPOSE_ENCRYPT},
    {"decrypt", KM_TAG_PURPOSE, KM_PURPOSE_DECRYPT},
    {"sign", KM_TAG_PURPOSE, KM_PURPOSE_SIGN},
    {"verify", KM_TAG_PURPOSE, KM_PURPOSE_VERIFY},
    {"wrap", KM_TAG_PURPOSE, KM_PURPOSE_WRAP},
    {"rsa", KM_TAG_ALGORITHM, KM_ALGORITHM_RSA},
    {"ec", KM_TAG_ALGORITHM, KM_ALGORITHM_EC},
    {"aes", KM_TAG_ALGORITHM, KM_ALGORITHM_AES},
    {"3des", KM_TAG_ALGORITHM, KM_ALGORITHM_TRIPLE_DES},
    {"hmac", KM_TAG_ALGORITHM, KM_ALGORITHM_HMAC},
    {"ecb", KM_TAG_BLOCK_MODE, KM_MODE_ECB},
    {"cbc", KM_TAG_BLOCK_MODE, KM_MODE_CBC},
    {"ctr", KM_TAG_BLOCK_MODE, KM_MODE_CTR},
    {"gcm", KM_TAG_BLOCK_MODE, KM_MODE_GCM},
    {"nodigest", KM_TAG_DIGEST, KM_DIGEST_NONE},
    {"md5", KM_TAG_DIGEST, KM_DIGEST_MD5},
    {"sha1", KM_TAG_DIGEST, KM_DIGEST_SHA1},
    {"sha224", KM_TAG_DIGEST, KM_DIGEST_SHA_2_224},
    {"sha256", KM_TAG_DIGEST, KM_DIGEST_SHA_2_256},
    {"sha384", KM_TAG_DIGEST, KM_DIGEST_SHA_2_384},
    {"sha512", KM_TAG_DIGEST, KM_DIGEST_SHA_2_512},
    {"nopad", KM_TAG_PADDING, KM_PAD_NONE},
    {"oaep", KM_TAG_PADDING, KM_PAD_RSA_OAEP},
    {"pss", KM_TAG_PADDING, KM_PAD_RSA_PSS},
    {"pkcs1crypt", KM_TAG_PADDING, KM_PAD_RSA_PKCS1_1_5_ENCRYPT},
    {"pkcs1sign", KM_TAG_PADDING, KM_PAD_RSA_PKCS1_1_5_SIGN},
    {"pkcs7", KM_TAG_PADDING, KM_PAD_PKCS7},
    {"p224", KM_TAG_EC_CURVE, KM_EC_CURVE_P_224},
    {"p256", KM_TAG_EC_CURVE, KM_EC_CURVE_P_256},
    {"p384", KM_TAG_EC_CURVE, KM_EC_CURVE_P_384},
    {"p521", KM_TAG_EC_CURVE, KM_EC_CURVE_P_521},
    {"standalone", KM_TAG_BLOB_USAGE_REQUIREMENTS, KM_BLOB_STANDALONE},
    {"generated", KM_TAG_ORIGIN, KM_ORIGIN_GENERATED},
    {"imported", KM_TAG_ORIGIN, KM_ORIGIN_IMPORTED},
    {"unwrapped", KM_TAG_ORIGIN, KM_ORIGIN_SECURELY_IMPORTED},
    {"callernonce", KM_TAG_CALLER_NONCE, 1},
    {"noauth", KM_TAG_NO_AUTH_REQUIRED, 1},
    {"onbody", KM_TAG_ALLOW_WHILE_ON_BODY, 1},
    {"uniqueid", KM_TAG_INCLUDE_UNIQUE_ID, 1},
    {"bootloader", KM_TAG_BOOTLOADER_ONLY, 1},
    {"rollback", KM_TAG_ROLLBACK_RESISTANCE, 1},
    {"oldrollback", KM_TAG_ROLLBACK_RESISTANT, 1},
    {"earlyboot", KM_TAG_EARLY_BOOT_ONLY, 1},
    {"presence", KM_TAG_TRUSTED_USER_PRESENCE_REQUIRED, 1},
    {"confirmed", KM_TAG_TRUSTED_CONFIRMATION_REQUIRED, 1},
    {"unlocked", KM_TAG_UNLOCKED_DEVICE_REQUIRED, 1},
    {"storage", KM_TAG_STORAGE_KEY, 1},
    {"credential", KM_TAG_IDENTITY_CREDENTIAL_KEY, 1},
    {"unique", KM_TAG_DEVICE_UNIQUE_ATTESTATION, 1},
};

constexpr Word kNames[] = {
    {"size", KM_TAG_KEY_SIZE, 0},
    {"e", KM_TAG_RSA_PUBLIC_EXPONENT, 0},
    {"minmac", KM_TAG_MIN_MAC_LENGTH, 0},
    {"mac", KM_TAG_MAC_LENGTH, 0},
    {"nonce", KM_TAG_NONCE, 0},
    {"aad", KM_TAG_ASSOCIATED_DATA, 0},
    {"confirm", KM_TAG_CONFIRMATION_TOKEN, 0},
    {"appid", KM_TAG_APPLICATION_ID, 0},
    {"appdata", KM_TAG_APPLICATION_DATA, 0},
    {"challenge", KM_TAG_ATTESTATION_CHALLENGE, 0},
    {"attestid", KM_TAG_ATTESTATION_APPLICATION_ID, 0},
    {"brand", KM_TAG_ATTESTATION_ID_BRAND, 0},
    {"imei", KM_TAG_ATTESTATION_ID_IMEI, 0},
    {"seconds", KM_TAG_MIN_SECONDS_BETWEEN_OPS, 0},
    {"uses", KM_TAG_MAX_USES_PER_BOOT, 0},
    {"user", KM_TAG_USER_ID, 0},
    {"sid", KM_TAG_USER_SECURE_ID, 0},
    {"authtype", KM_TAG_USER_AUTH_TYPE, 0},
    {"timeout", KM_TAG_AUTH_TIMEOUT, 0},
    {"active", KM_TAG_ACTIVE_DATETIME, 0},
    {"created", KM_TAG_CREATION_DATETIME, 0},
    {"expires", KM_TAG_USAGE_EXPIRE_DATETIME, 0},
    {"os", KM_TAG_OS_VERSION, 0},
    {"patch", KM_TAG_OS_PATCHLEVEL, 0},
    {"vendorpatch", KM_TAG_VENDOR_PATCHLEVEL, 0},
    {"bootpatch", KM_TAG_BOOT_PATCHLEVEL, 0},
    {"hardware", KM_TAG_HARDWARE_TYPE, 0},
    {"from", KM_TAG_ORIGIN, 0},
    {"curve", KM_TAG_EC_CURVE, 0},
    {"digest", KM_TAG_DIGEST, 0},
    {"mode", KM_TAG_BLOCK_MODE, 0},
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
    for (const Word& each : kValues) {
        if (word == each.word) return numberParam(each.tag, each.value);
    }
    const size_t colon = word.find(':');
    const std::string value = colon == std::string::npos ? "" : word.substr(colon + 1);
    for (const Word& each : kNames) {
        if (word.substr(0, colon) != each.word) continue;
        if (keymaster_tag_get_type(each.tag) != KM_BYTES) {
            return numberParam(each.tag, std::stoull(value));
        }
        KeyParameter param{};
        param.tag = static_cast<Tag>(each.tag);
        const bool hex = value.rfind("0x", 0) == 0;
        param.blob =
            hex ? fromHex(value.substr(2)) : std::vector<uint8_t>(value.begin(), value.end());
        return param;
    }
    throw std::invalid_argument("no such word: " + word);
}

std::string wordOf(const KeyParameter& param) {
    const auto tag = static_cast<keymaster_tag_t>(param.tag);
    const uint64_t number = isWide(tag) ? param.f.longInteger : param.f.integer;
    for (const Word& each : kValues) {
        if (each.tag == tag && each.value == number) return each.word;
    }
    for (const Word& each : kNames) {
        if (each.tag != tag) continue;
        const bool bytes = keymaster_tag_get_type(tag) == KM_BYTES;
        const std::string value =
            bytes ? "0x" + toHex(secureapp::ByteView(param.blob.data(), param.blob.size()))
                  : std::to_string(number);
        return std::string(each.word) + ":" + value;
    }
    std::ostringstream unnamed;
    unnamed << "tag-" << std::hex << static_cast<uint32_t>(param.tag);
    return unnamed.str();
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
