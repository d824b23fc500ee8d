#include "Vocabulary.h"

#include <errno.h>
#include <stdlib.h>
#include <strings.h>

#include <algorithm>
#include <cctype>
#include <vector>

namespace lumo::cli {

namespace {

using namespace km::V4_0;

struct Word {
    const char* word;
    uint32_t value;
};

struct Vocabulary {
    Tag tag;
    std::string (*name)(uint32_t value);
    std::vector<Word> words;
};

template <typename Enum>
std::string nameOf(uint32_t value) {
    return toString(Enum{value});
}

// ANY has all bits set, so the mask is not taken apart where it is that.
std::string authenticatorNames(uint32_t bits) {
    std::string names;
    if (bits == 0 || bits == static_cast<uint32_t>(HardwareAuthenticatorType::ANY)) {
        return toString(HardwareAuthenticatorType{bits});
    }
    for (uint32_t bit = 1; bit != 0; bit <<= 1) {
        if ((bits & bit) == 0) continue;
        names += (names.empty() ? "" : "+") + toString(HardwareAuthenticatorType{bit});
    }
    return names;
}

template <typename Enum>
constexpr uint32_t number(Enum value) {
    return static_cast<uint32_t>(value);
}

const std::vector<Vocabulary>& vocabularies() {
    static const std::vector<Vocabulary> all = {
        {Tag::ALGORITHM,
         nameOf<Algorithm>,
         {{"rsa", number(Algorithm::RSA)},
          {"ec", number(Algorithm::EC)},
          {"aes", number(Algorithm::AES)},
          {"3des", number(Algorithm::TRIPLE_DES)},
          {"hmac", number(Algorithm::HMAC)}}},
        {Tag::PURPOSE,
         nameOf<KeyPurpose>,
         {{"encrypt", number(KeyPurpose::ENCRYPT)},
          {"decrypt", number(KeyPurpose::DECRYPT)},
          {"sign", number(KeyPurpose::SIGN)},
          {"verify", number(KeyPurpose::VERIFY)},
          {"wrap", number(KeyPurpose::WRAP_KEY)}}},
        {Tag::BLOCK_MODE,
         nameOf<BlockMode>,
         {{"ecb", number(BlockMode::ECB)},
          {"cbc", number(BlockMode::CBC)},
          {"ctr", number(BlockMode::CTR)},
          {"gcm", number(BlockMode::GCM)}}},
        {Tag::DIGEST,
         nameOf<Digest>,
         {{"none", number(Digest::NONE)},
          {"md5", number(Digest::MD5)},
          {"sha1", number(Digest::SHA1)},
          {"sha224", number(Digest::SHA_2_224)},
          {"sha256", number(Digest::SHA_2_256)},
          {"sha384", number(Digest::SHA_2_384)},
          {"sha512", number(Digest::SHA_2_512)}}},
        {Tag::PADDING,
         nameOf<PaddingMode>,
         {{"none", number(PaddingMode::NONE)},
          {"oaep", number(PaddingMode::RSA_OAEP)},
          {"pss", number(PaddingMode::RSA_PSS)},
          {"pkcs1", number(PaddingMode::RSA_PKCS1_1_5_ENCRYPT)},
          {"pkcs1-sign", number(PaddingMode::RSA_PKCS1_1_5_SIGN)},
          {"pkcs7", number(PaddingMode::PKCS7)}}},
        {Tag::EC_CURVE,
         nameOf<EcCurve>,
         {{"p224", number(EcCurve::P_224)},
          {"p256", number(EcCurve::P_256)},
          {"p384", number(EcCurve::P_384)},
          {"p521", number(EcCurve::P_521)}}},
        {Tag::BLOB_USAGE_REQUIREMENTS,
         nameOf<KeyBlobUsageRequirements>,
         {{"standalone", number(KeyBlobUsageRequirements::STANDALONE)},
          {"file-system", number(KeyBlobUsageRequirements::REQUIRES_FILE_SYSTEM)}}},
        {Tag::HARDWARE_TYPE,
         nameOf<SecurityLevel>,
         {{"software", number(SecurityLevel::SOFTWARE)},
          {"tee", number(SecurityLevel::TRUSTED_ENVIRONMENT)},
          {"strongbox", number(SecurityLevel::STRONGBOX)}}},
        {Tag::USER_AUTH_TYPE,
         authenticatorNames,
         {{"none", number(HardwareAuthenticatorType::NONE)},
          {"password", number(HardwareAuthenticatorType::PASSWORD)},
          {"fingerprint", number(HardwareAuthenticatorType::FINGERPRINT)},
          {"any", number(HardwareAuthenticatorType::ANY)}}},
        {Tag::ORIGIN, nameOf<KeyOrigin>, {}},
    };
    return all;
}

// Tags of keys that were made before the interface: its enumeration no longer has their names.
struct OlderTag {
    Tag tag;
    const char* name;
};
constexpr OlderTag kOlderTags[] = {
    {Tag{0x700001F4}, "ALL_USERS"},
    {Tag{0x70000258}, "ALL_APPLICATIONS"},
    {Tag{0x7000025A}, "EXPORTABLE"},
    {kRollbackResistant, "ROLLBACK_RESISTANT"},
};

const Vocabulary* vocabularyOf(Tag tag) {
    for (const Vocabulary& vocabulary : vocabularies()) {
        if (vocabulary.tag == tag) return &vocabulary;
    }
    return nullptr;
}

bool sameWord(const std::string& a, const std::string& b) {
    return strcasecmp(a.c_str(), b.c_str()) == 0;
}

std::optional<uint32_t> valueOfOneWord(const Vocabulary& vocabulary, const std::string& text) {
    for (const Word& word : vocabulary.words) {
        if (sameWord(text, word.word) || sameWord(text, vocabulary.name(word.value))) {
            return word.value;
        }
    }
    return std::nullopt;
}

}  // namespace

TagType typeOf(Tag tag) {
    constexpr uint32_t kTypeMask = 0xF0000000U;
    return TagType{static_cast<uint32_t>(tag) & kTypeMask};
}

bool isRepeatable(Tag tag) {
    const TagType type = typeOf(tag);
    return type == TagType::ENUM_REP || type == TagType::UINT_REP || type == TagType::ULONG_REP;
}

std::optional<Tag> tagNamed(const std::string& text) {
    if (const auto number = parseNumber(text, UINT32_MAX)) {
        return Tag{static_cast<uint32_t>(*number)};
    }
    constexpr char kPrefix[] = "KM_TAG_";
    constexpr size_t kPrefixLength = sizeof(kPrefix) - 1;
    const bool prefixed = sameWord(text.substr(0, kPrefixLength), kPrefix);
    const std::string name = prefixed ? text.substr(kPrefixLength) : text;
    for (const Tag tag : ::android::hardware::hidl_enum_range<Tag>()) {
        if (sameWord(name, toString(tag))) return tag;
    }
    for (const OlderTag& older : kOlderTags) {
        if (sameWord(name, older.name)) return older.tag;
    }
    return std::nullopt;
}

std::string nameOfTag(Tag tag) {
    for (const OlderTag& older : kOlderTags) {
        if (older.tag == tag) return older.name;
    }
    return toString(tag);
}

std::string wordsFor(Tag tag) {
    std::string words;
    const Vocabulary* vocabulary = vocabularyOf(tag);
    if (vocabulary == nullptr) return words;
    for (const Word& word : vocabulary->words) {
        words += (words.empty() ? "" : "|") + std::string(word.word);
    }
    return words;
}

std::optional<uint32_t> valueOfWord(Tag tag, const std::string& word) {
    const Vocabulary* vocabulary = vocabularyOf(tag);
    if (vocabulary == nullptr) return std::nullopt;
    if (tag != Tag::USER_AUTH_TYPE) return valueOfOneWord(*vocabulary, word);
    uint32_t bits = 0;
    for (size_t start = 0; start <= word.size();) {
        const size_t end = std::min(word.find('+', start), word.size());
        const auto bit = valueOfOneWord(*vocabulary, word.substr(start, end - start));
        if (!bit) return std::nullopt;
        bits |= *bit;
        start = end + 1;
    }
    return bits;
}

std::string nameOfValue(Tag tag, uint32_t value) {
    const Vocabulary* vocabulary = vocabularyOf(tag);
    if (vocabulary != nullptr) return vocabulary->name(value);
    return ::android::hardware::details::toHexString(value);
}

std::optional<uint64_t> parseNumber(const std::string& text, uint64_t maximum) {
    const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const char* digits = text.c_str() + (hex ? 2 : 0);
    // strtoull would take blanks and signs.
    if (hex ? !isxdigit(static_cast<unsigned char>(*digits))
            : !isdigit(static_cast<unsigned char>(*digits))) {
        return std::nullopt;
    }
    char* end = nullptr;
    errno = 0;
    const unsigned long long value = strtoull(digits, &end, hex ? 16 : 10);
    if (*end != '\0' || errno != 0 || value > maximum) return std::nullopt;
    return value;
}

}  // namespace lumo::cli
