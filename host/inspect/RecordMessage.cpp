#include <algorithm>
#include <cinttypes>
#include <cstdio>

#include "inspect/Message.h"
#include "inspect/Parameters.h"

namespace lumo::inspect {
namespace {

constexpr size_t kWordBytes = 4;
constexpr size_t kParamBytes = 3 * kWordBytes;
constexpr size_t kSharingBytes = 64;
constexpr size_t kMacBytes = 32;
constexpr uint32_t kNoTag = 0xFFFFFFFF;
constexpr size_t kMaxCertificates = 64;
constexpr size_t kMaxProblems = 20;  // more would say nothing new

enum class Shape {
    kWord,
    kLong,          // two words, the low one first
    kInline,        // bytes in the words themselves
    kUnused,        // words that the sender does not write
    kDate,          // nine words, of which the last three are not written
    kItem,          // offset and length of bytes
    kParams,        // offset and count of parameters
    kSharing,       // offset and count of sharing parameters
    kKeyData,       // an item, or the numbers of an EC key (see readKeyData)
    kSignature,     // an item, or the numbers of an EC signature
    kPublicKey,     // an item, or the numbers of a public key
    kCertificates,  // offset and length of a table of certificates, and their number
    kNonce,         // four words for it and one for its length
};

// One row for what begins at a word. The first word of every record is read apart.
struct Row {
    size_t word;
    Shape shape;
    const char* name;
    Meaning meaning = Meaning::kValue;
    size_t words = 1;  // kInline, kUnused
    uint32_t tag = 0;  // names the values of kWord
};

using Rows = std::vector<Row>;

struct Layout {
    CommandId command;
    size_t request_words;
    Rows request;
    size_t response_words;
    Rows response;
};

const Rows kBlobAnswer = {{1, Shape::kUnused, "unused"},
                          {2, Shape::kItem, "key blob", Meaning::kKeyBlob}};

const std::vector<Layout>& layouts() {
    static const std::vector<Layout> all = {
        {CommandId::kGenerateKey, 3, {{1, Shape::kParams, "parameters"}}, 4, kBlobAnswer},
        {CommandId::kGetKeyCharacteristics,
         7,
         {{1, Shape::kItem, "key blob", Meaning::kKeyBlob},
          {3, Shape::kItem, "application id", Meaning::kApplication},
          {5, Shape::kItem, "application data", Meaning::kApplication}},
         4,
         kBlobAnswer},
        {CommandId::kImportKey,
         6,
         {{1, Shape::kWord, "key format"},
          {2, Shape::kParams, "parameters"},
          {4, Shape::kKeyData, "key data", Meaning::kKeyData}},
         4,
         kBlobAnswer},
        {CommandId::kImportWrappedKey,
         13,
         {{1, Shape::kLong, "password SID"},
          {3, Shape::kLong, "biometric SID"},
          {5, Shape::kItem, "wrapping key blob", Meaning::kKeyBlob},
          {7, Shape::kItem, "wrapped key"},
          {9, Shape::kItem, "masking key", Meaning::kMaskingKey},
          {11, Shape::kParams, "unwrapping parameters"}},
         3,
         {{1, Shape::kItem, "key blob", Meaning::kKeyBlob}}},
        {CommandId::kExportKey,
         8,
         {{1, Shape::kItem, "key blob", Meaning::kKeyBlob},
          {3, Shape::kWord, "key format"},
          {4, Shape::kItem, "application id", Meaning::kApplication},
          {6, Shape::kItem, "application data", Meaning::kApplication}},
         5,
         {{1, Shape::kUnused, "unused"},
          {2, Shape::kWord, "algorithm", Meaning::kValue, 1, KM_TAG_ALGORITHM},
          {3, Shape::kPublicKey, "public key", Meaning::kPublicKey}}},
        {CommandId::kAttestKey,
         23,
         {{1, Shape::kItem, "key blob", Meaning::kKeyBlob},
          {3, Shape::kParams, "parameters"},
          {5, Shape::kDate, "active date"},
          {14, Shape::kDate, "expiry date"}},
         5,
         {{1, Shape::kUnused, "unused"}, {2, Shape::kCertificates, "certificates"}}},
        {CommandId::kUpgradeKey,
         5,
         {{1, Shape::kItem, "key blob", Meaning::kKeyBlob}, {3, Shape::kParams, "parameters"}},
         4,
         kBlobAnswer},
        {CommandId::kDeleteKey, 3, {{1, Shape::kItem, "key blob", Meaning::kKeyBlob}}, 1, {}},
        {CommandId::kDeleteAllKeys, 1, {}, 1, {}},
        {CommandId::kDestroyAttestationIds, 2, {{1, Shape::kWord, "zero"}}, 1, {}},
        {CommandId::kBegin,
         6,
         {{1, Shape::kWord, "purpose", Meaning::kValue, 1, KM_TAG_PURPOSE},
          {2, Shape::kItem, "key blob", Meaning::kKeyBlob},
          {4, Shape::kParams, "parameters"}},
         10,
         {{1, Shape::kUnused, "unused"},
          {2, Shape::kLong, "operation handle", Meaning::kHandle},
          {4, Shape::kWord, "algorithm", Meaning::kValue, 1, KM_TAG_ALGORITHM},
          {5, Shape::kNonce, "nonce", Meaning::kNonce}}},
        {CommandId::kUpdate,
         7,
         {{1, Shape::kLong, "operation handle", Meaning::kHandle},
          {3, Shape::kParams, "parameters"},
          {5, Shape::kItem, "input", Meaning::kInput}},
         5,
         {{1, Shape::kUnused, "unused"},
          {2, Shape::kItem, "output", Meaning::kOutput},
          {4, Shape::kWord, "input consumed", Meaning::kConsumed}}},
        {CommandId::kFinish,
         9,
         {{1, Shape::kLong, "operation handle", Meaning::kHandle},
          {3, Shape::kParams, "parameters"},
          {5, Shape::kItem, "input", Meaning::kInput},
          {7, Shape::kSignature, "signature", Meaning::kSignature}},
         4,
         {{1, Shape::kUnused, "unused"}, {2, Shape::kItem, "output", Meaning::kOutput}}},
        {CommandId::kAbort, 3, {{1, Shape::kLong, "operation handle", Meaning::kHandle}}, 1, {}},
        {CommandId::kGetHmacSharingParameters,
         1,
         {},
         17,
         {{1, Shape::kInline, "sharing seed", Meaning::kSharingSeed, 8},
          {9, Shape::kInline, "sharing nonce", Meaning::kSharingNonce, 8}}},
        {CommandId::kComputeSharedHmac,
         3,
         {{1, Shape::kSharing, "sharing parameters"}},
         9,
         {{1, Shape::kInline, "sharing check", Meaning::kSharingCheck, 8}}},
        {CommandId::kVerifyAuthorization,
         3,
         {{1, Shape::kLong, "challenge", Meaning::kHandle}},
         14,
         {{1, Shape::kLong, "challenge", Meaning::kHandle},
          {3, Shape::kLong, "timestamp", Meaning::kTime},
          {5, Shape::kWord, "security level"},
          {6, Shape::kInline, "token MAC", Meaning::kTokenMac, kMacBytes / kWordBytes}}},
        {CommandId::kConfigure, 3, {{1, Shape::kParams, "parameters"}}, 1, {}},
        {CommandId::kGetDateSupport, 3, {{1, Shape::kUnused, "unused", Meaning::kStale, 2}}, 1, {}},
        {CommandId::kSetRootOfTrust, 3, {{1, Shape::kItem, "verified boot key"}}, 1, {}},
        // The header gives byte 16 for the body, which the sender puts behind the content of the
        // request before it: at byte 60.
        {CommandId::kSetBootState,
         27,
         {{1, Shape::kWord, "zero"},
          {2, Shape::kWord, "stated offset of the body"},
          {3, Shape::kWord, "length of the body"},
          {4, Shape::kUnused, "left over from setRootOfTrust", Meaning::kStale, 11},
          {15, Shape::kWord, "locked"},
          {16, Shape::kWord, "verified boot key's start"},
          {17, Shape::kInline, "filler", Meaning::kValue, 7},
          {24, Shape::kWord, "boot state"},
          {25, Shape::kWord, "OS version"},
          {26, Shape::kWord, "OS patch level"}},
         1,
         {}},
    };
    return all;
}

const Layout* layoutOf(const CommandInfo* command) {
    if (command == nullptr) return nullptr;
    for (const Layout& layout : layouts()) {
        if (layout.command == command->id) return &layout;
    }
    return nullptr;
}

std::string hexWord(uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof(text), "0x%x", value);
    return text;
}

class RecordDecoder {
  public:
    RecordDecoder(Message& message, ByteView bytes, const std::vector<Hidden>& hidden)
        : message_(message), bytes_(bytes), hidden_(hidden) {}

