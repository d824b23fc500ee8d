#include "inspect/KeyBlob.h"

#include <algorithm>

#include "inspect/Parameters.h"
#include "inspect/Values.h"

namespace lumo::inspect {

namespace {

constexpr char kMagic[] = {'D', 'K', 'M', 'K'};
constexpr size_t kSmallestAccepted = 395;  // of several callers

constexpr uint64_t versionOf(uint64_t major, uint64_t minor) {
    return major << 32 | minor;
}
constexpr uint64_t k4_1 = versionOf(4, 1);

// The first version that has a field. The last byte is left out by version 4.3.
enum class Since { always, v4_1, earlyBoot };

enum class Set { header, hardware, software, unread };

// All numbers are little-endian and packed. What a flag byte of 0 stands before (or, for the patch
// levels, behind) is not there; a boolean is its own flag.
struct Field {
    size_t at;
    size_t width;  // of one value
    const char* name;
    uint32_t tag;
    Set set;
    Since since;
    size_t flag;      // where its flag is; 0 without one
    size_t capacity;  // of an array, whose count follows it; 0 for one value
};

constexpr Field number(size_t at, size_t width, const char* name, Set set = Set::header) {
    return {at, width, name, 0, set, Since::always, 0, 0};
}
constexpr Field array(size_t at, size_t width, size_t capacity, const char* name, uint32_t tag) {
    return {at, width, name, tag, Set::hardware, Since::always, 0, capacity};
}
constexpr Field flagged(size_t at, size_t width, const char* name, uint32_t tag,
                        Set set = Set::hardware) {
    return {at, width, name, tag, set, Since::always, at - 1, 0};
}
constexpr Field boolean(size_t at, const char* name, Set set = Set::hardware,
                        Since since = Since::always) {
    return {at, 1, name, 0, set, since, at, 0};
}
constexpr Field unread(size_t at, size_t width, Since since = Since::always) {
    return {at, width, "not read", 0, Set::unread, since, 0, 0};
}

constexpr uint32_t kEnum = 0x10000000, kEnumRep = 0x20000000, kUint = 0x30000000;
constexpr uint32_t kUlong = 0x50000000, kDate = 0x60000000, kUlongRep = 0xA0000000;

// What does not follow from what was asked for.
constexpr uint32_t kCreationDate = kDate | 701;
constexpr uint32_t kVendorPatchLevel = kUint | 718, kBootPatchLevel = kUint | 719;

constexpr size_t kVersionAt = 8, kHardwareCountAt = 24, kSoftwareCountAt = 273;
constexpr size_t kAuthTimeoutAt = 246, kRollbackAt = 257, kEarlyBootAt = 351;
constexpr size_t kOldestEnd = 319, k4_1End = 345, kClearEnd = 352;

constexpr Field kFields[] = {
    number(0, 4, "magic"),
    number(4, 4, "zero"),
    number(8, 4, "version, minor"),
    number(12, 4, "version, major"),
    unread(16, 8),
    number(24, 4, "hardware-enforced entries"),
    array(28, 4, 5, "PURPOSE", kEnumRep | 1),
    flagged(53, 4, "ALGORITHM", kEnum | 2),
    flagged(58, 4, "KEY_SIZE", kUint | 3),
    array(62, 4, 5, "BLOCK_MODE", kEnumRep | 4),
    array(86, 4, 8, "DIGEST", kEnumRep | 5),
    array(122, 4, 8, "PADDING", kEnumRep | 6),
    boolean(158, "CALLER_NONCE"),
    flagged(160, 4, "MIN_MAC_LENGTH", kUint | 8),
    flagged(165, 4, "EC_CURVE", kEnum | 10),
    flagged(170, 8, "RSA_PUBLIC_EXPONENT", kUlong | 200),
    boolean(178, "INCLUDE_UNIQUE_ID"),
    flagged(180, 4, "BLOB_USAGE_REQUIREMENTS", kEnum | 301),
    flagged(185, 4, "MIN_SECONDS_BETWEEN_OPS", kUint | 403),
    flagged(190, 4, "MAX_USES_PER_BOOT", kUint | 404),
    boolean(194, "ALL_USERS"),
    array(195, 8, 5, "USER_SECURE_ID", kUlongRep | 502),
    boolean(239, "NO_AUTH_REQUIRED"),
    flagged(241, 4, "USER_AUTH_TYPE", kEnum | 504),
    flagged(kAuthTimeoutAt, 4, "AUTH_TIMEOUT", kUint | 505),
    boolean(250, "ALL_APPLICATIONS"),
    boolean(251, "EXPORTABLE"),
    flagged(253, 4, "ORIGIN", kEnum | 702),
    boolean(kRollbackAt, "ROLLBACK_RESISTANCE"),
    flagged(259, 4, "OS_VERSION", kUint | 705),
    flagged(264, 4, "OS_PATCHLEVEL", kUint | 706),
    unread(268, 5),
    number(273, 4, "software-enforced entries"),
    flagged(278, 8, "ACTIVE_DATETIME", kDate | 400, Set::software),
    flagged(287, 8, "ORIGINATION_EXPIRE_DATETIME", kDate | 401, Set::software),
    flagged(296, 8, "USAGE_EXPIRE_DATETIME", kDate | 402, Set::software),
    flagged(305, 4, "USER_ID", kUint | 501, Set::software),
    boolean(309, "ALLOW_WHILE_ON_BODY", Set::software),
    flagged(311, 8, "CREATION_DATETIME", kCreationDate, Set::software),
    {319, 4, "HARDWARE_TYPE", kEnum | 304, Set::hardware, Since::v4_1, 0, 0},
    boolean(323, "TRUSTED_USER_PRESENCE_REQUIRED", Set::hardware, Since::v4_1),
    boolean(324, "TRUSTED_CONFIRMATION_REQUIRED", Set::hardware, Since::v4_1),
    {325, 4, "VENDOR_PATCHLEVEL", kVendorPatchLevel, Set::hardware, Since::v4_1, 329, 0},
    {330, 4, "BOOT_PATCHLEVEL", kBootPatchLevel, Set::hardware, Since::v4_1, 334, 0},
    unread(335, 9, Since::v4_1),
    boolean(344, "UNLOCKED_DEVICE_REQUIRED", Set::software, Since::v4_1),
    unread(345, 6, Since::earlyBoot),
    boolean(kEarlyBootAt, "EARLY_BOOT_ONLY", Set::hardware, Since::earlyBoot),
};

bool hasField(const Field& field, uint64_t version) {
    switch (field.since) {
        case Since::always:
            return true;
        case Since::v4_1:
            return version >= k4_1;
        case Since::earlyBoot:
            return version > versionOf(4, 2) && version != versionOf(4, 3);
    }
    return false;
}

bool differsByNature(const Field& field) {
    return field.set == Set::unread || field.tag == kCreationDate ||
           field.tag == kVendorPatchLevel || field.tag == kBootPatchLevel;
}

// The bytes of the values, of an array with their number.
Window valuesOf(const Field& field, Window blob) {
    return blob.sub(field.at, field.capacity == 0 ? field.width : field.width * field.capacity + 4);
}

// The flag and the values, for people: "2: 2 (SIGN), 3 (VERIFY)".
std::string textOf(const Field& field, Window blob) {
    const size_t flag = field.flag == field.at ? 0 : field.flag;
    if (!blob.has(field.at, field.width)) return "behind the end";
    if (field.capacity == 0) {
        const uint64_t value = blob.little(field.at, field.width);
        if (flag != 0 && blob.little(flag, 1) == 0) {
            return value == 0 ? "absent" : "absent, with " + std::to_string(value);
        }
        return field.at == 0 ? bytesText(blob.sub(0, field.width)) : numberText(field.tag, value);
    }
    const uint64_t used = blob.little(field.at + field.width * field.capacity, 4);
    std::string text = std::to_string(used) + ":";
    for (size_t i = 0; i < field.capacity; ++i) {
        const uint64_t value = blob.little(field.at + i * field.width, field.width);
        if (i < used || value != 0) text += " " + numberText(field.tag, value);
    }
    return text;
}

// How many entries a reader finds in each set.
struct Counts {
    uint64_t hardware = 0;
    uint64_t software = 0;
    uint64_t early_boot = 0;  // of the hardware's, which only one rule reads
    bool overfull = false;
};

class BlobReader {
  public:
    explicit BlobReader(Window blob) : blob_(blob), version_(blob.little(kVersionAt, 8)) {}

