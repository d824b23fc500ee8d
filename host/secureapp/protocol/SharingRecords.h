// HMAC sharing parameters as they travel on either protocol: 64 bytes each, a 32-byte seed followed
// by a 32-byte nonce. The record cannot say that there is no seed: 32 zero bytes stand for none.
#pragma once

#include "secureapp/access/SharedHmac.h"
#include "secureapp/base/Bytes.h"

namespace lumo::secureapp {

constexpr size_t kSharingSeedBytes = 32;
constexpr size_t kSharingNonceBytes = 32;
constexpr size_t kSharingRecordBytes = kSharingSeedBytes + kSharingNonceBytes;

// The seed padded to its 32 bytes.
Bytes wireSeed(const HmacSharingParameters& parameters);

// Back-to-back records; KM_ERROR_INVALID_ARGUMENT when the bytes are no whole number of them.
std::vector<HmacSharingParameters> readSharingRecords(ByteView records);

}  // namespace lumo::secureapp
