// X.509 certificates (RFC 5280), put together from DER so that every libcrypto makes the same ones.
#pragma once

#include <openssl/evp.h>

#include <string_view>

#include "secureapp/base/Bytes.h"

namespace lumo::secureapp {

// All but the serial number are whole DER items, to be copied as they are.
struct CertificateFields {
    uint64_t serial = 1;
    Bytes issuer;
    Bytes not_before;
    Bytes not_after;
    Bytes subject;
    Bytes public_key;  // SubjectPublicKeyInfo
    std::vector<Bytes> extensions;
};

// Version 3, signed with SHA-256 by an RSA or EC key.
Bytes signCertificate(const CertificateFields& fields, EVP_PKEY* issuer_key);

// What a subordinate certificate copies; KM_ERROR_INVALID_ARGUMENT for anything but a certificate.
// The views are into `certificate`.
struct IssuerFields {
    ByteView subject;
    ByteView not_after;
};
IssuerFields readIssuer(ByteView certificate);

// A Name of one common name, a Time (clamped to the year 9999) and extensions.
Bytes commonName(std::string_view name);
Bytes certificateTime(uint64_t millis);
Bytes extension(ByteView object_identifier, bool critical, ByteView value);

// Bits of the extension keyUsage, by their published number.
enum class KeyUsage : uint8_t {
    kDigitalSignature = 0,
    kKeyEncipherment = 2,
    kDataEncipherment = 3,
    kKeyCertSign = 5,
};
// At least one usage.
Bytes keyUsageExtension(const std::vector<KeyUsage>& usages);

// Which key is certified, and which one signed; verifiers distinguish issuers of one name by it.
Bytes subjectKeyIdentifierExtension(EVP_PKEY* key);
Bytes authorityKeyIdentifierExtension(EVP_PKEY* issuer_key);

}  // namespace lumo::secureapp
