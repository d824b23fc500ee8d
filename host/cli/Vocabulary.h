// The vocabulary of tags: which words stand for their values, and the published names for printing.
#pragma once

#include <android/hardware/keymaster/4.1/types.h>

#include <cstdint>
#include <optional>
#include <string>

namespace lumo::cli {

namespace km = ::android::hardware::keymaster;

using km::V4_0::KeyParameter;
using km::V4_0::TagType;
// Tags are named by the newer list throughout; KeyParameter holds the older type.
using km::V4_1::Tag;

// What said in keymaster 3 that deleting a key is final: keys of such blobs have it still.
constexpr Tag kRollbackResistant{0x700002BF};

inline Tag tagOf(const KeyParameter& parameter) {
    return static_cast<Tag>(parameter.tag);
}

// The value type that a tag carries in its top bits.
TagType typeOf(Tag tag);
bool isRepeatable(Tag tag);

// The tag of a published name, in any case of letters and with or without "KM_TAG_", or of a number
// that parseNumber() takes. Nothing for any other text.
std::optional<Tag> tagNamed(const std::string& text);

// The published name, also of tags that only older keys have; any other as a hexadecimal number.
std::string nameOfTag(Tag tag);

// The words that an ENUM or ENUM_REP tag's value can be given in, joined by '|'.
std::string wordsFor(Tag tag);

// The value that a word stands for; the published names are understood too, in any case of letters.
// USER_AUTH_TYPE takes several words joined by '+'.
std::optional<uint32_t> valueOfWord(Tag tag, const std::string& word);

// The published name of an ENUM or ENUM_REP tag's value; unknown values as hexadecimal numbers.
std::string nameOfValue(Tag tag, uint32_t value);

// Decimal, or hexadecimal after 0x. Nothing if it is neither, or above `maximum`.
std::optional<uint64_t> parseNumber(const std::string& text, uint64_t maximum);

}  // namespace lumo::cli
