#include "AttestationDates.h"

#include <ctime>

#include "KeyBlobReader.h"
#include "Log.h"

namespace keymasterdevice {
namespace {

using namespace key_blob;  // NOLINT(google-build-using-namespace): the offsets of one layout

constexpr size_t kShortestBlobWithDates = 395;
constexpr uint64_t kNoExpiry = UINT64_MAX;  // -1 second, the last one of 1969

// Kept: seconds are cut to 32 bits, as the time_t of a 32-bit device is; hosts must agree with it.
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

bool hasDates(const KeyBlobView& blob) {
    return blob.holds(kShortestBlobWithDates) && blob.wordAt(kMagic) == kMagicValue &&
           blob.wordAt(kZero) == 0;
}

}  // namespace

AttestationDates readAttestationDates(const keymaster_key_blob_t& key_blob) {
    AttestationDates dates;
    const KeyBlobView blob(key_blob);
    if (!hasDates(blob)) return dates;

    // Kept: the flag of the active date is not asked; the field is taken whatever it says.
    if (!breakDown(blob.longAt(kActiveDate) / 1000, &dates.active)) {
        KM_LOG_ERROR(kDeviceLogTag, "activeDateTime handle is NULL");
        return dates;
    }
    // Kept: no expiry is told by the second before 1970, not by a record that tells no date.
    const bool expires = blob.byteAt(kUsageExpireFlag) != 0;
    if (!breakDown(expires ? blob.longAt(kUsageExpire) / 1000 : kNoExpiry, &dates.expire)) {
        KM_LOG_ERROR(kDeviceLogTag, "usageExpireDateTime handle is NULL");
    }
    return dates;
}

}  // namespace keymasterdevice