    void read(const Rows& rows) {
        for (const Row& row : rows) readRow(row);
    }

    // The word at a byte offset; 0, with a problem, outside the message.
    uint32_t word(size_t offset) {
        if (offset > bytes_.size() || bytes_.size() - offset < kWordBytes) {
            problem("the message ends before the word at byte " + std::to_string(offset));
            return 0;
        }
        return static_cast<uint32_t>(secureapp::loadLittle(bytes_.data() + offset, kWordBytes));
    }

    void problem(const std::string& what) {
        if (message_.problems.size() == kMaxProblems) return;
        if (std::find(message_.problems.begin(), message_.problems.end(), what) ==
            message_.problems.end()) {
            message_.problems.push_back(what);
        }
    }

    Field& add(const std::string& name, size_t offset, size_t size, Meaning meaning,
               std::string value) {
        Field field;
        field.name = name;
        field.value = std::move(value);
        field.meaning = meaning;
        field.offset = field.stated_at = offset;
        field.size = size;
        message_.fields.push_back(std::move(field));
        message_.extent = std::max(message_.extent, offset + size);
        return message_.fields.back();
    }

    void addBytes(const std::string& name, size_t stated_at, size_t base, size_t offset,
                  size_t size, Meaning meaning) {
        Field& field = add(name, offset, size, meaning, "");
        field.stated_at = stated_at;
        field.base = base;
        field.is_bytes = true;
        field.value = bytesText(bytes_.sub(offset, size), offset, hidden_);
    }

