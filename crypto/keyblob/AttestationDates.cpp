#include "AttestationDates.h"

#include <ctime>

#include "ByteReader.h"
#include "KeyBlobLayout.h"
#include "KeyBlobReader.h"
#include "Log.h"

namespace keymasterdevice {
namespace {

using namespace key_blob;  // NOLINT(google-build-using-namespace): the offsets of one layout

constexpr size_t kMinBytesWithDates = 395;
constexpr uint64_t kNoExpiry = UINT64_MAX;  // as 32 bits -1: the last second of 1969

// Kept: seconds are cut to 32 bits, the width of time_t on a 32-bit device, so that every host
// gives the same date.
bool breakDown(uint64_t seconds, tztm* date) {
    const time_t time = static_cast<int32_t>(static_cast<uint32_t>(seconds));
    const tm* utc = gmtime(&time);
    if (utc == nullptr) return false;
    date->tm_sec = utc->tm_sec;
    date->tm_min = utc->tm_min;
    date->tm_hour = utc->tm_hour;
    date->tm_mday = utc->tm_mday;
    date->tm_mon = utc->tm_mon + 1;
    date->tm_year = utc->tm_year + 1900;
    return true;
}

uint64_t secondsAt(ByteReader& blob, size_t offset) {
    return blob.le64At(offset) / 1000;
}

}  // namespace

AttestationDates readAttestationDates(const keymaster_key_blob_t& key_blob) {
    AttestationDates dates;
    ByteReader blob(key_blob.key_material, key_blob.key_material_size);
    blob.require(kMinBytesWithDates);
    if (!blob.ok() || !hasKeyBlobHeader(key_blob)) return dates;

    // Kept: the flag of the active date is not read; the field counts whatever it says.
    if (!breakDown(secondsAt(blob, kActiveDate), &dates.active)) {
        KM_LOG_ERROR(kDeviceLogTag, "activeDateTime handle is NULL");
        return dates;
    }
    // Kept: a key without expiry sends 1969-12-31, not a record without a date.
    const bool expires = blob.byteAt(kUsageExpireFlag) != 0;
    if (!breakDown(expires ? secondsAt(blob, kUsageExpire) : kNoExpiry, &dates.expire)) {
        KM_LOG_ERROR(kDeviceLogTag, "usageExpireDateTime handle is NULL");
    }
    return dates;
}

}  // namespace keymasterdevice
