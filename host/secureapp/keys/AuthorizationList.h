// Authorizations as the DER structure AuthorizationList, which attestations and wrapped keys share:
// a SEQUENCE of elements with EXPLICIT context tags, the tag's number, in rising order.
#pragma once

#include "secureapp/base/Params.h"

namespace lumo::secureapp {

// What the boot loader found. The state: 0 verified, 1 self-signed, 2 unverified, 3 failed.
struct RootOfTrust {
    Bytes verified_boot_key;
    bool device_locked = false;
    uint32_t verified_boot_state = 0;
    Bytes verified_boot_hash;
};

// The list of an attestation: the authorizations that its schema has a field for; the others are
// left out, since a reader of the fixed schema rejects the whole record. `version` is the
// attestation's: 4 has fields that 3 lacks. `root_of_trust` may be null.
Bytes encodeAttestedList(const ParamSet& params, const RootOfTrust* root_of_trust,
                         uint32_t version);

// `encoding` is the whole SEQUENCE. Reads every tag that a key can be created with and those that
// creation refuses by name; KM_ERROR_INVALID_ARGUMENT for any other, for malformed elements and for
// values too big for their tag. The root of trust is returned as its encoding.
ParamSet decodeAuthorizationList(ByteView encoding);

}  // namespace lumo::secureapp