    // Sorts the fields and adds one for each gap that they leave in the first `size` bytes.
    void finish(size_t size) {
        sortFields();
        size_t told = 0;
        std::vector<std::pair<size_t, size_t>> gaps;
        for (const Field& field : message_.fields) {
            if (field.offset > told) gaps.emplace_back(told, field.offset);
            told = std::max(told, field.offset + field.size);
        }
        gaps.emplace_back(told, std::max(told, size));
        for (const auto& [from, to] : gaps) {
            if (from < to) addBytes("not read", from, 0, from, to - from, Meaning::kUnread);
        }
        sortFields();
    }

  private:
    void sortFields() {
        std::stable_sort(message_.fields.begin(), message_.fields.end(),
                         [](const Field& a, const Field& b) { return a.offset < b.offset; });
    }

    void readRow(const Row& row) {
        const size_t at = row.word * kWordBytes;
        if (at >= bytes_.size()) return problem(std::string("there is no ") + row.name);
        const size_t room = bytes_.size() - at;
        switch (row.shape) {
            case Shape::kWord:
                return readWord(row, at);
            case Shape::kLong: {
                const uint64_t value = word(at) | uint64_t{word(at + kWordBytes)} << 32;
                add(row.name, at, std::min(room, 2 * kWordBytes), row.meaning, idText(value))
                    .number = value;
                return;
            }
            case Shape::kInline:
                return addBytes(row.name, at, 0, at, std::min(room, row.words * kWordBytes),
                                row.meaning);
            case Shape::kUnused:
                return readStale(row.name, at, std::min(room, row.words * kWordBytes));
            case Shape::kDate:
                return readDate(row, at);
            case Shape::kNonce:
                return readNonce(row, at);
            case Shape::kItem:
                return readItem(row.name, at, 0, row.meaning);
            case Shape::kParams:
                return readParams(row, at);
            case Shape::kSharing:
                return readSharing(row, at);
            case Shape::kKeyData:
                return readKeyData(row, at);
            case Shape::kSignature:
                return readSignature(row, at);
            case Shape::kPublicKey:
                return readPublicKey(row, at);
            case Shape::kCertificates:
                return readCertificates(at);
        }
    }

