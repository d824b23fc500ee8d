// The part of a key blob that is not encrypted.
//
// All fields are little-endian and packed, so many are not aligned. Offsets are bytes from the
// start of the blob. A flag byte is 0 where its field is absent, and a boolean is its own flag. The
// bytes that are not listed are the secure application's and are not read.
#pragma once

#include <cstddef>
#include <cstdint>

namespace keymasterdevice::key_blob {

constexpr uint32_t kMagicValue = 0x4B4D4B44;  // "DKMK"

enum Offset : size_t {
    kMagic = 0,    // u32
    kZero = 4,     // u32, 0 where the magic is checked
    kVersion = 8,  // u64, the major version in the upper half

    kHwCount = 24,            // u32, entries of the hardware-enforced set
    kPurposes = 28,           // u32[kMaxPurposes]
    kNumPurposes = 48,        // u32
    kAlgorithmFlag = 52,      // u8
    kAlgorithm = 53,          // u32
    kKeySizeFlag = 57,        // u8
    kKeySize = 58,            // u32, bits
    kBlockModes = 62,         // u32[kMaxBlockModes]
    kNumBlockModes = 82,      // u32
    kDigests = 86,            // u32[kMaxDigests]
    kNumDigests = 118,        // u32
    kPaddings = 122,          // u32[kMaxPaddings]
    kNumPaddings = 154,       // u32
    kCallerNonce = 158,       // boolean
    kMinMacLengthFlag = 159,  // u8
    kMinMacLength = 160,      // u32, bits
    kEcCurveFlag = 164,       // u8
    kEcCurve = 165,           // u32
    kRsaExponentFlag = 169,   // u8
    kRsaExponent = 170,       // u64
    kIncludeUniqueId = 178,   // boolean
    kBlobUsageFlag = 179,     // u8
    kBlobUsage = 180,         // u32
    kMinSecondsFlag = 184,    // u8
    kMinSeconds = 185,        // u32
    kMaxUsesFlag = 189,       // u8
    kMaxUses = 190,           // u32
    kAllUsers = 194,          // boolean
    kUserSecureIds = 195,     // u64[kMaxUserSecureIds]
    kNumUserSecureIds = 235,  // u32
    kNoAuthRequired = 239,    // boolean
    kUserAuthTypeFlag = 240,  // u8
    kUserAuthType = 241,      // u32
    kAuthTimeoutFlag = 245,   // u8
    kAuthTimeout = 246,       // u32, milliseconds before version 4.1, seconds from then on
    kAllApplications = 250,   // boolean
    kExportable = 251,        // boolean
    kOriginFlag = 252,        // u8
    kOrigin = 253,            // u32
    kRollback = 257,          // boolean
    kOsVersionFlag = 258,     // u8
    kOsVersion = 259,         // u32
    kOsPatchLevelFlag = 263,  // u8
    kOsPatchLevel = 264,      // u32

    kSwCount = 273,                // u32, entries of the software-enforced set
    kActiveDateFlag = 277,         // u8
    kActiveDate = 278,             // u64; dates are milliseconds since 1970-01-01 UTC
    kOriginationExpireFlag = 286,  // u8
    kOriginationExpire = 287,      // u64
    kUsageExpireFlag = 295,        // u8
    kUsageExpire = 296,            // u64
    kUserIdFlag = 304,             // u8
    kUserId = 305,                 // u32
    kAllowWhileOnBody = 309,       // boolean
    kCreationDateFlag = 310,       // u8
    kCreationDate = 311,           // u64
    kOldestEnd = 319,

    // Version 4.1 and later. Here the flags of the patch levels follow their values.
    kHardwareType = 319,          // u32, has no flag
    kUserPresence = 323,          // boolean
    kUserConfirmation = 324,      // boolean
    kVendorPatchLevel = 325,      // u32
    kVendorPatchLevelFlag = 329,  // u8
    kBootPatchLevel = 330,        // u32
    kBootPatchLevelFlag = 334,    // u8
    kUnlockedDevice = 344,        // boolean
    kVersion41End = 345,

    // Versions above 4.2 other than 4.3.
    kEarlyBootOnly = 351,  // boolean
    kEarlyBootEnd = 352,
};

constexpr uint32_t kMaxPurposes = 5;
constexpr uint32_t kMaxBlockModes = 5;
constexpr uint32_t kMaxDigests = 8;
constexpr uint32_t kMaxPaddings = 8;
constexpr uint32_t kMaxUserSecureIds = 5;

static_assert(kNumPurposes == kPurposes + 4 * kMaxPurposes, "the count follows its array");
static_assert(kNumBlockModes == kBlockModes + 4 * kMaxBlockModes, "the count follows its array");
static_assert(kNumDigests == kDigests + 4 * kMaxDigests, "the count follows its array");
static_assert(kNumPaddings == kPaddings + 4 * kMaxPaddings, "the count follows its array");
static_assert(kNumUserSecureIds == kUserSecureIds + 8 * kMaxUserSecureIds,
              "the count follows its array");

constexpr uint64_t version(uint32_t major, uint32_t minor) {
    return uint64_t{major} << 32 | minor;
}

}  // namespace keymasterdevice::key_blob
