// X.509 certificates (RFC 5280), as far as attestations use them.
#pragma once

#include "inspect/AuthorizationList.h"

namespace lumo::inspect {

struct Moment {
    Window where;
    std::string text;                 // as it stands
    std::optional<uint64_t> seconds;  // since 1970-01-01 UTC
};

struct Extension {
    std::string oid;
    bool critical = false;
    Window where;
    Window value;  // within its OCTET STRING
};

// The windows are whole elements unless something else is said; bytes count from the certificate's
// first one.
struct Certificate {
    Window der;
    Number version;  // as encoded: 2 stands for version 3
    Window serial;   // the content of the INTEGER
    Window algorithm;
    Window outer_algorithm;
    Window issuer;
    Window subject;
    Moment not_before;
    Moment not_after;
    Window public_key;
    std::vector<Extension> extensions;
    bool whole = false;  // all of the above could be read

    const Extension* find(const std::string& oid) const;
};

inline constexpr char kKeyUsageOid[] = "2.5.29.15";
inline constexpr char kBasicConstraintsOid[] = "2.5.29.19";
inline constexpr char kSubjectKeyIdOid[] = "2.5.29.14";
inline constexpr char kAuthorityKeyIdOid[] = "2.5.29.35";

// Faults break rule::kForm.
Certificate readCertificate(Window der, FaultList& faults);

// The certificates of a file, PEM or DER, one behind the other; empty where there is none, with the
// reason in `error`. A DER file that goes on with something else ends with that as a certificate.
std::vector<Bytes> splitCertificates(Window file, std::string& error);

// The SubjectPublicKeyInfo of a public key's file, PEM or DER; empty where it is none.
Bytes publicKeyInfo(Window file);

Item describe(const Certificate& certificate);

// "CN=Android Keystore Key"; printable.
std::string nameText(Window name);
// "sha256WithRSAEncryption"; the number of one that is not known.
std::string algorithmText(Window algorithm_identifier);
// The number of the AlgorithmIdentifier's algorithm.
std::string algorithmOid(Window algorithm_identifier);

}  // namespace lumo::inspect