    void readWord(const Row& row, size_t at) {
        const uint32_t value = word(at);
        add(row.name, at, std::min(kWordBytes, bytes_.size() - at), row.meaning,
            numberText(row.tag, value))
            .number = value;
    }

    void readStale(const std::string& name, size_t at, size_t size) {
        addBytes(name, at, 0, at, size, Meaning::kStale);
    }

    // Second, minute, hour, day, month, year. Without a date nothing is written at all, which
    // cannot be seen in the bytes: a date that is none is taken for stale.
    void readDate(const Row& row, size_t at) {
        constexpr size_t kWritten = 6;
        uint32_t parts[kWritten];
        for (size_t i = 0; i < kWritten; ++i) parts[i] = word(at + i * kWordBytes);
        const bool is_date = parts[0] < 61 && parts[1] < 60 && parts[2] < 24 && parts[3] > 0 &&
                             parts[3] < 32 && parts[4] > 0 && parts[4] < 13 && parts[5] > 1900 &&
                             parts[5] < 10000;
        const size_t room = bytes_.size() - at;
        if (!is_date) return readStale(row.name, at, std::min(room, 9 * kWordBytes));
        char text[40];
        std::snprintf(text, sizeof(text), "%04u-%02u-%02u %02u:%02u:%02u", parts[5], parts[4],
                      parts[3], parts[2], parts[1], parts[0]);
        add(row.name, at, kWritten * kWordBytes, row.meaning, text);
        const size_t rest = at + kWritten * kWordBytes;
        if (rest < bytes_.size()) {
            readStale(std::string(row.name) + ", unused words", rest,
                      std::min(3 * kWordBytes, bytes_.size() - rest));
        }
    }

    void readNonce(const Row& row, size_t at) {
        constexpr size_t kRoom = 4 * kWordBytes;
        const uint32_t length = word(at + kRoom);
        if (length > kRoom) problem("a nonce of " + std::to_string(length) + " bytes has no place");
        const size_t used = std::min<size_t>(length, std::min(kRoom, bytes_.size() - at));
        if (used != 0) addBytes(row.name, at, 0, at, used, row.meaning);
        const size_t rest = std::min(kRoom, bytes_.size() - at) - used;
        if (rest != 0) readStale("place of the nonce, unused", at + used, rest);
        if (bytes_.size() >= at + kRoom + kWordBytes) {
            add("length of the nonce", at + kRoom, kWordBytes, Meaning::kLayout,
                std::to_string(length))
                .number = length;
        }
    }

