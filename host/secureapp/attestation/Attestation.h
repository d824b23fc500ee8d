// What an attestation says about a key, and the certificate that says it.
#pragma once

#include <openssl/evp.h>

#include "secureapp/base/Params.h"
#include "secureapp/keys/AuthorizationList.h"

namespace lumo::secureapp {

// The content of the extension 1.3.6.1.4.1.11129.2.1.17.
struct KeyDescription {
    uint32_t attestation_version = 4;
    uint32_t keymaster_version = 41;
    uint32_t security_level = 0;
    Bytes challenge;
    Bytes unique_id;            // empty or 16 bytes
    ParamSet software;          // with the attestation application id
    ParamSet hardware;          // with the attested device ids
    RootOfTrust root_of_trust;  // encoded within the hardware list
};

Bytes encodeKeyDescription(const KeyDescription& description);

// `authorizations` are all of the key's; validity and key usage of the leaf follow from them.
struct LeafRequest {
    KeyDescription description;
    ParamSet authorizations;
    Bytes public_key;  // SubjectPublicKeyInfo
    uint64_t now = 0;  // wall clock in milliseconds, for a key without a creation date
};

// The certificate of an attested key, signed by the batch key.
Bytes makeLeafCertificate(const LeafRequest& request, EVP_PKEY* batch_key,
                          ByteView batch_certificate);

// 16 bytes that identify the device to one application for 30 days.
Bytes uniqueId(ByteView secret, uint64_t creation_millis, ByteView application_id,
               bool reset_since_rotation);

}  // namespace lumo::secureapp
