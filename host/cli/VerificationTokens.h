// Verification tokens as files: what one secure element confirms to another.
#pragma once

#include <CLI/App.hpp>
#include <string>

#include "Client.h"

namespace lumo::cli {

// 56 bytes, all numbers little-endian: challenge (8), timestamp (8), security level (4), length of
// the MAC (4), which is 32, and the MAC. Without verified parameters, as no keymaster verifies any.
Bytes encodeVerificationToken(const km::V4_0::VerificationToken& token);

// --verification-token FILE.
void addVerificationToken(CLI::App& app, std::string& path);
// The token in such a file; the empty token if `path` is empty. Throws Failure.
km::V4_0::VerificationToken readVerificationToken(const std::string& path);

}  // namespace lumo::cli
