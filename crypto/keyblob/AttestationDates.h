// The validity dates that go along with a request to attest a key.
#pragma once

#include <hardware/keymaster_defs.h>

#include "KeymasterRecords.h"

namespace keymasterdevice {

// UTC dates of a key; a record without a date is -1 in all fields.
struct AttestationDates {
    tztm active;
    tztm expire;
};

inline bool hasDate(const tztm& record) {
    return record.tm_sec != -1;
}

// Reads the dates from a blob of at least 395 bytes with the header of a key blob; any other blob,
// a null one included, has none. A date that cannot be broken down is logged; without the active
// date there is no expiry date either. The expiry of a key without one is 1969-12-31 23:59:59.
AttestationDates readAttestationDates(const keymaster_key_blob_t& key_blob);

}  // namespace keymasterdevice
