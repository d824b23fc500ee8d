#include "secureapp/crypto/Der.h"

#include <algorithm>

#include "secureapp/base/Refusal.h"

namespace lumo::secureapp::der {
namespace {

constexpr uint8_t kFormBits = 0xE0;
constexpr uint8_t kNumberBits = 0x1F;  // all set: the number follows in further bytes
constexpr uint8_t kMore = 0x80;        // of base-128 digits; in a length: its bytes follow
constexpr uint8_t kDigitBits = 0x7F;
constexpr uint8_t kTrue = 0xFF;
constexpr uint32_t kMaxTagNumber = 0x0FFFFFFF;

void check(bool well_formed, const char* fault) {
    if (!well_formed) refuse(KM_ERROR_INVALID_ARGUMENT, "DER: ", fault);
}

void appendBase128(Bytes& out, uint32_t value) {
    int shift = 0;
    while (value >> shift > kDigitBits) shift += 7;
    for (; shift > 0; shift -= 7) {
        out.push_back(static_cast<uint8_t>(kMore | (value >> shift & kDigitBits)));
    }
    out.push_back(static_cast<uint8_t>(value & kDigitBits));
}

// Big-endian in the fewest bytes, at least one.
Bytes minimalBytes(uint64_t value) {
    Bytes bytes;
    for (; value > 0xFF; value >>= 8) bytes.push_back(static_cast<uint8_t>(value));
    bytes.push_back(static_cast<uint8_t>(value));
    std::reverse(bytes.begin(), bytes.end());
    return bytes;
}

}  // namespace

void Reader::expectEnd() const {
    check(atEnd(), "bytes follow the last item");
}

uint8_t Reader::byte() {
    check(!rest_.empty(), "the data ends where an item should go on");
    const uint8_t first = rest_[0];
    rest_ = rest_.sub(1);
    return first;
}

Tag Reader::identifier() {
    const uint8_t first = byte();
    const auto form = static_cast<uint8_t>(first & kFormBits);
    if ((first & kNumberBits) != kNumberBits) {
        return {form, static_cast<uint32_t>(first & kNumberBits)};
    }
    uint32_t number = 0;
    uint8_t digit = kMore;
    while ((digit & kMore) != 0) {
        digit = byte();
        check(number != 0 || digit != kMore, "a tag number begins with a zero digit");
        check(number <= kMaxTagNumber >> 7, "a tag number has more than 28 bits");
        number = number << 7 | (digit & kDigitBits);
    }
    check(number >= kNumberBits, "a small tag number is in the long form");
    return {form, number};
}

size_t Reader::length() {
    const uint8_t first = byte();
    if ((first & kMore) == 0) return first;
    const size_t count = first & kDigitBits;
    // 0 is the indefinite form.
    check(count > 0 && count <= sizeof(uint32_t), "a length is indefinite or above 32 bits");
    uint32_t size = 0;
    for (size_t i = 0; i < count; ++i) {
        const uint8_t digit = byte();
        check(i > 0 || digit != 0, "a length begins with a zero byte");
        size = size << 8 | digit;
    }
    check(size > kDigitBits, "a short length is in the long form");
    return size;
}

Item Reader::next() {
    const ByteView start = rest_;
    Item found;
    found.tag = identifier();
    const size_t size = length();
    check(size <= rest_.size(), "an item is longer than what is left of the data");
    found.contents = rest_.sub(0, size);
    rest_ = rest_.sub(size);
    found.encoding = start.sub(0, start.size() - rest_.size());
    return found;
}

Item Reader::next(Tag expected) {
    const Item found = next();
    if (found.tag != expected) {
        refuse(KM_ERROR_INVALID_ARGUMENT, "DER: item ", expected.number, " (form ", expected.form,
               ") should come, not ", found.tag.number, " (form ", found.tag.form, ")");
    }
    return found;
}

uint64_t Reader::nextUnsigned() {
    constexpr uint8_t kSign = 0x80;
    ByteView digits = next(kInteger).contents;
    check(!digits.empty() && (digits[0] & kSign) == 0, "an INTEGER is empty or negative");
    if (digits.size() > 1 && digits[0] == 0) {
        check((digits[1] & kSign) != 0, "an INTEGER begins with a needless zero byte");
        digits = digits.sub(1);
    }
    check(digits.size() <= sizeof(uint64_t), "an INTEGER has more than 64 bits");
    uint64_t value = 0;
    for (const uint8_t digit : digits) value = value << 8 | digit;
    return value;
}

Bytes item(Tag tag, ByteView contents) {
    Bytes out;
    if (tag.number < kNumberBits) {
        out.push_back(static_cast<uint8_t>(tag.form | tag.number));
    } else {
        out.push_back(tag.form | kNumberBits);
        appendBase128(out, tag.number);
    }
    const Bytes size = minimalBytes(contents.size());
    if (contents.size() > kDigitBits) out.push_back(static_cast<uint8_t>(kMore | size.size()));
    append(out, size);
    append(out, contents);
    return out;
}

Bytes concatenation(Tag tag, std::initializer_list<Bytes> parts) {
    Bytes contents;
    for (const Bytes& part : parts) append(contents, part);
    return item(tag, contents);
}

Bytes integer(uint64_t value, Tag tag) {
    constexpr uint8_t kSign = 0x80;
    Bytes digits = minimalBytes(value);
    if ((digits[0] & kSign) != 0) digits.insert(digits.begin(), 0);
    return item(tag, digits);
}

Bytes boolean(bool value) {
    return item(kBoolean, Bytes{value ? kTrue : uint8_t{0}});
}

Bytes objectIdentifier(std::initializer_list<uint32_t> arcs) {
    constexpr uint32_t kSecondArcs = 40;
    const uint32_t* arc = arcs.begin();
    Bytes contents;
    appendBase128(contents, arc[0] * kSecondArcs + arc[1]);
    for (arc += 2; arc != arcs.end(); ++arc) appendBase128(contents, *arc);
    return item(kObjectIdentifier, contents);
}

Bytes setOf(std::vector<Bytes> elements) {
    std::sort(elements.begin(), elements.end());
    elements.erase(std::unique(elements.begin(), elements.end()), elements.end());
    Bytes contents;
    for (const Bytes& element : elements) append(contents, element);
    return item(kSet, contents);
}

}  // namespace lumo::secureapp::der
