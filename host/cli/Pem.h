// PEM, as openssl reads and writes it.
#pragma once

#include <string>

#include "Bytes.h"

namespace lumo::cli {

constexpr char kPublicKeyLabel[] = "PUBLIC KEY";
constexpr char kCertificateLabel[] = "CERTIFICATE";

// One block with lines of 64 characters.
std::string toPem(const std::string& label, const Bytes& der);

// The DER of a PKCS#8 private key given as PEM or as DER already. Throws Failure, with what to do,
// for encrypted keys, other kinds of PEM and damaged text.
Bytes privateKeyDer(const Bytes& file);

}  // namespace lumo::cli