    // The pair of words itself, as a field. False, with a problem, where the place that it gives is
    // not within the message.
    bool readPlace(const std::string& name, size_t at, size_t base, size_t unit, size_t& offset,
                   size_t& size) {
        const uint32_t stated = word(at);
        const uint32_t count = word(at + kWordBytes);
        const uint64_t length = uint64_t{count} * unit;
        const uint64_t start = uint64_t{base} + stated;
        std::string value = "none";
        const bool none = stated == 0 && count == 0;
        const bool inside = start <= bytes_.size() && length <= bytes_.size() - start;
        if (!none) {
            value = (unit == 1 ? countOfBytes(count) : std::to_string(count)) + " at byte " +
                    std::to_string(start);
            if (base != 0)
                value += " (" + std::to_string(stated) + " from byte " + std::to_string(base) + ")";
            if (!inside) value += ", outside the message";
        }
        if (bytes_.size() >= at + 2 * kWordBytes) {
            Field& pair = add("place of " + name, at, 2 * kWordBytes, Meaning::kLayout, value);
            pair.number = stated;
            pair.base = base;
            pair.unit = none ? 0 : unit;
        }
        if (!inside && !none) problem(name + " lies outside the message");
        offset = static_cast<size_t>(start);
        size = static_cast<size_t>(length);
        return inside && !none;
    }

    void readItem(const std::string& name, size_t at, size_t base, Meaning meaning) {
        size_t offset = 0;
        size_t size = 0;
        if (!readPlace(name, at, base, 1, offset, size)) return;
        addBytes(name, at, base, offset, size, meaning);
    }

    void readParams(const Row& row, size_t at) {
        size_t offset = 0;
        size_t size = 0;
        if (!readPlace(row.name, at, 0, kParamBytes, offset, size)) return;
        for (size_t place = offset; place < offset + size; place += kParamBytes) {
            const ByteView record = bytes_.sub(place, kParamBytes);
            const ByteView before =
                place == offset ? ByteView() : bytes_.sub(place - kParamBytes, kParamBytes);
            if (std::equal(record.begin(), record.end(), before.begin(), before.end())) {
                addBytes("parameter of unknown type: the one before it again", place, 0, place,
                         kParamBytes, Meaning::kRepeated);
                continue;
            }
            readParam(place, before);
        }
    }

    // Bytes of a parameter that its type does not need: the sender leaves there what it wrote for
    // the parameter before, or the ones that it began with.
    void readUnusedOfParam(const std::string& name, size_t param, size_t from, ByteView before) {
        const ByteView unused = bytes_.sub(param + from, kParamBytes - from);
        const ByteView earlier = before.sub(from);
        const bool repeated = before.empty()
                                  ? std::all_of(unused.begin(), unused.end(),
                                                [](uint8_t byte) { return byte == 0xFF; })
                                  : std::equal(unused.begin(), unused.end(), earlier.begin());
        addBytes(name + ", unused", param + from, 0, param + from, unused.size(),
                 repeated ? Meaning::kRepeated : Meaning::kStale);
    }

    void readParam(size_t at, ByteView before) {
        const uint32_t tag = word(at);
        const size_t first = at + kWordBytes;
        const size_t second = first + kWordBytes;
        if (tag == kNoTag) {
            return readStale("parameter of unknown type: nothing written", at, kParamBytes);
        }
        const std::string name = tagName(tag);
        switch (valueKindOf(tag)) {
            case ValueKind::kWord:
                add(name, at, 2 * kWordBytes, meaningOf(tag), numberText(tag, word(first))).number =
                    word(first);
                return readUnusedOfParam(name, at, 2 * kWordBytes, before);
            case ValueKind::kLong: {
                const uint64_t value = word(first) | uint64_t{word(second)} << 32;
                add(name, at, kParamBytes, meaningOf(tag), numberText(tag, value)).number = value;
                return;
            }
            case ValueKind::kBool:
                add(name, at, kWordBytes + 1, meaningOf(tag), bytes_[first] != 0 ? "true" : "false")
                    .number = bytes_[first];
                return readUnusedOfParam(name, at, kWordBytes + 1, before);
            case ValueKind::kBytes: {
                add(name + ", tag", at, kWordBytes, Meaning::kValue, hexWord(tag)).number = tag;
                readItem(name, first, 0, meaningOf(tag));
                if (tag != static_cast<uint32_t>(KM_TAG_AUTH_TOKEN)) return;
                const Field& token = message_.fields.back();
                if (token.name != name) return;
                const size_t offset = token.offset;
                return addTokenFields(message_, bytes_.sub(offset, token.size), offset, hidden_);
            }
            case ValueKind::kUnknown:
                addBytes(name, at, 0, at, kParamBytes, Meaning::kUnread);
        }
    }

