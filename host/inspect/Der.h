// DER (X.690) as a reader sees it that wants to say what is wrong: elements that can be told apart
// are read although they are not minimal, and what is not DER about them is noted.
#pragma once

#include <optional>

#include "inspect/Window.h"

namespace lumo::inspect {

enum class DerClass : uint8_t { universal = 0, application = 1, context = 2, specific = 3 };

// Identifiers of universal elements.
enum DerNumber : uint32_t {
    kDerBoolean = 1,
    kDerInteger = 2,
    kDerBitString = 3,
    kDerOctetString = 4,
    kDerNull = 5,
    kDerObjectIdentifier = 6,
    kDerEnumerated = 10,
    kDerUtf8String = 12,
    kDerSequence = 16,
    kDerSet = 17,
    kDerUtcTime = 23,
    kDerGeneralizedTime = 24,
};

struct DerElement {
    Window whole;
    Window content;
    DerClass cls = DerClass::universal;
    bool constructed = false;
    uint32_t number = 0;
    const char* flaw = nullptr;  // why the header is not DER, where it can be read nevertheless
    size_t missing = 0;  // bytes of the content that its length tells and that are not there

    // The universal element of that number in the form that DER gives it.
    bool is(DerNumber universal) const;
    // An element under the EXPLICIT context tag of any number.
    bool isContext() const { return cls == DerClass::context && constructed; }
    // "INTEGER", "[702]", "primitive SEQUENCE".
    std::string typeText() const;
};

// Reads the elements of a window, front to back.
class DerReader {
  public:
    explicit DerReader(Window bytes) : rest_(bytes) {}

    // Nothing at the end, and where the bytes are no element: then error() says why, and there is
    // no more to read.
    std::optional<DerElement> next();
    // The same, and of an element that is cut off what there is of it.
    std::optional<DerElement> nextOrCut();

    bool atEnd() const { return rest_.empty(); }
    Window rest() const { return rest_; }
    const char* error() const { return error_.empty() ? nullptr : error_.c_str(); }
    size_t errorAt() const { return error_at_; }

  private:
    std::optional<DerElement> fail(const std::string& why, size_t at);

    Window rest_;
    std::string error_;
    size_t error_at_ = 0;
};

// The value of a non-negative INTEGER or ENUMERATED of at most 64 bits, and what is wrong with it:
// without `value` it is negative, too large or empty.
struct DerNumberValue {
    std::optional<uint64_t> value;
    const char* flaw = nullptr;
};
DerNumberValue derUnsigned(Window content);

// "1.2.840.10045.2.1"; empty where the content is no object identifier.
std::string derObjectIdentifier(Window content);

}  // namespace lumo::inspect
