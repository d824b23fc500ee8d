#include <algorithm>
#include <cmath>
#include <cstdio>

#include "inspect/Message.h"
#include "inspect/Parameters.h"

namespace lumo::inspect {
namespace {

enum Major : unsigned {
    kUnsigned,
    kNegative,
    kByteString,
    kTextString,
    kArray,
    kMap,
    kTag,
    kSimple,
};

constexpr unsigned kOneByteFollows = 24;
constexpr unsigned kIndefinite = 31;
constexpr unsigned kMaxDepth = 16;
constexpr size_t kShownBytes = 32;
constexpr char kNotRead[] = "not read";  // the field for what cannot be

struct Head {
    unsigned major = 0;
    unsigned info = 0;  // the low five bits of the first byte
    uint64_t value = 0;
    size_t size = 0;

    bool indefinite() const { return info == kIndefinite; }
    bool isBreak() const { return major == kSimple && indefinite(); }
    // RFC 8949, 8.1: how many bytes a number has that could be shorter.
    std::string encodingIndicator() const {
        if (info < kOneByteFollows || info > 27) return "";
        const uint64_t shortest[] = {24, UINT8_MAX + 1ULL, UINT16_MAX + 1ULL, UINT32_MAX + 1ULL};
        const unsigned width = info - kOneByteFollows;
        return value >= shortest[width] ? "" : "_" + std::to_string(width);
    }
};

enum class Content { kNumber, kBytes, kDate, kFlag };

struct LabelRow {
    uint64_t label;
    const char* name;
    Meaning meaning;
    Content content;
};

constexpr LabelRow kLabels[] = {
    {12, "password SID", Meaning::kValue, Content::kNumber},
    {13, "biometric SID", Meaning::kValue, Content::kNumber},
    {22, "number of parameters", Meaning::kValue, Content::kNumber},
    {23, "key blob", Meaning::kKeyBlob, Content::kBytes},
    {24, "key format", Meaning::kValue, Content::kNumber},
    {25, "key data", Meaning::kKeyData, Content::kBytes},
    {26, "wrapping key blob", Meaning::kKeyBlob, Content::kBytes},
    {27, "wrapped key", Meaning::kValue, Content::kBytes},
    {28, "masking key", Meaning::kMaskingKey, Content::kBytes},
    {32, "number of certificates", Meaning::kValue, Content::kNumber},
    {33, "certificate", Meaning::kCertificate, Content::kBytes},
    {34, "operation handle", Meaning::kHandle, Content::kNumber},
    {35, "input", Meaning::kInput, Content::kBytes},
    {36, "output", Meaning::kOutput, Content::kBytes},
    {37, "input consumed", Meaning::kConsumed, Content::kNumber},
    {38, "signature", Meaning::kSignature, Content::kBytes},
    {39, "active date", Meaning::kValue, Content::kDate},
    {40, "expiry date", Meaning::kValue, Content::kDate},
    {41, "sharing seed", Meaning::kSharingSeed, Content::kBytes},
    {42, "sharing nonce", Meaning::kSharingNonce, Content::kBytes},
    {43, "sharing parameters", Meaning::kSharingRecords, Content::kBytes},
    {44, "sharing check", Meaning::kSharingCheck, Content::kBytes},
    {45, "destroy flag", Meaning::kValue, Content::kFlag},
    {46, "password only", Meaning::kValue, Content::kFlag},
};

const LabelRow* findLabel(uint64_t label) {
    for (const LabelRow& row : kLabels) {
        if (row.label == label) return &row;
    }
    return nullptr;
}

// A tag is signed in requests and positive in answers. Nothing where the key can be no tag.
uint32_t tagOfKey(const Head& key) {
    if (key.major == kNegative && key.value <= INT32_MAX) return static_cast<uint32_t>(~key.value);
    return key.major == kUnsigned && key.value <= UINT32_MAX ? static_cast<uint32_t>(key.value) : 0;
}

class CborDecoder {
  public:
    CborDecoder(Message& message, ByteView bytes, const std::vector<Hidden>& hidden)
        : message_(message), bytes_(bytes), hidden_(hidden) {}