    void readSharing(const Row& row, size_t at) {
        size_t offset = 0;
        size_t size = 0;
        if (!readPlace(row.name, at, 0, kSharingBytes, offset, size)) return;
        addBytes(row.name, at, 0, offset, size, Meaning::kSharingRecords);
    }

    // Old applications get the numbers of an EC key: a record of the key size and the places of
    // the private number, x and y, and for the length of the whole the byte behind y.
    void readKeyData(const Row& row, size_t at) {
        constexpr size_t kRecordBytes = 7 * kWordBytes;
        const uint32_t offset = word(at);
        const uint32_t end = word(at + kWordBytes);
        const bool as_item = offset <= bytes_.size() && end <= bytes_.size() - offset;
        const bool as_numbers =
            !as_item && end <= bytes_.size() && offset < end && end - offset >= kRecordBytes;
        if (!as_numbers) return readItem(row.name, at, 0, row.meaning);
        add("place of the EC key's record", at, 2 * kWordBytes, Meaning::kLayout,
            "bytes " + std::to_string(offset) + " to " + std::to_string(end));
        add("EC key size", offset, kWordBytes, Meaning::kValue, std::to_string(word(offset)));
        readItem("private number", offset + kWordBytes, 0, Meaning::kKeyData);
        readItem("x", offset + 3 * kWordBytes, 0, Meaning::kKeyData);
        readItem("y", offset + 5 * kWordBytes, 0, Meaning::kKeyData);
    }

    // For the verification with an EC key the two numbers, each with its place.
    void readSignature(const Row& row, size_t at) {
        constexpr size_t kRecordBytes = 4 * kWordBytes;
        const uint32_t offset = word(at);
        const uint32_t length = word(at + kWordBytes);
        const bool inside = offset <= bytes_.size() && length <= bytes_.size() - offset;
        if (!inside || length < kRecordBytes) return readItem(row.name, at, 0, row.meaning);
        const uint64_t r_end = uint64_t{word(offset)} + word(offset + kWordBytes);
        const uint64_t s_end =
            uint64_t{word(offset + 2 * kWordBytes)} + word(offset + 3 * kWordBytes);
        const bool numbers = word(offset) == offset + kRecordBytes &&
                             word(offset + 2 * kWordBytes) == r_end &&
                             s_end == uint64_t{offset} + length;
        if (!numbers) return readItem(row.name, at, 0, row.meaning);
        add("place of the EC signature's record", at, 2 * kWordBytes, Meaning::kLayout,
            countOfBytes(length) + " at byte " + std::to_string(offset))
            .unit = 1;
        readItem("signature r", offset, 0, Meaning::kSignature);
        readItem("signature s", offset + 2 * kWordBytes, 0, Meaning::kSignature);
    }