    Inspection read() {
        for (const Field& field : kFields) {
            if (hasField(field, version_)) show(field);
        }
        const size_t end = std::min(endOfFields(), blob_.size());
        found_.items.emplace_back(blob_.sub(end), "the secure application's",
                                  std::to_string(blob_.size() - end) + " bytes");
        checkHeader();
        checkLength();
        checkCounts();
        return std::move(found_);
    }

  private:
    void fault(size_t byte, const std::string& why) {
        found_.faults.push_back({"", std::nullopt, byte, std::nullopt, why});
    }

    size_t endOfFields() const {
        if (version_ < k4_1) return kOldestEnd;
        return hasField(kFields[std::size(kFields) - 1], version_) ? kClearEnd : k4_1End;
    }

    void show(const Field& field) {
        if (!blob_.has(field.at, field.width)) return;
        if (field.capacity != 0) {
            showArray(field);
            return;
        }
        Item item(blob_.sub(field.at, field.width), field.name);
        if (field.set == Set::unread) {
            item.value = hexText(blob_.sub(field.at, field.width));
        } else if (field.flag != 0 && field.flag == field.at) {
            item.value = booleanText(field);
        } else if (field.flag != 0 && !flagOf(field)) {
            const uint64_t value = blob_.little(field.at, field.width);
            item.value = "absent" + (value == 0 ? "" : ", though it says " + std::to_string(value));
        } else {
            item.value = valueOf(field, field.at);
            count(field, 1);
        }
        if (field.at == kRollbackAt && version_ < k4_1) item.name = "ROLLBACK_RESISTANT";
        found_.items.push_back(std::move(item));
    }

