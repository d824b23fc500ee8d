#include "secureapp/base/Words.h"

#include <algorithm>
#include <iterator>

#include "secureapp/base/Dates.h"
#include "secureapp/base/NewerNames.h"

namespace lumo::secureapp {
namespace {

struct TagRow {
    keymaster_tag_t tag;
    const char* name;
};
constexpr TagRow kTags[] = {
    {KM_TAG_PURPOSE, "PURPOSE"},
    {KM_TAG_ALGORITHM, "ALGORITHM"},
    {KM_TAG_KEY_SIZE, "KEY_SIZE"},
    {KM_TAG_BLOCK_MODE, "BLOCK_MODE"},
    {KM_TAG_DIGEST, "DIGEST"},
    {KM_TAG_PADDING, "PADDING"},
    {KM_TAG_CALLER_NONCE, "CALLER_NONCE"},
    {KM_TAG_MIN_MAC_LENGTH, "MIN_MAC_LENGTH"},
    {KM_TAG_KDF, "KDF"},
    {KM_TAG_EC_CURVE, "EC_CURVE"},
    {KM_TAG_RSA_PUBLIC_EXPONENT, "RSA_PUBLIC_EXPONENT"},
    {KM_TAG_ECIES_SINGLE_HASH_MODE, "ECIES_SINGLE_HASH_MODE"},
    {KM_TAG_INCLUDE_UNIQUE_ID, "INCLUDE_UNIQUE_ID"},
    {KM_TAG_BLOB_USAGE_REQUIREMENTS, "BLOB_USAGE_REQUIREMENTS"},
    {KM_TAG_BOOTLOADER_ONLY, "BOOTLOADER_ONLY"},
    {KM_TAG_ROLLBACK_RESISTANCE, "ROLLBACK_RESISTANCE"},
    {KM_TAG_EARLY_BOOT_ONLY, "EARLY_BOOT_ONLY"},
    {KM_TAG_ACTIVE_DATETIME, "ACTIVE_DATETIME"},
    {KM_TAG_ORIGINATION_EXPIRE_DATETIME, "ORIGINATION_EXPIRE_DATETIME"},
    {KM_TAG_USAGE_EXPIRE_DATETIME, "USAGE_EXPIRE_DATETIME"},
    {KM_TAG_MIN_SECONDS_BETWEEN_OPS, "MIN_SECONDS_BETWEEN_OPS"},
    {KM_TAG_MAX_USES_PER_BOOT, "MAX_USES_PER_BOOT"},
    {KM_TAG_ALL_USERS, "ALL_USERS"},
    {KM_TAG_USER_ID, "USER_ID"},
    {KM_TAG_USER_SECURE_ID, "USER_SECURE_ID"},
    {KM_TAG_NO_AUTH_REQUIRED, "NO_AUTH_REQUIRED"},
    {KM_TAG_USER_AUTH_TYPE, "USER_AUTH_TYPE"},
    {KM_TAG_AUTH_TIMEOUT, "AUTH_TIMEOUT"},
    {KM_TAG_ALLOW_WHILE_ON_BODY, "ALLOW_WHILE_ON_BODY"},
    {KM_TAG_TRUSTED_CONFIRMATION_REQUIRED, "TRUSTED_CONFIRMATION_REQUIRED"},
    {KM_TAG_UNLOCKED_DEVICE_REQUIRED, "UNLOCKED_DEVICE_REQUIRED"},
    {KM_TAG_ALL_APPLICATIONS, "ALL_APPLICATIONS"},
    {KM_TAG_APPLICATION_ID, "APPLICATION_ID"},
    {KM_TAG_EXPORTABLE, "EXPORTABLE"},
    {KM_TAG_APPLICATION_DATA, "APPLICATION_DATA"},
    {KM_TAG_CREATION_DATETIME, "CREATION_DATETIME"},
    {KM_TAG_ORIGIN, "ORIGIN"},
    {KM_TAG_ROLLBACK_RESISTANT, "ROLLBACK_RESISTANT"},
    {KM_TAG_ROOT_OF_TRUST, "ROOT_OF_TRUST"},
    {KM_TAG_OS_VERSION, "OS_VERSION"},
    {KM_TAG_OS_PATCHLEVEL, "OS_PATCHLEVEL"},
    {KM_TAG_UNIQUE_ID, "UNIQUE_ID"},
    {KM_TAG_ATTESTATION_CHALLENGE, "ATTESTATION_CHALLENGE"},
    {KM_TAG_ATTESTATION_APPLICATION_ID, "ATTESTATION_APPLICATION_ID"},
    {KM_TAG_ATTESTATION_ID_BRAND, "ATTESTATION_ID_BRAND"},
    {KM_TAG_ATTESTATION_ID_DEVICE, "ATTESTATION_ID_DEVICE"},
    {KM_TAG_ATTESTATION_ID_PRODUCT, "ATTESTATION_ID_PRODUCT"},
    {KM_TAG_ATTESTATION_ID_SERIAL, "ATTESTATION_ID_SERIAL"},
    {KM_TAG_ATTESTATION_ID_IMEI, "ATTESTATION_ID_IMEI"},
    {KM_TAG_ATTESTATION_ID_MEID, "ATTESTATION_ID_MEID"},
    {KM_TAG_ATTESTATION_ID_MANUFACTURER, "ATTESTATION_ID_MANUFACTURER"},
    {KM_TAG_ATTESTATION_ID_MODEL, "ATTESTATION_ID_MODEL"},
    {KM_TAG_DEVICE_UNIQUE_ATTESTATION, "DEVICE_UNIQUE_ATTESTATION"},
    {KM_TAG_IDENTITY_CREDENTIAL_KEY, "IDENTITY_CREDENTIAL_KEY"},
    {KM_TAG_ASSOCIATED_DATA, "ASSOCIATED_DATA"},
    {KM_TAG_NONCE, "NONCE"},
    {KM_TAG_AUTH_TOKEN, "AUTH_TOKEN"},
    {KM_TAG_MAC_LENGTH, "MAC_LENGTH"},
    {KM_TAG_RESET_SINCE_ID_ROTATION, "RESET_SINCE_ID_ROTATION"},
    {kTagHardwareType, "HARDWARE_TYPE"},
    {kTagTrustedUserPresenceRequired, "TRUSTED_USER_PRESENCE_REQUIRED"},
    {kTagVendorPatchlevel, "VENDOR_PATCHLEVEL"},
    {kTagBootPatchlevel, "BOOT_PATCHLEVEL"},
    {kTagStorageKey, "STORAGE_KEY"},
    {kTagConfirmationToken, "CONFIRMATION_TOKEN"},
};

struct WordRow {
    keymaster_tag_t tag;
    uint64_t value;
    const char* word;
};
constexpr WordRow kWords[] = {
    {KM_TAG_ALGORITHM, KM_ALGORITHM_RSA, "rsa"},
    {KM_TAG_ALGORITHM, KM_ALGORITHM_EC, "ec"},
    {KM_TAG_ALGORITHM, KM_ALGORITHM_AES, "aes"},
    {KM_TAG_ALGORITHM, KM_ALGORITHM_TRIPLE_DES, "3des"},
    {KM_TAG_ALGORITHM, KM_ALGORITHM_HMAC, "hmac"},
    {KM_TAG_PURPOSE, KM_PURPOSE_ENCRYPT, "encrypt"},
    {KM_TAG_PURPOSE, KM_PURPOSE_DECRYPT, "decrypt"},
    {KM_TAG_PURPOSE, KM_PURPOSE_SIGN, "sign"},
    {KM_TAG_PURPOSE, KM_PURPOSE_VERIFY, "verify"},
    {KM_TAG_PURPOSE, KM_PURPOSE_WRAP, "wrap"},
    {KM_TAG_BLOCK_MODE, KM_MODE_ECB, "ecb"},
    {KM_TAG_BLOCK_MODE, KM_MODE_CBC, "cbc"},
    {KM_TAG_BLOCK_MODE, KM_MODE_CTR, "ctr"},
    {KM_TAG_BLOCK_MODE, KM_MODE_GCM, "gcm"},
    {KM_TAG_PADDING, KM_PAD_NONE, "none"},
    {KM_TAG_PADDING, KM_PAD_RSA_OAEP, "oaep"},
    {KM_TAG_PADDING, KM_PAD_RSA_PSS, "pss"},
    {KM_TAG_PADDING, KM_PAD_RSA_PKCS1_1_5_ENCRYPT, "pkcs1"},
    {KM_TAG_PADDING, KM_PAD_RSA_PKCS1_1_5_SIGN, "pkcs1-sign"},
    {KM_TAG_PADDING, KM_PAD_PKCS7, "pkcs7"},
    {KM_TAG_DIGEST, KM_DIGEST_NONE, "none"},
    {KM_TAG_DIGEST, KM_DIGEST_MD5, "md5"},
    {KM_TAG_DIGEST, KM_DIGEST_SHA1, "sha1"},
    {KM_TAG_DIGEST, KM_DIGEST_SHA_2_224, "sha224"},
    {KM_TAG_DIGEST, KM_DIGEST_SHA_2_256, "sha256"},
    {KM_TAG_DIGEST, KM_DIGEST_SHA_2_384, "sha384"},
    {KM_TAG_DIGEST, KM_DIGEST_SHA_2_512, "sha512"},
    {KM_TAG_EC_CURVE, KM_EC_CURVE_P_224, "p224"},
    {KM_TAG_EC_CURVE, KM_EC_CURVE_P_256, "p256"},
    {KM_TAG_EC_CURVE, KM_EC_CURVE_P_384, "p384"},
    {KM_TAG_EC_CURVE, KM_EC_CURVE_P_521, "p521"},
    {kTagHardwareType, KM_SECURITY_LEVEL_SOFTWARE, "software"},
    {kTagHardwareType, KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT, "tee"},
    {kTagHardwareType, KM_SECURITY_LEVEL_STRONGBOX, "strongbox"},
};

std::string twoDigits(uint64_t number) {
    return std::to_string(100 + number % 100).substr(1);
}

}  // namespace

std::string tagName(keymaster_tag_t tag) {
    const auto* const row = std::find_if(std::begin(kTags), std::end(kTags),
                                         [tag](const TagRow& each) { return each.tag == tag; });
    return row == std::end(kTags) ? hexWord(static_cast<uint32_t>(tag)) : row->name;
}

std::string valueWord(keymaster_tag_t tag, uint64_t value) {
    const auto* const row =
        std::find_if(std::begin(kWords), std::end(kWords),
                     [&](const WordRow& each) { return each.tag == tag && each.value == value; });
    return row == std::end(kWords) ? std::to_string(value) : row->word;
}

std::string valueWords(keymaster_tag_t tag, const std::vector<uint64_t>& values) {
    if (values.empty()) return "nothing";
    std::string words;
    for (const uint64_t value : values) {
        words += (words.empty() ? "" : ", ") + valueWord(tag, value);
    }
    return words;
}

std::string algorithmWord(uint64_t algorithm) {
    return valueWord(KM_TAG_ALGORITHM, algorithm);
}

std::string levelWord(keymaster_security_level_t level) {
    return valueWord(kTagHardwareType, level);
}

std::string timeWords(uint64_t millis) {
    const uint64_t seconds = millis / 1000;
    const Date date = dateOf(seconds / kSecondsPerDay);
    return std::to_string(date.year) + "-" + twoDigits(date.month) + "-" + twoDigits(date.day) +
           "T" + twoDigits(seconds / 3600 % 24) + ":" + twoDigits(seconds / 60 % 60) + ":" +
           twoDigits(seconds % 60) + "Z";
}

std::string hexWord(uint64_t value) {
    std::string digits;
    do {
        digits.insert(digits.begin(), "0123456789abcdef"[value & 0xF]);
        value >>= 4;
    } while (value != 0);
    if (digits.size() > 8) digits.insert(0, 16 - digits.size(), '0');
    return "0x" + digits;
}

std::string startWords(ByteView bytes) {
    constexpr size_t kShown = 4;
    std::string words;
    for (const uint8_t byte : bytes.sub(0, kShown)) words += hexWord(0x100u + byte).substr(3);
    return bytes.size() > kShown ? words + "..." : words;
}

}  // namespace lumo::secureapp
