#include "inspect/Der.h"

namespace lumo::inspect {

namespace {

constexpr uint8_t kConstructed = 0x20;
constexpr uint8_t kLongForm = 0x1F;
constexpr uint8_t kMore = 0x80;

const char* universalName(uint32_t number) {
    switch (number) {
        case kDerBoolean:
            return "BOOLEAN";
        case kDerInteger:
            return "INTEGER";
        case kDerBitString:
            return "BIT STRING";
        case kDerOctetString:
            return "OCTET STRING";
        case kDerNull:
            return "NULL";
        case kDerObjectIdentifier:
            return "OBJECT IDENTIFIER";
        case kDerEnumerated:
            return "ENUMERATED";
        case kDerUtf8String:
            return "UTF8String";
        case kDerSequence:
            return "SEQUENCE";
        case kDerSet:
            return "SET";
        case kDerUtcTime:
            return "UTCTime";
        case kDerGeneralizedTime:
            return "GeneralizedTime";
        default:
            return nullptr;
    }
}

bool isConstructedType(uint32_t number) {
    return number == kDerSequence || number == kDerSet;
}

}  // namespace

bool DerElement::is(DerNumber universal) const {
    return cls == DerClass::universal && number == universal &&
           constructed == isConstructedType(universal);
}

std::string DerElement::typeText() const {
    const std::string digits = std::to_string(number);
    switch (cls) {
        case DerClass::universal:
            break;
        case DerClass::context:
            return (constructed ? "[" : "primitive [") + digits + "]";
        case DerClass::application:
            return "[APPLICATION " + digits + "]";
        case DerClass::specific:
            return "[PRIVATE " + digits + "]";
    }
    const char* name = universalName(number);
    if (name == nullptr) return "universal element " + digits;
    if (constructed == isConstructedType(number)) return name;
    return (constructed ? "constructed " : "primitive ") + std::string(name);
}

std::optional<DerElement> DerReader::fail(const std::string& why, size_t at) {
    error_ = why;
    error_at_ = at;
    rest_ = rest_.sub(rest_.size());
    return std::nullopt;
}

std::optional<DerElement> DerReader::next() {
    const auto element = nextOrCut();
    if (!element || element->missing == 0) return element;
    const size_t there = element->content.size();
    return fail("its length is " + std::to_string(there + element->missing) + ", and " +
                    std::to_string(there) + (there == 1 ? " byte is" : " bytes are") +
                    " left for it",
                element->whole.offset());
}

std::optional<DerElement> DerReader::nextOrCut() {
    if (rest_.empty()) return std::nullopt;
    const size_t start = rest_.offset();
    DerElement element;
    const uint8_t first = rest_[0];
    element.cls = static_cast<DerClass>(first >> 6);
    element.constructed = (first & kConstructed) != 0;
    element.number = first & kLongForm;
    size_t at = 1;
    if (element.number == kLongForm) {
        element.number = 0;
        do {
            if (at >= rest_.size()) return fail("the element ends within its tag", start);
            if (element.number > UINT32_MAX >> 7)
                return fail("the tag's number is too large", start);
            if (at == 1 && rest_[at] == kMore) element.flaw = "its tag begins with a zero";
            element.number = element.number << 7 | (rest_[at] & 0x7FU);
        } while ((rest_[at++] & kMore) != 0);
        if (element.number < kLongForm) element.flaw = "its tag is not in the short form";
    }
    if (at >= rest_.size()) return fail("the element ends before its length", start);
    size_t length = rest_[at++];
    if (length == kMore) return fail("its length is indefinite", start);
    if (length > kMore) {
        const size_t width = length & 0x7FU;
        if (width > 4) return fail("its length has more than four bytes", start);
        if (!rest_.has(at, width)) return fail("the element ends within its length", start);
        length = static_cast<size_t>(rest_.big(at, width));
        if (length < kMore || length >> (8 * (width - 1)) == 0) {
            element.flaw = "its length is not in the fewest bytes";
        }
        at += width;
    }
    element.content = rest_.sub(at, length);
    element.whole = rest_.sub(0, at + element.content.size());
    element.missing = length - element.content.size();
    rest_ = rest_.sub(element.whole.size());
    return element;
}

DerNumberValue derUnsigned(Window content) {
    if (content.empty()) return {std::nullopt, "it has no bytes"};
    if ((content[0] & 0x80) != 0) return {std::nullopt, "it is negative"};
    size_t zeros = 0;
    while (zeros < content.size() && content[zeros] == 0) ++zeros;
    if (content.size() - zeros > 8) return {std::nullopt, "it has more than 64 bits"};
    // One zero stands before a top bit that would make the number negative, and for zero itself.
    const bool needed = content.size() == 1 || (content[1] & 0x80) != 0;
    return {content.big(zeros, content.size() - zeros),
            content[0] == 0 && !needed ? "it is not in the fewest bytes" : nullptr};
}

std::string derObjectIdentifier(Window content) {
    std::string text;
    uint64_t arc = 0;
    for (const uint8_t byte : content) {
        if (arc > UINT64_MAX >> 7) return "";
        arc = arc << 7 | (byte & 0x7FU);
        if ((byte & kMore) != 0) continue;
        if (text.empty()) {
            // The first two arcs share one number.
            const uint64_t top = arc < 40 ? 0 : arc < 80 ? 1 : 2;
            text = std::to_string(top) + "." + std::to_string(arc - 40 * top);
        } else {
            text += "." + std::to_string(arc);
        }
        arc = 0;
    }
    const bool whole = !content.empty() && (content[content.size() - 1] & kMore) == 0;
    return whole ? text : "";
}

}  // namespace lumo::inspect
