#include "KeyBlobReader.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "ByteReader.h"
#include "KeyBlobLayout.h"
#include "Log.h"
#include "Memory.h"
#include "PlatformTags.h"

namespace keymasterdevice {
namespace {

using namespace key_blob;  // NOLINT(google-build-using-namespace): the offsets of one layout

constexpr size_t kMaxEntries = 64;  // more than either set can have

// The log lines of a set whose number of entries is not the declared one.
struct CountMessages {
    const char* mismatch;
    const char* name;
};

constexpr CountMessages kHardwareMessages = {"teeparams mismatch", "teeParamsCount"};
constexpr CountMessages kSoftwareMessages = {"swParamsCount mismatch", "swParamsCount"};

// Collects one set of a blob that is long enough for its version. Every entry that the blob has is
// counted, but none is written past the declared number, and an array with more elements than room
// is not read.
class SetReader {
  public:
    SetReader(const ByteReader& blob, size_t count_offset)
        : blob_(blob),
          declared_(blob_.le32At(count_offset)),
          room_(std::min<size_t>(declared_, kMaxEntries)) {}

    [[nodiscard]] bool allocate() {
        // At least one byte, so that an empty set gets an array on every platform.
        const size_t bytes = std::max<size_t>(room_ * sizeof(keymaster_key_param_t), 1);
        params_.reset(static_cast<keymaster_key_param_t*>(std::malloc(bytes)));
        if (params_ != nullptr) return true;
        // Kept: the line names the hardware-enforced set whichever set it was.
        KM_LOG_ERROR(kDeviceLogTag, "hw_enforced allocation failed: %zu", declared_);
        return false;
    }

    // An entry for each element from `first` on; the word at `count_offset` is their number.
    void array(keymaster_tag_t tag, size_t first, size_t count_offset, uint32_t capacity) {
        const uint32_t count = blob_.le32At(count_offset);
        if (count > capacity) {
            overfull_ = true;
            written_ += count;
            return;
        }
        const size_t width = keymaster_tag_get_type(tag) == KM_ULONG_REP ? 8 : 4;
        for (uint32_t i = 0; i < count; ++i) value(tag, first + i * width);
    }

    void field(keymaster_tag_t tag, size_t flag, size_t offset) {
        if (blob_.byteAt(flag) != 0) value(tag, offset);
    }

    void boolean(keymaster_tag_t tag, size_t offset) {
        const uint8_t byte = blob_.byteAt(offset);
        if (byte == 0) return;
        keymaster_key_param_t param = {};
        param.tag = tag;
        // Kept: the byte is copied as it stands, so a true may be any value but 0.
        std::memcpy(&param.boolean, &byte, sizeof(byte));
        add(param);
    }

    // The value at `offset`, as wide as the tag's type says.
    void value(keymaster_tag_t tag, size_t offset) {
        const keymaster_tag_type_t type = keymaster_tag_get_type(tag);
        if (type == KM_ULONG || type == KM_ULONG_REP || type == KM_DATE) {
            add(keymaster_param_long(tag, blob_.le64At(offset)));
        } else {
            add(keymaster_param_int(tag, blob_.le32At(offset)));
        }
    }

    // Milliseconds, rounded down to the seconds of the tag.
    void millisecondsField(keymaster_tag_t tag, size_t flag, size_t offset) {
        if (blob_.byteAt(flag) != 0) add(keymaster_param_int(tag, blob_.le32At(offset) / 1000));
    }

    // Hands the array to `set` if it has what was declared.
    [[nodiscard]] keymaster_error_t finish(const CountMessages& messages,
                                           keymaster_key_param_set_t* set) {
        if (overfull_ || written_ != declared_) {
            KM_LOG_ERROR(kDeviceLogTag, "%s", messages.mismatch);
            KM_LOG_ERROR(kDeviceLogTag, "%s: %zu", messages.name, declared_);
            KM_LOG_ERROR(kDeviceLogTag, "%sTemp: %zu", messages.name, written_);
            return KM_ERROR_INVALID_ARGUMENT;
        }
        *set = {params_.release(), declared_};
        return KM_ERROR_OK;
    }

  private:
    void add(const keymaster_key_param_t& param) {
        if (written_ < room_) params_.get()[written_] = param;
        ++written_;
    }

