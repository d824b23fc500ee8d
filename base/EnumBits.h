// Enumerations that cross an interface, as 32-bit words.
//
// A client of the HIDL service, a caller of the device core and the secure application can send any
// 32-bit value as a purpose, a format, a level, a colour or an error code. The published C
// enumerations have no fixed underlying type, so a value beyond the bits of their largest
// enumerator cannot be held in them: reading such an object as the enumeration is undefined. Values
// are therefore copied into words right after they enter, handled as words, and copied back right
// before a signature wants the enumeration. A value without an enumerator passes unchanged.
#pragma once

#include <hardware/keymaster_defs.h>

#include <cstdint>
#include <cstring>
#include <type_traits>

namespace keymasterdevice {

// The bits of `value`, which is not read as an enumeration.
template <typename Enum>
uint32_t enumToBits(const Enum& value) {
    static_assert(std::is_enum<Enum>::value && sizeof(Enum) == 4, "travels as a 32-bit word");
    uint32_t bits = 0;
    std::memcpy(&bits, &value, sizeof(bits));
    return bits;
}

// Gives `*value` these bits.
template <typename Enum>
void storeEnum(Enum* value, uint32_t bits) {
    static_assert(std::is_enum<Enum>::value && sizeof(Enum) == 4, "travels as a 32-bit word");
    std::memcpy(value, &bits, sizeof(bits));
}

// An enumeration with these bits, for an argument or a return value. To store the result and read
// it again is to read it as the enumeration.
// Exempt from the check of enumerations: the return value itself is such a read.
template <typename Enum>
__attribute__((no_sanitize("enum"))) Enum enumFromBits(uint32_t bits) {
    Enum value;
    storeEnum(&value, bits);
    return value;
}

// An enumeration on its way into a by-value argument, directly or through templates that forward
// it: EnumArgument(purpose) in place of purpose.
template <typename Enum>
class EnumArgument {
  public:
    explicit EnumArgument(const Enum& value) : bits_(enumToBits(value)) {}
    operator Enum() const { return enumFromBits<Enum>(bits_); }

  private:
    uint32_t bits_;
};

// A keymaster_error_t as a word, signed as its enumerators are, so that the two compare directly.
using ErrorWord = int32_t;

inline ErrorWord errorToWord(const keymaster_error_t& error) {
    return static_cast<ErrorWord>(enumToBits(error));
}

inline keymaster_error_t errorFromWord(ErrorWord word) {
    return enumFromBits<keymaster_error_t>(static_cast<uint32_t>(word));
}

}  // namespace keymasterdevice
