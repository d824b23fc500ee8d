// A decoder's whole output as one line of text.
#pragma once

extern "C" {
#include <qcbor.h>
}

#include <string>
#include <vector>

#include "Hex.h"

using Bytes = std::vector<uint8_t>;

using lumo::test::fromHex;
using lumo::test::toHex;

// Every item as "level:label=value " and errors as "!number ", to the end of the input; then
// "finish!number" unless Finish returns 0. The input is copied to a heap block of its size, so that
// the address sanitizer sees a byte read outside.
std::string decoded(const Bytes& input, int8_t mode = QCBOR_DECODE_MODE_NORMAL);