    ByteReader blob_;
    size_t declared_;
    size_t room_;
    size_t written_ = 0;
    bool overfull_ = false;
    std::unique_ptr<keymaster_key_param_t, FreeDelete> params_;
};

// What the version of a blob says about its fields.
struct VersionRules {
    bool from_4_1;
    bool early_boot;
    size_t end;  // of the last field
};

VersionRules rulesFor(uint64_t version_number, EarlyBootRule rule) {
    if (version_number < version(4, 1)) return {false, false, kOldestEnd};
    // Kept: version 4.3 is left out, although 4.4 and everything later has the field.
    const bool early_boot = rule == EarlyBootRule::kRead && version_number > version(4, 2) &&
                            version_number != version(4, 3);
    return {true, early_boot, early_boot ? kEarlyBootEnd : kVersion41End};
}

keymaster_error_t readHardwareEnforced(const ByteReader& blob, const VersionRules& rules,
                                       keymaster_key_param_set_t* set) {
    SetReader entries(blob, kHwCount);
    if (!entries.allocate()) return KM_ERROR_MEMORY_ALLOCATION_FAILED;
    entries.array(KM_TAG_PURPOSE, kPurposes, kNumPurposes, kMaxPurposes);
    entries.array(KM_TAG_BLOCK_MODE, kBlockModes, kNumBlockModes, kMaxBlockModes);
    entries.array(KM_TAG_DIGEST, kDigests, kNumDigests, kMaxDigests);
    entries.array(KM_TAG_PADDING, kPaddings, kNumPaddings, kMaxPaddings);
    entries.array(KM_TAG_USER_SECURE_ID, kUserSecureIds, kNumUserSecureIds, kMaxUserSecureIds);
    entries.field(KM_TAG_ALGORITHM, kAlgorithmFlag, kAlgorithm);
    entries.field(KM_TAG_KEY_SIZE, kKeySizeFlag, kKeySize);
    entries.boolean(KM_TAG_CALLER_NONCE, kCallerNonce);
    entries.field(KM_TAG_MIN_MAC_LENGTH, kMinMacLengthFlag, kMinMacLength);
    entries.field(KM_TAG_EC_CURVE, kEcCurveFlag, kEcCurve);
    entries.field(KM_TAG_RSA_PUBLIC_EXPONENT, kRsaExponentFlag, kRsaExponent);
    entries.boolean(KM_TAG_INCLUDE_UNIQUE_ID, kIncludeUniqueId);
    entries.field(KM_TAG_BLOB_USAGE_REQUIREMENTS, kBlobUsageFlag, kBlobUsage);
    entries.field(KM_TAG_MIN_SECONDS_BETWEEN_OPS, kMinSecondsFlag, kMinSeconds);
    entries.field(KM_TAG_MAX_USES_PER_BOOT, kMaxUsesFlag, kMaxUses);
    entries.boolean(KM_TAG_ALL_USERS, kAllUsers);
    entries.boolean(KM_TAG_NO_AUTH_REQUIRED, kNoAuthRequired);
    entries.field(KM_TAG_USER_AUTH_TYPE, kUserAuthTypeFlag, kUserAuthType);
    if (rules.from_4_1) {
        entries.field(KM_TAG_AUTH_TIMEOUT, kAuthTimeoutFlag, kAuthTimeout);
    } else {
        entries.millisecondsField(KM_TAG_AUTH_TIMEOUT, kAuthTimeoutFlag, kAuthTimeout);
    }
    entries.boolean(KM_TAG_ALL_APPLICATIONS, kAllApplications);
    entries.boolean(KM_TAG_EXPORTABLE, kExportable);
    entries.field(KM_TAG_ORIGIN, kOriginFlag, kOrigin);
    entries.boolean(rules.from_4_1 ? kTagRollbackResistance : KM_TAG_ROLLBACK_RESISTANT, kRollback);
    entries.field(KM_TAG_OS_VERSION, kOsVersionFlag, kOsVersion);
    entries.field(KM_TAG_OS_PATCHLEVEL, kOsPatchLevelFlag, kOsPatchLevel);
    if (rules.from_4_1) {
        entries.field(kTagBootPatchlevel, kBootPatchLevelFlag, kBootPatchLevel);
        entries.field(kTagVendorPatchlevel, kVendorPatchLevelFlag, kVendorPatchLevel);
        entries.value(kTagHardwareType, kHardwareType);
        entries.boolean(kTagTrustedUserPresenceRequired, kUserPresence);
        entries.boolean(KM_TAG_TRUSTED_CONFIRMATION_REQUIRED, kUserConfirmation);
    }
    if (rules.early_boot) entries.boolean(kTagEarlyBootOnly, kEarlyBootOnly);
    return entries.finish(kHardwareMessages, set);
}

keymaster_error_t readSoftwareEnforced(const ByteReader& blob, const VersionRules& rules,
                                       keymaster_key_param_set_t* set) {
    SetReader entries(blob, kSwCount);
    if (!entries.allocate()) return KM_ERROR_MEMORY_ALLOCATION_FAILED;
    entries.field(KM_TAG_ACTIVE_DATETIME, kActiveDateFlag, kActiveDate);
    entries.field(KM_TAG_ORIGINATION_EXPIRE_DATETIME, kOriginationExpireFlag, kOriginationExpire);
    entries.field(KM_TAG_USAGE_EXPIRE_DATETIME, kUsageExpireFlag, kUsageExpire);
    entries.field(KM_TAG_USER_ID, kUserIdFlag, kUserId);
    entries.boolean(KM_TAG_ALLOW_WHILE_ON_BODY, kAllowWhileOnBody);
    if (rules.from_4_1) entries.boolean(KM_TAG_UNLOCKED_DEVICE_REQUIRED, kUnlockedDevice);
    entries.field(KM_TAG_CREATION_DATETIME, kCreationDateFlag, kCreationDate);
    return entries.finish(kSoftwareMessages, set);
}

}  // namespace

bool hasKeyBlobHeader(const keymaster_key_blob_t& blob) {
    ByteReader reader(blob.key_material, blob.key_material_size);
    const bool good = reader.le32At(kMagic) == kMagicValue && reader.le32At(kZero) == 0;
    return good && reader.ok();
}

keymaster_error_t readCharacteristics(const keymaster_key_blob_t& blob, EarlyBootRule rule,
                                      keymaster_key_characteristics_t* characteristics) {
    if (characteristics == nullptr) return KM_ERROR_OK;
    ByteReader reader(blob.key_material, blob.key_material_size);
    const VersionRules rules = rulesFor(reader.le64At(kVersion), rule);
    reader.require(rules.end);
    if (!reader.ok()) return KM_ERROR_INVALID_KEY_BLOB;

    const keymaster_error_t result =
        readHardwareEnforced(reader, rules, &characteristics->hw_enforced);
    if (result != KM_ERROR_OK) return result;
    return readSoftwareEnforced(reader, rules, &characteristics->sw_enforced);
}

}  // namespace keymasterdevice
