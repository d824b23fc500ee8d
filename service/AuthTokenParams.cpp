#include "AuthTokenParams.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "KmParamSet.h"

namespace keymaster::V4_0 {
namespace {

using ::android::hardware::hidl_vec;
using ::android::hardware::keymaster::V4_0::HardwareAuthToken;
using ::android::hardware::keymaster::V4_0::KeyParameter;

// Byte offsets in the record. The version at 0 is always 0.
constexpr size_t kChallenge = 1;
constexpr size_t kUserId = 9;
constexpr size_t kAuthenticatorId = 17;
constexpr size_t kAuthenticatorType = 25;
constexpr size_t kTimestamp = 29;
constexpr size_t kMac = 37;
constexpr size_t kRecordBytes = 69;

using Record = std::array<uint8_t, kRecordBytes>;

// As it stands in memory: identifiers keep the device's byte order.
void storeNative(Record* record, size_t offset, uint64_t value) {
    std::memcpy(record->data() + offset, &value, sizeof(value));
}

void storeBigEndian(Record* record, size_t offset, uint64_t value, size_t size) {
    for (size_t i = 0; i < size; ++i) {
        (*record)[offset + i] = static_cast<uint8_t>(value >> (8 * (size - 1 - i)));
    }
}

Record toRecord(const HardwareAuthToken& token) {
    Record record{};
    storeNative(&record, kChallenge, token.challenge);
    storeNative(&record, kUserId, token.userId);
    storeNative(&record, kAuthenticatorId, token.authenticatorId);
    storeBigEndian(&record, kAuthenticatorType, static_cast<uint32_t>(token.authenticatorType), 4);
    storeBigEndian(&record, kTimestamp, token.timestamp, 8);
    const size_t mac_length = std::min<size_t>(token.mac.size(), kRecordBytes - kMac);
    if (mac_length != 0) std::memcpy(record.data() + kMac, token.mac.data(), mac_length);
    return record;
}

}  // namespace

AuthTokenParams::AuthTokenParams(const hidl_vec<KeyParameter>& params,
                                 const HardwareAuthToken& token) {
    const KmParamSet converted(params);
    const Record record = toRecord(token);
    valid_ = set_.Reinitialize(converted.params, converted.length) &&
             set_.push_back(keymaster_param_blob(KM_TAG_AUTH_TOKEN, record.data(), record.size()));
}

}  // namespace keymaster::V4_0
