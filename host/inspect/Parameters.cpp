#include "inspect/Parameters.h"

#include <android/hardware/keymaster/4.1/types.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <ctime>

namespace lumo::inspect {
namespace {

namespace km4 = ::android::hardware::keymaster::V4_0;
namespace km41 = ::android::hardware::keymaster::V4_1;
using km41::Tag;

constexpr uint32_t kTypeMask = 0xF0000000;

template <typename Enum>
std::string nameOfValue(uint64_t value) {
    const std::string name = toString(Enum{static_cast<uint32_t>(value)});
    return name.rfind("0x", 0) == 0 ? "unknown" : name;
}

// Tags of the wire that the platform's interface no longer has.
struct OlderTag {
    keymaster_tag_t tag;
    const char* name;
};
constexpr OlderTag kOlderTags[] = {
    {KM_TAG_KDF, "KDF"},
    {KM_TAG_ECIES_SINGLE_HASH_MODE, "ECIES_SINGLE_HASH_MODE"},
    {KM_TAG_ALL_USERS, "ALL_USERS"},
    {KM_TAG_ALL_APPLICATIONS, "ALL_APPLICATIONS"},
    {KM_TAG_EXPORTABLE, "EXPORTABLE"},
    {KM_TAG_ROLLBACK_RESISTANT, "ROLLBACK_RESISTANT"},
    {KM_TAG_AUTH_TOKEN, "AUTH_TOKEN"},
};

// The auth token's layout. The first three numbers are in host byte order, which is little-endian
// on every device; the last two are big-endian.
struct TokenPart {
    const char* name;
    size_t offset;
    size_t size;
    bool big_endian;
    Meaning meaning;
};
constexpr TokenPart kTokenParts[] = {
    {"version", 0, 1, false, Meaning::kValue},
    {"challenge", 1, 8, false, Meaning::kHandle},
    {"user id", 9, 8, false, Meaning::kValue},
    {"authenticator id", 17, 8, false, Meaning::kValue},
    {"authenticator type", 25, 4, true, Meaning::kValue},
    {"timestamp", 29, 8, true, Meaning::kTime},
    {"MAC", 37, 32, false, Meaning::kTokenMac},
};
constexpr size_t kTokenBytes = 69;

}  // namespace

ValueKind valueKindOf(uint32_t tag) {
    switch (static_cast<int32_t>(tag & kTypeMask)) {
        case KM_ENUM:
        case KM_ENUM_REP:
        case KM_UINT:
        case KM_UINT_REP:
            return ValueKind::kWord;
        case KM_ULONG:
        case KM_ULONG_REP:
        case KM_DATE:
            return ValueKind::kLong;
        case KM_BOOL:
            return ValueKind::kBool;
        case KM_BIGNUM:
        case KM_BYTES:
            return ValueKind::kBytes;
        default:
            return ValueKind::kUnknown;
    }
}

std::string tagName(uint32_t tag) {
    for (const OlderTag& older : kOlderTags) {
        if (static_cast<uint32_t>(older.tag) == tag) return older.name;
    }
    return toString(Tag{tag});
}

bool isPublishedTag(uint32_t tag) {
    return tagName(tag).rfind("0x", 0) != 0;
}

Meaning meaningOf(uint32_t tag) {
    switch (Tag{tag}) {
        case Tag::APPLICATION_ID:
        case Tag::APPLICATION_DATA:
            return Meaning::kApplication;
        case Tag::NONCE:
            return Meaning::kNonce;
        case Tag::CONFIRMATION_TOKEN:
            return Meaning::kTokenMac;
        case Tag::CREATION_DATETIME:
            return Meaning::kTime;
        default:
            return isPublishedTag(tag) || valueKindOf(tag) != ValueKind::kBytes ? Meaning::kValue
                                                                                : Meaning::kUnread;
    }
}

std::string explainNumber(uint32_t tag, uint64_t value) {
    switch (Tag{tag}) {
        case Tag::ALGORITHM:
            return nameOfValue<km4::Algorithm>(value);
        case Tag::PURPOSE:
            return nameOfValue<km4::KeyPurpose>(value);
        case Tag::BLOCK_MODE:
            return nameOfValue<km4::BlockMode>(value);
        case Tag::DIGEST:
            return nameOfValue<km4::Digest>(value);
        case Tag::PADDING:
            return nameOfValue<km4::PaddingMode>(value);
        case Tag::EC_CURVE:
            return nameOfValue<km4::EcCurve>(value);
        case Tag::BLOB_USAGE_REQUIREMENTS:
            return nameOfValue<km4::KeyBlobUsageRequirements>(value);
        case Tag::ORIGIN:
            return nameOfValue<km4::KeyOrigin>(value);
        case Tag::HARDWARE_TYPE:
            return nameOfValue<km4::SecurityLevel>(value);
        case Tag::USER_AUTH_TYPE:
            // Bits; ANY has all of them.
            return value == 3 ? "PASSWORD+FINGERPRINT"
                              : nameOfValue<km4::HardwareAuthenticatorType>(value);
        default:
            break;
    }
    return static_cast<int32_t>(tag & kTypeMask) == KM_DATE ? dateText(value) : "";
}

std::string numberText(uint32_t tag, uint64_t value) {
    if (static_cast<int32_t>(tag & kTypeMask) == KM_ULONG_REP) return idText(value);
    const std::string meaning = explainNumber(tag, value);
    return std::to_string(value) + (meaning.empty() ? "" : " (" + meaning + ")");
}

std::string dateText(uint64_t millis) {
    const auto seconds = static_cast<time_t>(millis / 1000);
    tm parts = {};
    char text[40];
    if (millis > INT64_MAX || ::gmtime_r(&seconds, &parts) == nullptr) return "no date";
    if (std::strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%SZ", &parts) == 0) return "no date";
    return text;
}

std::string idText(uint64_t id) {
    char text[24];
    std::snprintf(text, sizeof(text), "0x%016" PRIx64, id);
    return text;
}

std::string errorName(int32_t code) {
    return toString(km41::ErrorCode{code});
}

std::string countOfBytes(size_t count) {
    return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

const Hidden* hiddenIn(size_t offset, size_t size, const std::vector<Hidden>& hidden) {
    const auto found = std::find_if(hidden.begin(), hidden.end(), [&](const Hidden& part) {
        return part.offset < offset + size && offset < part.offset + part.size;
    });
    return found == hidden.end() ? nullptr : &*found;
}

std::string bytesText(ByteView bytes, size_t offset, const std::vector<Hidden>& hidden,
                      size_t most) {
    const std::string size = countOfBytes(bytes.size());
    const Hidden* part = hiddenIn(offset, bytes.size(), hidden);
    const bool all = part != nullptr && part->offset <= offset &&
                     part->offset + part->size >= offset + bytes.size();
    if (all) return "redacted, " + size;
    std::string text = toHex(bytes.sub(0, most));
    if (bytes.size() > most) text += "...";
    if (bytes.size() > most || bytes.empty())
        text += (text.empty() ? "" : " ") + ("(" + size + ")");
    if (part != nullptr) text += " (partly redacted)";
    return text;
}

void addTokenFields(Message& message, ByteView token, size_t offset,
                    const std::vector<Hidden>& hidden) {
    if (token.size() != kTokenBytes) {
        message.problems.push_back("the auth token at byte " + std::to_string(offset) + " has " +
                                   std::to_string(token.size()) + " bytes in place of " +
                                   std::to_string(kTokenBytes));
        return;
    }
    // In place of no token the client sends zeros.
    if (std::all_of(token.begin(), token.end(), [](uint8_t byte) { return byte == 0; })) {
        message.fields.back().value = "none, " + countOfBytes(token.size()) + " of zero";
        return;
    }
    for (const TokenPart& part : kTokenParts) {
        const ByteView bytes = token.sub(part.offset, part.size);
        Field field;
        field.name = std::string("auth token ") + part.name;
        field.meaning = part.meaning;
        field.offset = field.stated_at = offset + part.offset;
        field.size = part.size;
        field.depth = 1;
        field.is_bytes = part.meaning == Meaning::kTokenMac;
        if (field.is_bytes) {
            field.value = bytesText(bytes, field.offset, hidden);
        } else {
            field.number = part.big_endian ? secureapp::loadBig(bytes.data(), part.size)
                                           : secureapp::loadLittle(bytes.data(), part.size);
            const bool id = part.size == sizeof(uint64_t) && !part.big_endian;
            field.value = id ? idText(field.number) : std::to_string(field.number);
        }
        message.fields.push_back(std::move(field));
    }
}

}  // namespace lumo::inspect