    void decode() {
        if (bytes_.empty()) return;
        Head head;
        const bool is_map = peek(head) && head.major == kMap && !head.indefinite();
        const bool read = is_map ? topMap() : item(0);
        message_.notation = std::move(out_);
        message_.extent = position_;
        if (read && !is_map) {
            problem(0, "this is no map of definite length");
            return unread(0);
        }
        if (!read) unread(position_);
        if (read && position_ < bytes_.size()) {
            problem(position_, "bytes follow the end of the item");
            unread(position_);
        }
    }

  private:
    void problem(size_t at, const std::string& what) {
        message_.problems.push_back("at byte " + std::to_string(at) + ": " + what);
    }

    void addUnread(const char* name, size_t offset, size_t size) {
        Field field;
        field.name = name;
        field.meaning = Meaning::kUnread;
        field.offset = field.stated_at = offset;
        field.size = size;
        field.is_bytes = true;
        field.value = bytesText(bytes_.sub(offset, size), offset, hidden_);
        if (size != 0) message_.fields.push_back(std::move(field));
    }

    void unread(size_t from) {
        addUnread(kNotRead, from, bytes_.size() - from);
        message_.extent = bytes_.size();
    }

    bool peek(Head& head) const {
        if (position_ >= bytes_.size()) return false;
        const uint8_t first = bytes_[position_];
        head.major = first >> 5;
        head.info = first & 0x1F;
        head.size = 1;
        head.value = head.info;
        if (head.info < kOneByteFollows) return true;
        if (head.info == kIndefinite) {
            head.value = 0;
            return head.major != kUnsigned && head.major != kNegative && head.major != kTag;
        }
        if (head.info > 27) return false;
        const size_t width = size_t{1} << (head.info - kOneByteFollows);
        if (bytes_.size() - position_ - 1 < width) return false;
        head.value = secureapp::loadBig(bytes_.data() + position_ + 1, width);
        head.size += width;
        return true;
    }

    bool next(Head& head) {
        if (!peek(head)) {
            problem(position_, position_ < bytes_.size() ? "no item begins here, or it is cut off"
                                                         : "the message ends inside an item");
            return false;
        }
        position_ += head.size;
        return true;
    }

    // The content of a string of definite length.
    bool content(const Head& head, ByteView& found) {
        if (head.value > bytes_.size() - position_) {
            problem(position_,
                    "a string of " + std::to_string(head.value) + " bytes reaches behind the end");
            return false;
        }
        found = bytes_.sub(position_, static_cast<size_t>(head.value));
        position_ += found.size();
        return true;
    }

    // One entry after the other, so that each becomes a field.
    bool topMap() {
        Head map;
        if (!next(map)) return false;
        out_ += "{" + std::string(map.encodingIndicator());
        for (uint64_t i = 0; i < map.value; ++i) {
            out_ += i == 0 ? "" : ", ";
            if (!entry()) return false;
        }
        out_ += "}";
        return true;
    }

    bool entry() {
        Head key;
        if (!peek(key)) return next(key);
        const bool labelled = key.major == kUnsigned || key.major == kNegative;
        const size_t key_at = position_;
        if (!item(1)) return false;
        if (!labelled) addUnread("entry's key", key_at, position_ - key_at);
        Field field;
        field.name = "entry";
        uint32_t tag = 0;
        const LabelRow* label = key.major == kUnsigned ? findLabel(key.value) : nullptr;
        if (label != nullptr) {
            field.name = label->name;
            field.meaning = label->meaning;
            if (label->label == 36 && message_.command != nullptr &&
                message_.command->id == CommandId::kExportKey) {
                field.meaning = Meaning::kPublicKey;
            }
        } else if (labelled) {
            tag = tagOfKey(key);
            field.name = isPublishedTag(tag) ? tagName(tag) : "unknown label";
            field.meaning = meaningOf(tag);
        }
        out_ += " /" + field.name + "/: ";
        return value(std::move(field), label, tag);
    }

