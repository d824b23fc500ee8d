#include "AuthTokenParams.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "ByteOrder.h"
#include "KmParamSet.h"
#include "Memory.h"

namespace keymaster::V4_0 {
namespace {

using ::android::hardware::hidl_vec;
using ::android::hardware::keymaster::V4_0::HardwareAuthToken;
using ::android::hardware::keymaster::V4_0::KeyParameter;
using ::keymasterdevice::storeBe32;
using ::keymasterdevice::storeBe64;

// Byte offsets in the record. The version at 0 is always 0.
constexpr size_t kChallenge = 1;
constexpr size_t kUserId = 9;
constexpr size_t kAuthenticatorId = 17;
constexpr size_t kAuthenticatorType = 25;
constexpr size_t kTimestamp = 29;
constexpr size_t kMac = 37;
constexpr size_t kRecordBytes = 69;

using Record = std::array<uint8_t, kRecordBytes>;

// As it stands in memory: challenge and identifiers keep the device's byte order.
void storeNative64(uint8_t* bytes, uint64_t value) {
    std::memcpy(bytes, &value, sizeof(value));
}

void fillRecord(const HardwareAuthToken& token, Record* zeroed) {
    uint8_t* record = zeroed->data();
    storeNative64(record + kChallenge, token.challenge);
    storeNative64(record + kUserId, token.userId);
    storeNative64(record + kAuthenticatorId, token.authenticatorId);
    storeBe32(record + kAuthenticatorType, static_cast<uint32_t>(token.authenticatorType));
    storeBe64(record + kTimestamp, token.timestamp);
    const size_t mac_length = std::min<size_t>(token.mac.size(), kRecordBytes - kMac);
    if (mac_length != 0) std::memcpy(record + kMac, token.mac.data(), mac_length);
}

}  // namespace

AuthTokenParams::AuthTokenParams(const hidl_vec<KeyParameter>& params,
                                 const HardwareAuthToken& token) {
    Record record{};
    const ::keymasterdevice::WipeAtExit wipe_record(record.data(), record.size());
    fillRecord(token, &record);
    // The set copies everything whenever it grows, so it is filled once.
    const KmParamSet borrowed(
        params, keymaster_param_blob(KM_TAG_AUTH_TOKEN, record.data(), record.size()));
    valid_ = set_.Reinitialize(borrowed.params, borrowed.length);
}

}  // namespace keymaster::V4_0
