#include "KeyBlobReader.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "Log.h"
#include "Memory.h"

namespace keymasterdevice {
namespace {

using namespace key_blob;  // NOLINT(google-build-using-namespace): the offsets of one layout

constexpr size_t kMaxEntries = 64;  // more than either set can have

// The words of the log lines, which differ from set to set.
struct SetMessages {
    const char* mismatch;
    const char* count_name;
};

constexpr SetMessages kHardwareMessages = {"teeparams mismatch", "teeParamsCount"};
constexpr SetMessages kSoftwareMessages = {"swParamsCount mismatch", "swParamsCount"};

// Collects one set. Every entry that the blob announces is counted, but none is written past the
// declared number, and an array with more elements than room is not read.
class EntryWriter {
  public:
    EntryWriter(const KeyBlobView& blob, size_t declared)
        : blob_(blob), declared_(declared), room_(std::min<size_t>(declared, kMaxEntries)) {}

    bool allocate() {
        // At least one byte, so that an empty set gets an array on every platform.
        const size_t bytes = std::max<size_t>(room_ * sizeof(keymaster_key_param_t), 1);
        params_.reset(static_cast<keymaster_key_param_t*>(malloc(bytes)));
        return params_ != nullptr;
    }

    void array(keymaster_tag_t tag, size_t first, size_t count_offset, uint32_t capacity) {
        const uint32_t count = blob_.wordAt(count_offset);
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
        if (blob_.byteAt(offset) != 0) value(tag, offset);
    }

    void integer(keymaster_tag_t tag, uint32_t number) { add(keymaster_param_int(tag, number)); }

    // Adds the value at `offset`, read as wide as the tag's type says.
    void value(keymaster_tag_t tag, size_t offset) {
        keymaster_key_param_t param = {};
        param.tag = tag;
        switch (keymaster_tag_get_type(tag)) {
            case KM_BOOL: {
                // Kept: the byte is copied as it stands, so a true may be any value but 0.
                const uint8_t byte = blob_.byteAt(offset);
                std::memcpy(&param.boolean, &byte, sizeof(byte));
                break;
            }
            case KM_ULONG:
            case KM_ULONG_REP:
            case KM_DATE:
                param.long_integer = blob_.longAt(offset);
                break;
            default:
                param.integer = blob_.wordAt(offset);
        }
        add(param);
    }

