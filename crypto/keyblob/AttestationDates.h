// The validity dates that go along with a request to attest a key.
#pragma once

#include <hardware/keymaster_defs.h>

#include "KeymasterRecords.h"

namespace keymasterdevice {

// UTC dates of a key. The last three fields of both are always -1; a record that tells no date is
// -1 in all fields.
struct AttestationDates {
    tztm active;
    tztm expire;
};

inline bool tellsDate(const tztm& record) {
    return record.tm_sec != -1;
}

// Reads the dates from a blob of more than 394 bytes with the header of a key blob; any other blob
// gives none. A date that cannot be broken down is logged; without the active date there is no
// expiry date either. A key that does not expire gets 1969-12-31 23:59:59.
AttestationDates readAttestationDates(const keymaster_key_blob_t& key_blob);

}  // namespace keymasterdevice
