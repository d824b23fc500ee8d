// Reading and writing DER (X.690), the part that keys, certificates and attestations need.
#pragma once

#include <initializer_list>
#include <string_view>

#include "secureapp/base/Bytes.h"

namespace lumo::secureapp::der {

// An identifier: class and constructed bit as they stand in its first byte, and the number.
struct Tag {
    uint8_t form = 0;
    uint32_t number = 0;

    bool operator==(const Tag& other) const { return form == other.form && number == other.number; }
    bool operator!=(const Tag& other) const { return !(*this == other); }
};

constexpr uint8_t kConstructed = 0x20;
constexpr uint8_t kContextClass = 0x80;

constexpr Tag kBoolean = {0, 1};
constexpr Tag kInteger = {0, 2};
constexpr Tag kBitString = {0, 3};
constexpr Tag kOctetString = {0, 4};
constexpr Tag kNull = {0, 5};
constexpr Tag kObjectIdentifier = {0, 6};
constexpr Tag kEnumerated = {0, 10};
constexpr Tag kUtf8String = {0, 12};
constexpr Tag kUtcTime = {0, 23};
constexpr Tag kGeneralizedTime = {0, 24};
constexpr Tag kSequence = {kConstructed, 16};
constexpr Tag kSet = {kConstructed, 17};

// An EXPLICIT context tag.
constexpr Tag context(uint32_t number) {
    return {kContextClass | kConstructed, number};
}

struct Item {
    Tag tag;
    ByteView contents;
    ByteView encoding;  // the contents with their identifier and length
};

// Reads items from borrowed bytes, front to back. Strict: definite lengths only, and identifiers,
// lengths and integers in the fewest bytes. Throws Refusal(KM_ERROR_INVALID_ARGUMENT) for an item
// that is malformed, cut short or of another tag than expected.
class Reader {
  public:
    explicit Reader(ByteView data) : rest_(data) {}

    bool atEnd() const { return rest_.empty(); }
    void expectEnd() const;

    Item next();
    Item next(Tag expected);
    // The contents of the next item, which must have the tag.
    Reader enter(Tag expected) { return Reader(next(expected).contents); }
    // A non-negative INTEGER of at most 64 bits.
    uint64_t nextUnsigned();

  private:
    uint8_t byte();
    Tag identifier();
    size_t length();

    ByteView rest_;
};

// Each returns one whole item.
Bytes item(Tag tag, ByteView contents);
Bytes concatenation(Tag tag, std::initializer_list<Bytes> parts);
inline Bytes sequence(std::initializer_list<Bytes> parts) {
    return concatenation(kSequence, parts);
}
// INTEGER, or ENUMERATED.
Bytes integer(uint64_t value, Tag tag = kInteger);
Bytes boolean(bool value);
inline Bytes octetString(ByteView value) {
    return item(kOctetString, value);
}
// At least two arcs; the first two as X.690 packs them.
Bytes objectIdentifier(std::initializer_list<uint32_t> arcs);
// SET OF with the elements in DER order, each once.
Bytes setOf(std::vector<Bytes> elements);

}  // namespace lumo::secureapp::der
