// Tokens that authenticators and keymasters sign for each other, as files.
#pragma once

#include "inspect/Item.h"

namespace lumo::inspect {

inline constexpr size_t kAuthTokenBytes = 69;
inline constexpr size_t kVerificationTokenBytes = 56;  // with its MAC
inline constexpr size_t kUnsignedVerificationTokenBytes = 24;

// Whether the bytes have the length and the version of an auth token.
bool looksLikeAuthToken(Window bytes);
// Whether the bytes have a length, and tell a length of their MAC, that verification tokens have.
bool looksLikeVerificationToken(Window bytes);

Inspection inspectAuthToken(Window token);
Inspection inspectVerificationToken(Window token);

}  // namespace lumo::inspect
