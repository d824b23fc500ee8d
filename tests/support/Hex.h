// Bytes from hexadecimal digits and back.
#pragma once

#include <string>

#include "secureapp/base/Bytes.h"

namespace lumo::test {

// Whitespace between the digits is skipped.
secureapp::Bytes fromHex(const std::string& digits);
std::string toHex(secureapp::ByteView bytes);

}  // namespace lumo::test