    // Hands the array to `set` if it has what was declared.
    keymaster_error_t finish(const SetMessages& messages, keymaster_key_param_set_t* set) {
        if (overfull_ || written_ != declared_) {
            logMismatch(messages);
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

    void logMismatch(const SetMessages& messages) const {
        const char* name = messages.count_name;
        KM_LOG_ERROR(kDeviceLogTag, "%s", messages.mismatch);
        KM_LOG_ERROR(kDeviceLogTag, "%s: %zu", name, declared_);
        KM_LOG_ERROR(kDeviceLogTag, "%sTemp: %zu", name, written_);
    }

    const KeyBlobView& blob_;
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

void addAuthTimeout(const KeyBlobView& blob, const VersionRules& rules, EntryWriter& entries) {
    if (blob.byteAt(kAuthTimeoutFlag) == 0) return;
    const uint32_t timeout = blob.wordAt(kAuthTimeout);
    entries.integer(KM_TAG_AUTH_TIMEOUT, rules.from_4_1 ? timeout : timeout / 1000);
}

void addHardwareEnforced(const KeyBlobView& blob, const VersionRules& rules, EntryWriter& entries) {
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
    addAuthTimeout(blob, rules, entries);
    entries.boolean(KM_TAG_ALL_APPLICATIONS, kAllApplications);
    entries.boolean(KM_TAG_EXPORTABLE, kExportable);
    entries.field(KM_TAG_ORIGIN, kOriginFlag, kOrigin);
    entries.boolean(rules.from_4_1 ? KM_TAG_ROLLBACK_RESISTANCE : KM_TAG_ROLLBACK_RESISTANT,
                    kRollback);
    entries.field(KM_TAG_OS_VERSION, kOsVersionFlag, kOsVersion);
    entries.field(KM_TAG_OS_PATCHLEVEL, kOsPatchLevelFlag, kOsPatchLevel);
    if (rules.from_4_1) {
        entries.field(KM_TAG_BOOT_PATCHLEVEL, kBootPatchLevelFlag, kBootPatchLevel);
        entries.field(KM_TAG_VENDOR_PATCHLEVEL, kVendorPatchLevelFlag, kVendorPatchLevel);
        entries.value(KM_TAG_HARDWARE_TYPE, kHardwareType);
        entries.boolean(KM_TAG_TRUSTED_USER_PRESENCE_REQUIRED, kUserPresence);
        entries.boolean(KM_TAG_TRUSTED_CONFIRMATION_REQUIRED, kUserConfirmation);
    }
    if (rules.early_boot) entries.boolean(KM_TAG_EARLY_BOOT_ONLY, kEarlyBootOnly);
}

void addSoftwareEnforced(const VersionRules& rules, EntryWriter& entries) {
    entries.field(KM_TAG_ACTIVE_DATETIME, kActiveDateFlag, kActiveDate);
    entries.field(KM_TAG_ORIGINATION_EXPIRE_DATETIME, kOriginationExpireFlag, kOriginationExpire);
    entries.field(KM_TAG_USAGE_EXPIRE_DATETIME, kUsageExpireFlag, kUsageExpire);
    entries.field(KM_TAG_USER_ID, kUserIdFlag, kUserId);
    entries.boolean(KM_TAG_ALLOW_WHILE_ON_BODY, kAllowWhileOnBody);
    if (rules.from_4_1) entries.boolean(KM_TAG_UNLOCKED_DEVICE_REQUIRED, kUnlockedDevice);
    entries.field(KM_TAG_CREATION_DATETIME, kCreationDateFlag, kCreationDate);
}

template <typename Fill>
keymaster_error_t readSet(const KeyBlobView& blob, size_t count_offset, const SetMessages& messages,
                          keymaster_key_param_set_t* set, Fill fill) {
    const size_t declared = blob.wordAt(count_offset);
    EntryWriter entries(blob, declared);
    if (!entries.allocate()) {
        // Kept: the line names the hardware-enforced set whichever set it was.
        KM_LOG_ERROR(kDeviceLogTag, "hw_enforced allocation failed: %zu", declared);
        return KM_ERROR_MEMORY_ALLOCATION_FAILED;
    }
    fill(entries);
    return entries.finish(messages, set);
}

}  // namespace

uint64_t KeyBlobView::little(size_t offset, size_t width) const {
    uint64_t value = 0;
    for (size_t i = width; i > 0; --i) value = value << 8 | bytes_[offset + i - 1];
    return value;
}

keymaster_error_t readCharacteristics(const keymaster_key_blob_t& blob, EarlyBootRule rule,
                                      keymaster_key_characteristics_t* characteristics) {
    if (characteristics == nullptr) return KM_ERROR_OK;
    const KeyBlobView view(blob);
    if (!view.holds(kOldestEnd)) return KM_ERROR_INVALID_KEY_BLOB;
    const VersionRules rules = rulesFor(view.longAt(kVersion), rule);
    if (!view.holds(rules.end)) return KM_ERROR_INVALID_KEY_BLOB;

    const keymaster_error_t result =
        readSet(view, kHwCount, kHardwareMessages, &characteristics->hw_enforced,
                [&](EntryWriter& entries) { addHardwareEnforced(view, rules, entries); });
    if (result != KM_ERROR_OK) return result;
    return readSet(view, kSwCount, kSoftwareMessages, &characteristics->sw_enforced,
                   [&](EntryWriter& entries) { addSoftwareEnforced(rules, entries); });
}

}  // namespace keymasterdevice
