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

// Whether the fields before the MAC have values of such a token, where the length is another one.
bool beginsLikeAuthToken(Window bytes);
bool beginsLikeVerificationToken(Window bytes);

// The binary form of a token that is one JSON object, as lumokm verify-authorization prints it:
// challenge and mac in hexadecimal digits, timestamp, securityLevel by its published name. Nothing
// for any other text.
std::optional<Bytes> verificationTokenOfJson(Window text);

Inspection inspectAuthToken(Window token);
Inspection inspectVerificationToken(Window token);

}  // namespace lumo::inspect