    // Old applications give the numbers of the key, with places from the record's own start.
    void readPublicKey(const Row& row, size_t at) {
        constexpr uint8_t kDerSequence = 0x30;
        size_t offset = 0;
        size_t size = 0;
        if (!readPlace(row.name, at, 0, 1, offset, size)) return;
        const uint32_t algorithm = word(2 * kWordBytes);
        const bool ec = algorithm == KM_ALGORITHM_EC;
        const size_t words = ec ? 7 : 4;
        const bool der =
            size != 0 && bytes_[offset] == kDerSequence && size > 1 && bytes_[offset + 1] != 0;
        if (der || size < words * kWordBytes || (!ec && algorithm != KM_ALGORITHM_RSA)) {
            return addBytes(row.name, at, 0, offset, size, row.meaning);
        }
        if (ec) readStale("unused", offset, 3 * kWordBytes);
        const size_t first = offset + (ec ? 3 * kWordBytes : 0);
        readItem(ec ? "x" : "modulus", first, offset, Meaning::kPublicKey);
        readItem(ec ? "y" : "exponent", first + 2 * kWordBytes, offset,
                 ec ? Meaning::kPublicKey : Meaning::kValue);
    }

    // Places in the table count from its start.
    void readCertificates(size_t at) {
        size_t offset = 0;
        size_t size = 0;
        const uint32_t count = word(at + 2 * kWordBytes);
        if (bytes_.size() >= at + 3 * kWordBytes) {
            add("number of certificates", at + 2 * kWordBytes, kWordBytes, Meaning::kValue,
                std::to_string(count))
                .number = count;
        }
        if (!readPlace("the certificates", at, 0, 1, offset, size)) return;
        if (count > kMaxCertificates) return problem("there are too many certificates");
        for (uint32_t i = 0; i < count; ++i) {
            readItem("certificate " + std::to_string(i + 1), offset + i * 2 * kWordBytes, offset,
                     Meaning::kCertificate);
        }
    }

    Message& message_;
    const ByteView bytes_;
    const std::vector<Hidden>& hidden_;
};

}  // namespace

Message decodeRecordRequest(ByteView bytes, const std::vector<Hidden>& hidden) {
    Message message;
    message.wire = Wire::kRecord;
    RecordDecoder decoder(message, bytes, hidden);
    if (!bytes.empty()) message.number = decoder.word(0);
    message.command = findCommand(Wire::kRecord, message.number);
    if (bytes.size() >= kWordBytes) {
        decoder
            .add("command", 0, kWordBytes, Meaning::kValue,
                 describeCommand(Wire::kRecord, message.number))
            .number = message.number;
    } else {
        decoder.problem("a record has at least one word");
    }
    if (const Layout* layout = layoutOf(message.command)) decoder.read(layout->request);
    decoder.finish(bytes.size());
    return message;
}

Message decodeRecordResponse(uint32_t number, ByteView bytes, const std::vector<Hidden>& hidden) {
    Message message;
    message.wire = Wire::kRecord;
    message.side = Side::kResponse;
    message.number = number;
    message.command = findCommand(Wire::kRecord, number);
    if (bytes.empty()) return message;
    RecordDecoder decoder(message, bytes, hidden);
    const auto status = static_cast<int32_t>(decoder.word(0));
    if (bytes.size() >= kWordBytes) {
        Field& field = decoder.add("status", 0, kWordBytes, Meaning::kValue,
                                   std::to_string(status) + " (" + errorName(status) + ")");
        field.number = static_cast<uint32_t>(status);
    }
    const Layout* layout = layoutOf(message.command);
    // Behind the status of a refusal there is nothing but what a client reads all the same: how
    // much an update consumed.
    const bool refused = status != KM_ERROR_OK;
    if (layout != nullptr && !refused) decoder.read(layout->response);
    if (refused && message.command != nullptr && message.command->id == CommandId::kUpdate) {
        decoder.read({{4, Shape::kWord, "input consumed", Meaning::kConsumed}});
    }
    decoder.finish(message.extent);
    return message;
}

Message decode(Wire wire, Side side, uint32_t number, ByteView bytes,
               const std::vector<Hidden>& hidden) {
    if (wire == Wire::kCbor) return decodeCbor(number, side, bytes, hidden);
    return side == Side::kRequest ? decodeRecordRequest(bytes, hidden)
                                  : decodeRecordResponse(number, bytes, hidden);
}

}  // namespace lumo::inspect