    // Bytes and structures where none belong may be anything.
    static bool expects(const Head& head, const LabelRow* label, uint32_t tag) {
        const bool bytes = label != nullptr ? label->content == Content::kBytes
                                            : valueKindOf(tag) == ValueKind::kBytes;
        switch (head.major) {
            case kUnsigned:
            case kNegative:
            case kSimple:
                return true;
            case kByteString:
                return bytes && !head.indefinite();
            case kArray:
                return label != nullptr && label->content == Content::kDate;
            default:
                return false;
        }
    }

    bool value(Field field, const LabelRow* label, uint32_t tag) {
        field.stated_at = position_;
        Head head;
        if (!peek(head)) return next(head);
        const bool negative = head.major == kNegative;
        field.is_bytes = head.major == kByteString || head.major == kTextString;
        const size_t note_from = out_.size();
        if (!item(1)) return false;
        field.offset = field.stated_at + (field.is_bytes && !head.indefinite() ? head.size : 0);
        field.size = position_ - field.offset;
        const ByteView bytes = bytes_.sub(field.offset, field.size);
        if (head.major == kUnsigned || negative) {
            field.number = negative ? ~head.value : head.value;
            field.value = field.meaning == Meaning::kHandle ? idText(field.number)
                                                            : numberText(tag, field.number);
            const std::string explained =
                field.meaning == Meaning::kHandle ? field.value : explainNumber(tag, field.number);
            if (!explained.empty()) out_ += " /" + explained + "/";
        } else if (field.is_bytes && !head.indefinite()) {
            field.value = bytesText(bytes, field.offset, hidden_);
        } else {
            field.value = out_.substr(note_from);
        }
        if (!expects(head, label, tag)) field.meaning = Meaning::kUnread;
        const size_t at = field.offset;
        message_.fields.push_back(std::move(field));
        if (tag == static_cast<uint32_t>(KM_TAG_AUTH_TOKEN) && head.major == kByteString) {
            addTokenFields(message_, bytes, at, hidden_);
        }
        return true;
    }

    bool item(unsigned depth) {
        if (depth > kMaxDepth) {
            problem(position_, "items are nested too deeply to be read");
            return false;
        }
        // Of a string only the content is ever hidden; any other item is hidden as a whole, and so
        // is what could not be read.
        if (const Hidden* part = hiddenIn(position_, 1, hidden_)) {
            if (part->what == kNotRead) {
                problem(position_, "what could not be read is redacted");
                return false;
            }
            position_ = std::min(bytes_.size(), part->offset + part->size);
            out_ += "/redacted, " + countOfBytes(part->size) + "/";
            return true;
        }
        Head head;
        if (!next(head)) return false;
        switch (head.major) {
            case kUnsigned:
                out_ += std::to_string(head.value) + head.encodingIndicator();
                return true;
            case kNegative:
                out_ += head.value == UINT64_MAX ? "-18446744073709551616"
                                                 : "-" + std::to_string(head.value + 1);
                out_ += head.encodingIndicator();
                return true;
            case kByteString:
            case kTextString:
                return head.indefinite() ? chunks(head.major, depth) : string(head);
            case kArray:
                return sequence(head, depth, "[", "]", false);
            case kMap:
                return sequence(head, depth, "{", "}", true);
            case kTag:
                out_ += std::to_string(head.value) + "(";
                if (!item(depth + 1)) return false;
                out_ += ")";
                return true;
            default:
                return simple(head);
        }
    }

    bool string(const Head& head) {
        const size_t at = position_;
        ByteView found;
        if (!content(head, found)) return false;
        if (head.major == kTextString) {
            out_ += quoted(found);
        } else if (hiddenIn(at, found.size(), hidden_) != nullptr) {
            out_ += "h'...' /" + bytesText(found, at, hidden_, 0) + "/";
        } else {
            const bool cut = found.size() > kShownBytes;
            out_ += "h'" + toHex(found.sub(0, kShownBytes)) + (cut ? "...'" : "'");
            if (cut) out_ += " /" + countOfBytes(found.size()) + "/";
        }
        return true;
    }

