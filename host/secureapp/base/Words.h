// Values of authorizations in words, for the reasons of refusals. The words are those that the
// client program takes.
#pragma once

#include <hardware/keymaster_defs.h>

#include <string>
#include <vector>

#include "secureapp/base/Bytes.h"

namespace lumo::secureapp {

// The published name without its prefix: "DIGEST". The number in hexadecimal for an unknown tag.
std::string tagName(keymaster_tag_t tag);

// An enumerator of the tag: "sha256", "gcm"; the number where the tag or the value is unknown.
std::string valueWord(keymaster_tag_t tag, uint64_t value);
// Several, separated by commas; "nothing" for none.
std::string valueWords(keymaster_tag_t tag, const std::vector<uint64_t>& values);

std::string algorithmWord(uint64_t algorithm);
std::string levelWord(keymaster_security_level_t level);

// Milliseconds since 1970 as a date and time in UTC.
std::string timeWords(uint64_t millis);

// "0x" and the digits: all 16 of an id above 32 bits, else without leading zeros.
std::string hexWord(uint64_t value);
// The first bytes of a long public value, to tell it from another one.
std::string startWords(ByteView bytes);

}  // namespace lumo::secureapp