    bool flagOf(const Field& field) {
        const uint64_t flag = blob_.little(field.flag, 1);
        if (flag > 1) {
            fault(field.flag, std::string("the flag of ") + field.name + " is " +
                                  std::to_string(flag) + ", not 0 or 1");
        }
        return flag != 0;
    }

    std::string booleanText(const Field& field) {
        const uint64_t value = blob_.little(field.at, 1);
        if (value > 1) {
            fault(field.at, std::string(field.name) + " is " + std::to_string(value) +
                                ", not 0 or 1; it is handed on as it stands");
        }
        if (value == 0) return "absent";
        count(field, 1);
        return "true";
    }

    std::string valueOf(const Field& field, size_t at) {
        const uint64_t value = blob_.little(at, field.width);
        if (at == 0) return bytesText(blob_.sub(0, sizeof(kMagic)));
        if (field.tag == 0) return std::to_string(value);
        if (isUnknownValue(field.tag, value)) {
            fault(at, std::to_string(value) + " is not a published " + field.name);
        }
        if (at == kAuthTimeoutAt && version_ < k4_1) {
            return std::to_string(value) + " ms, read as " + std::to_string(value / 1000) + " s";
        }
        return numberText(field.tag, value);
    }

    void showArray(const Field& field) {
        const size_t count_at = field.at + field.width * field.capacity;
        const uint64_t used = blob_.little(count_at, 4);
        Item item(blob_.sub(field.at, count_at + 4 - field.at), field.name,
                  used == 0 ? "none" : std::to_string(used));
        if (used > field.capacity) {
            counts_.overfull = true;
            fault(count_at, std::string("there are ") + std::to_string(used) + " of " + field.name +
                                ", and room for " + std::to_string(field.capacity));
        }
        for (size_t i = 0; i < std::min<uint64_t>(used, field.capacity); ++i) {
            const size_t at = field.at + i * field.width;
            item.add(Item(blob_.sub(at, field.width), std::to_string(i), valueOf(field, at)));
        }
        count(field, used);
        found_.items.push_back(std::move(item));
    }

