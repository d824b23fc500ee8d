// What the tests of the CBOR layer share: hex, encoding into an exactly sized heap block, and the
// decoder's whole output as one line of text.
#pragma once

extern "C" {
#include <qcbor.h>
}

#include <string>
#include <vector>

using Bytes = std::vector<uint8_t>;
using Encode = void (*)(QCBOREncodeContext*);

Bytes fromHex(const std::string& hex);
std::string toHex(const void* data, size_t size);

// Finish's result as "!error", else what was encoded, in hex. The block has `capacity` bytes.
std::string encoded(Encode encode, size_t capacity);

// Every item as "level:label=value", blanks between them. Errors come as "!number"; decoding goes
// on to the end of the input, and Finish's result comes last unless it is 0. Inputs are copied to a
// heap block of their size, so that the address sanitizer sees a byte read outside.
std::string decoded(const Bytes& input, int8_t mode = QCBOR_DECODE_MODE_NORMAL);

// One of RFC 8949's examples: its bytes, its items, and how to encode it where that can be done.
struct Example {
    const char* hex;
    const char* items;
    Encode encode;
};
extern const std::vector<Example> kExamples;
