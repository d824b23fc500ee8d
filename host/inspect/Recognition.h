// Looks at a file without knowing what it is.
#pragma once

#include "inspect/Item.h"
#include "inspect/Message.h"

namespace lumo::inspect {

// What the user knows of it.
struct Hints {
    std::string kind;                      // one of kindNames(); empty: by its content
    const CommandInfo* command = nullptr;  // of a message
    std::optional<Side> side;              // of a message; without it a request
};

// "key-blob, chain, ...": for messages.
std::string kindNames();
bool isKind(const std::string& name);

// Nothing where the content is not recognised; then `why` says what is missing. Hexadecimal text is
// taken for the bytes that it stands for.
std::optional<Inspection> inspectBytes(Window bytes, const Hints& hints, std::string& why);

}  // namespace lumo::inspect