    static std::string quoted(ByteView bytes) {
        std::string result = "\"";
        for (const uint8_t byte : bytes.sub(0, kShownBytes)) {
            const bool plain = byte >= 0x20 && byte < 0x7F && byte != '"' && byte != '\\';
            result += plain ? std::string(1, static_cast<char>(byte))
                            : "\\u00" + toHex(ByteView(&byte, 1));
        }
        return result + (bytes.size() > kShownBytes ? "...\"" : "\"");
    }

    bool chunks(unsigned major, unsigned depth) {
        out_ += "(_ ";
        for (size_t i = 0;; ++i) {
            Head head;
            if (peek(head) && head.isBreak()) break;
            if (i != 0) out_ += ", ";
            if (peek(head) && (head.major != major || head.indefinite())) {
                problem(position_, "this cannot be a part of a string");
                return false;
            }
            if (!item(depth + 1)) return false;
        }
        ++position_;
        out_ += ")";
        return true;
    }

    bool sequence(const Head& head, unsigned depth, const char* open, const char* close, bool map) {
        out_ += open + std::string(head.indefinite() ? "_ " : head.encodingIndicator());
        for (uint64_t i = 0; head.indefinite() || i < head.value; ++i) {
            Head peeked;
            if (head.indefinite() && peek(peeked) && peeked.isBreak()) {
                ++position_;
                break;
            }
            if (i != 0) out_ += ", ";
            if (!item(depth + 1)) return false;
            if (!map) continue;
            out_ += ": ";
            if (!item(depth + 1)) return false;
        }
        out_ += close;
        return true;
    }

    bool simple(const Head& head) {
        switch (head.info) {
            case 20:
                out_ += "false";
                return true;
            case 21:
                out_ += "true";
                return true;
            case 22:
                out_ += "null";
                return true;
            case 23:
                out_ += "undefined";
                return true;
            case 25:
            case 26:
            case 27:
                out_ += number(head);
                return true;
            case kIndefinite:
                problem(position_ - 1, "a break without a beginning");
                return false;
            default:
                out_ += "simple(" + std::to_string(head.value) + ")";
                return true;
        }
    }

    // An IEEE 754 number of half, single or double width.
    static std::string number(const Head& head) {
        struct Width {
            int exponent_bits;
            int fraction_bits;
        };
        constexpr Width kWidths[] = {{5, 10}, {8, 23}, {11, 52}};
        const Width width = kWidths[head.info - 25];
        const uint64_t fraction = head.value & ((uint64_t{1} << width.fraction_bits) - 1);
        const int most = (1 << width.exponent_bits) - 1;
        const int exponent = static_cast<int>(head.value >> width.fraction_bits) & most;
        const bool negative = (head.value >> (width.fraction_bits + width.exponent_bits) & 1) != 0;
        const std::string sign = negative ? "-" : "";
        if (exponent == most) return fraction != 0 ? "NaN" : sign + "Infinity";
        const double scaled = std::ldexp(static_cast<double>(fraction), -width.fraction_bits);
        const int bias = most / 2;
        const double value =
            exponent == 0 ? std::ldexp(scaled, 1 - bias) : std::ldexp(1 + scaled, exponent - bias);
        char result[40];
        std::snprintf(result, sizeof(result), "%s%.17g", sign.c_str(), value);
        return result;
    }

    Message& message_;
    const ByteView bytes_;
    const std::vector<Hidden>& hidden_;
    size_t position_ = 0;
    std::string out_;
};

}  // namespace

Message decodeCbor(uint32_t number, Side side, ByteView bytes, const std::vector<Hidden>& hidden) {
    Message message;
    message.wire = Wire::kCbor;
    message.side = side;
    message.number = number;
    message.command = findCommand(Wire::kCbor, number);
    CborDecoder(message, bytes, hidden).decode();
    return message;
}

}  // namespace lumo::inspect
