// The CBOR helpers, called step by step on one message.
#pragma once

#include <string>

#include "ScriptedTransport.h"

namespace lumo::test {

// Takes `message` apart: map, array, bool, uint64, int64, uint32, int32, uint8, bytes and text,
// each alone or with a label, map(5) or map(.ab). Tells what each step gave, or the reader's error.
std::string readCbor(const Bytes& message, const std::string& steps);

// Puts a message together: map and array, alone or with a label, and close. Tells its bytes.
std::string writeCbor(const std::string& steps);

}  // namespace lumo::test