    void count(const Field& field, uint64_t entries) {
        if (field.set == Set::hardware) counts_.hardware += entries;
        if (field.set == Set::software) counts_.software += entries;
        if (field.at == kEarlyBootAt) counts_.early_boot += entries;
    }

    void checkHeader() {
        if (!looksLikeKeyBlob(blob_)) {
            fault(0,
                  "it does not begin with \"DKMK\" (0x4b4d4b44); attestations would carry no dates "
                  "of it");
        } else if (blob_.little(4, 4) != 0) {
            fault(4, "the word after the magic is not 0; attestations would carry no dates of it");
        }
    }

    void checkLength() {
        if (blob_.size() < endOfFields()) {
            fault(blob_.size(), "it ends before byte " + std::to_string(endOfFields()) +
                                    ", where the fields of its version end");
        } else if (blob_.size() < kSmallestAccepted) {
            fault(blob_.size(), "calls over records refuse key blobs of less than " +
                                    std::to_string(kSmallestAccepted) + " bytes");
        }
    }

    void checkCounts() {
        const uint64_t hardware = blob_.little(kHardwareCountAt, 4);
        const uint64_t software = blob_.little(kSoftwareCountAt, 4);
        remark("over CBOR", hardware, counts_.hardware);
        remark("over records", hardware, counts_.hardware - counts_.early_boot);
        const bool any =
            hardware == counts_.hardware || hardware == counts_.hardware - counts_.early_boot;
        if (!any && !counts_.overfull) {
            fault(kHardwareCountAt, "it declares " + std::to_string(hardware) +
                                        " hardware-enforced entries and has " +
                                        std::to_string(counts_.hardware) +
                                        "; characteristics are refused (INVALID_ARGUMENT)");
        }
        if (blob_.size() >= kSoftwareCountAt + 4 && software != counts_.software) {
            fault(kSoftwareCountAt, "it declares " + std::to_string(software) +
                                        " software-enforced entries and has " +
                                        std::to_string(counts_.software) +
                                        "; characteristics are refused (INVALID_ARGUMENT)");
        }
    }

    // The two rules differ in one byte, which calls over records do not read.
    void remark(const std::string& rule, uint64_t declared, uint64_t found) {
        const bool good = declared == found && !counts_.overfull;
        found_.remarks.push_back("read " + rule + ": " + std::to_string(found) + " of " +
                                 std::to_string(declared) + " hardware-enforced entries" +
                                 (good ? "" : ", refused"));
    }

    Window blob_;
    uint64_t version_;
    Counts counts_;
    Inspection found_;
};

}  // namespace

bool looksLikeKeyBlob(Window bytes) {
    return bytes.size() >= sizeof(kMagic) &&
           std::equal(kMagic, kMagic + sizeof(kMagic), bytes.data());
}

Inspection inspectKeyBlob(Window blob) {
    return BlobReader(blob).read();
}

std::string keyBlobDifference(Window recorded, Window here) {
    const uint64_t version = recorded.little(kVersionAt, 8);
    for (const auto& field : kFields) {
        if (!hasField(field, version) || differsByNature(field)) continue;
        const bool flags_differ =
            field.flag != 0 && recorded.sub(field.flag, 1) != here.sub(field.flag, 1);
        if (!flags_differ && valuesOf(field, recorded) == valuesOf(field, here)) continue;
        return std::string(field.name) + " (byte " + std::to_string(field.at) +
               " of the key blob) is " + textOf(field, here) + ", recorded is " +
               textOf(field, recorded);
    }
    return "";
}

}  // namespace lumo::inspect
