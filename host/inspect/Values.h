// Texts for what was found: values of authorizations, bytes, and names that came from outside.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "inspect/Window.h"

namespace lumo::inspect {

// Whether the tag is an enumeration that does not publish the value.
bool isUnknownValue(uint32_t tag, uint64_t value);

std::string hexText(Window bytes);
// Nothing where a character is no hexadecimal digit, or one is left over.
std::optional<Bytes> bytesOfHex(const std::string& digits);

// The characters between quotes where all of them can be printed, else hexadecimal digits; long
// ones are cut, with their length.
std::string bytesText(Window bytes);

// ASCII; any other character, which a terminal might obey, is shown as its number.
std::string printable(const std::string& text);

}  // namespace lumo::inspect
