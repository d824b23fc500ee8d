#include "secureapp/keys/KeyBlob.h"

#include <algorithm>
#include <iterator>
#include <optional>

#include "secureapp/base/Refusal.h"
#include "secureapp/base/Secret.h"
#include "secureapp/base/Words.h"
#include "secureapp/crypto/AesGcm.h"
#include "secureapp/crypto/Digest.h"

namespace lumo::secureapp {
namespace {

constexpr uint32_t kMagic = 0x4B4D4B44;
constexpr size_t kMagicAt = 0;
constexpr size_t kVersionMinorAt = 8;
constexpr size_t kVersionMajorAt = 12;
constexpr size_t kHardwareCountAt = 24;
constexpr size_t kSoftwareCountAt = 273;
constexpr size_t kClearBytes = 352;

constexpr size_t kNonceBytes = 12;
constexpr size_t kTagBytes = 16;
constexpr size_t kSealedAt = kClearBytes + kNonceBytes;
// Id, the lengths of material and authorizations.
constexpr size_t kMinSealedBytes = kKeyIdBytes + 4 + 4;
static_assert(kSealedAt + kMinSealedBytes + kTagBytes > kMaxRefusedBlobBytes,
              "the HAL accepts the smallest blob");

constexpr uint64_t kMillisPerSecond = 1000;

// Which versions have a field.
enum class Since { kAlways, k4_1, k4_4 };

enum class List { kHardware, kSoftware };

// A repeatable tag: `capacity` elements of `width` bytes at `values`, the number in use at `count`.
struct ArrayField {
    keymaster_tag_t tag;
    uint32_t capacity;
    size_t values;
    size_t count;
    size_t width;
};

// A tag that occurs once. `flag` says that it is there; a boolean's flag is its value, and the
// hardware type has no flag (kNoFlag): it is always there.
struct Field {
    keymaster_tag_t tag;
    size_t flag;
    size_t value;
    size_t width;
    List list;
    Since since;
};
constexpr size_t kNoFlag = 0;

constexpr ArrayField kArrays[] = {
    {KM_TAG_PURPOSE, 5, 28, 48, 4},          {KM_TAG_BLOCK_MODE, 5, 62, 82, 4},
    {KM_TAG_DIGEST, 8, 86, 118, 4},          {KM_TAG_PADDING, 8, 122, 154, 4},
    {KM_TAG_USER_SECURE_ID, 5, 195, 235, 8},  // 64-bit
};

constexpr Field flagged(keymaster_tag_t tag, size_t flag, size_t width,
                        List list = List::kHardware) {
    return {tag, flag, flag + 1, width, list, Since::kAlways};
}
constexpr Field boolean(keymaster_tag_t tag, size_t at, List list = List::kHardware,
                        Since since = Since::kAlways) {
    return {tag, at, at, 1, list, since};
}

constexpr Field kFields[] = {
    flagged(KM_TAG_ALGORITHM, 52, 4),
    flagged(KM_TAG_KEY_SIZE, 57, 4),
    boolean(KM_TAG_CALLER_NONCE, 158),
    flagged(KM_TAG_MIN_MAC_LENGTH, 159, 4),
    flagged(KM_TAG_EC_CURVE, 164, 4),
    flagged(KM_TAG_RSA_PUBLIC_EXPONENT, 169, 8),
    boolean(KM_TAG_INCLUDE_UNIQUE_ID, 178),
    flagged(KM_TAG_BLOB_USAGE_REQUIREMENTS, 179, 4),
    flagged(KM_TAG_MIN_SECONDS_BETWEEN_OPS, 184, 4),
    flagged(KM_TAG_MAX_USES_PER_BOOT, 189, 4),
    boolean(KM_TAG_ALL_USERS, 194),
    boolean(KM_TAG_NO_AUTH_REQUIRED, 239),
    flagged(KM_TAG_USER_AUTH_TYPE, 240, 4),
    flagged(KM_TAG_AUTH_TIMEOUT, 245, 4),
    boolean(KM_TAG_ALL_APPLICATIONS, 250),
    boolean(KM_TAG_EXPORTABLE, 251),
    flagged(KM_TAG_ORIGIN, 252, 4),
    boolean(KM_TAG_ROLLBACK_RESISTANCE, 257),
    flagged(KM_TAG_OS_VERSION, 258, 4),
    flagged(KM_TAG_OS_PATCHLEVEL, 263, 4),
    // These two flags follow their values.
    {kTagBootPatchlevel, 334, 330, 4, List::kHardware, Since::k4_1},
    {kTagVendorPatchlevel, 329, 325, 4, List::kHardware, Since::k4_1},
    {kTagHardwareType, kNoFlag, 319, 4, List::kHardware, Since::k4_1},
    boolean(kTagTrustedUserPresenceRequired, 323, List::kHardware, Since::k4_1),
    boolean(KM_TAG_TRUSTED_CONFIRMATION_REQUIRED, 324, List::kHardware, Since::k4_1),
    boolean(KM_TAG_EARLY_BOOT_ONLY, 351, List::kHardware, Since::k4_4),
    flagged(KM_TAG_ACTIVE_DATETIME, 277, 8, List::kSoftware),
    flagged(KM_TAG_ORIGINATION_EXPIRE_DATETIME, 286, 8, List::kSoftware),
    flagged(KM_TAG_USAGE_EXPIRE_DATETIME, 295, 8, List::kSoftware),
    flagged(KM_TAG_USER_ID, 304, 4, List::kSoftware),
    boolean(KM_TAG_ALLOW_WHILE_ON_BODY, 309, List::kSoftware),
    boolean(KM_TAG_UNLOCKED_DEVICE_REQUIRED, 344, List::kSoftware, Since::k4_1),
    flagged(KM_TAG_CREATION_DATETIME, 310, 8, List::kSoftware),
};

bool hasField(const Field& field, uint64_t version) {
    switch (field.since) {
        case Since::kAlways:
            return true;
        case Since::k4_1:
            return version >= kBlobVersion4_1;
        case Since::k4_4:
            return reportsEarlyBoot(version);
    }
    return false;
}

// Old blobs keep the auth timeout in milliseconds.
uint64_t unitsPerStored(const Field& field, uint64_t version) {
    return field.tag == KM_TAG_AUTH_TIMEOUT && version < kBlobVersion4_1 ? kMillisPerSecond : 1;
}

// The same byte stands for the older tag in old blobs.
keymaster_tag_t reportedTag(const Field& field, uint64_t version) {
    if (field.tag == KM_TAG_ROLLBACK_RESISTANCE && version < kBlobVersion4_1) {
        return KM_TAG_ROLLBACK_RESISTANT;
    }
    return field.tag;
}

uint64_t maxOf(size_t width) {
    return width == 8 ? UINT64_MAX : (uint64_t{1} << (8 * width)) - 1;
}

void appendPrefixed(Bytes& to, ByteView bytes) {
    appendLittle(to, bytes.size(), 8);
    append(to, bytes);
}

// Fills the clear part and collects what has no field in it.
class ClearWriter {
  public:
    ClearWriter(uint64_t version, bool early_boot_byte)
        : version_(version), early_boot_byte_(early_boot_byte) {
        storeLittle(clear_.data() + kMagicAt, kMagic, 4);
        storeLittle(clear_.data() + kVersionMinorAt, version & UINT32_MAX, 4);
        storeLittle(clear_.data() + kVersionMajorAt, version >> 32, 4);
    }

    void write(const Param& param) {
        if (!writeElement(param) && !writeField(param)) sealed_.add(param);
    }

    const Bytes& finish() {
        storeLittle(clear_.data() + kHardwareCountAt, hardware_count_, 4);
        storeLittle(clear_.data() + kSoftwareCountAt, software_count_, 4);
        return clear_;
    }

    const ParamSet& sealed() const { return sealed_; }

  private:
    bool writeElement(const Param& param) {
        for (const ArrayField& array : kArrays) {
            if (array.tag != param.tag) continue;
            const uint64_t used = loadLittle(clear_.data() + array.count, 4);
            if (used == array.capacity || param.integer > maxOf(array.width)) return false;
            storeLittle(clear_.data() + array.values + used * array.width, param.integer,
                        array.width);
            storeLittle(clear_.data() + array.count, used + 1, 4);
            ++hardware_count_;
            return true;
        }
        return false;
    }

    bool writeField(const Param& param) {
        for (const Field& field : kFields) {
            if (field.tag != param.tag || !usable(field)) continue;
            const uint64_t units = unitsPerStored(field, version_);
            if (param.integer > maxOf(field.width) / units) return false;
            if (field.flag != kNoFlag) storeLittle(clear_.data() + field.flag, 1, 1);
            storeLittle(clear_.data() + field.value, param.integer * units, field.width);
            ++(field.list == List::kHardware ? hardware_count_ : software_count_);
            return true;
        }
        return false;
    }

    bool usable(const Field& field) const {
        return hasField(field, version_) && (field.since != Since::k4_4 || early_boot_byte_);
    }

    uint64_t version_;
    bool early_boot_byte_;
    Bytes clear_ = Bytes(kClearBytes, 0);
    uint32_t hardware_count_ = 0;
    uint32_t software_count_ = 0;
    ParamSet sealed_;
};

uint64_t versionOf(ByteView clear) {
    return loadLittle(clear.data() + kVersionMajorAt, 4) << 32 |
           loadLittle(clear.data() + kVersionMinorAt, 4);
}

// Reads what the clear part reports: the hardware-enforced authorizations, then the others.
void readArrays(ByteView clear, ParamSet& params) {
    for (const ArrayField& array : kArrays) {
        const uint64_t count = loadLittle(clear.data() + array.count, 4);
        if (count > array.capacity) {
            refuse(KM_ERROR_INVALID_KEY_BLOB, "the blob counts ", count, " values of ",
                   tagName(array.tag), ", and has room for ", array.capacity);
        }
        for (uint64_t i = 0; i < count; ++i) {
            const uint8_t* value = clear.data() + array.values + i * array.width;
            params.add(intParam(array.tag, loadLittle(value, array.width)));
        }
    }
}

void readFields(ByteView clear, List list, uint64_t version, ParamSet& params) {
    for (const Field& field : kFields) {
        if (field.list != list || !hasField(field, version)) continue;
        if (field.flag != kNoFlag && clear[field.flag] == 0) continue;
        const uint64_t value =
            loadLittle(clear.data() + field.value, field.width) / unitsPerStored(field, version);
        params.add(intParam(reportedTag(field, version), value));
    }
}

void readClear(ByteView clear, OpenedKey& key) {
    ParamSet& params = key.authorizations;
    readArrays(clear, params);
    readFields(clear, List::kHardware, key.version, params);
    key.hardware_count = params.size();
    readFields(clear, List::kSoftware, key.version, params);
    key.software_count = params.size() - key.hardware_count;
}

Bytes encodeSealed(const BlobContents& contents, const ParamSet& sealed) {
    if (contents.material.size() > UINT32_MAX) {
        refuse(KM_ERROR_INVALID_INPUT_LENGTH, "a key of ", contents.material.size(),
               " bytes fits into no blob");
    }
    size_t size = kMinSealedBytes + contents.material.size();
    for (const Param& param : sealed) size += 4 + 8 + 4 + param.bytes.size();

    Bytes plain;
    plain.reserve(size);  // so that growing leaves no copy of the material behind
    append(plain, contents.id);
    appendLittle(plain, contents.material.size(), 4);
    append(plain, contents.material);
    appendLittle(plain, sealed.size(), 4);
    for (const Param& param : sealed) {
        appendLittle(plain, static_cast<uint32_t>(param.tag), 4);
        appendLittle(plain, param.integer, 8);
        appendLittle(plain, param.bytes.size(), 4);
        append(plain, param.bytes);
    }
    return plain;
}

// Reads what encodeSealed wrote; anything else is KM_ERROR_INVALID_KEY_BLOB.
class SealedReader {
  public:
    explicit SealedReader(ByteView data) : rest_(data) {}

    ByteView bytes(uint64_t count) {
        if (count > rest_.size()) {
            refuse(KM_ERROR_INVALID_KEY_BLOB, "the blob's sealed part ends after ", rest_.size(),
                   " of ", count, " bytes");
        }
        const auto size = static_cast<size_t>(count);
        const ByteView taken = rest_.sub(0, size);
        rest_ = rest_.sub(size);
        return taken;
    }
    uint64_t number(size_t width) { return loadLittle(bytes(width).data(), width); }
    bool done() const { return rest_.empty(); }

  private:
    ByteView rest_;
};

void readSealed(ByteView plain, OpenedKey& key) {
    SealedReader reader(plain);
    key.id = reader.bytes(kKeyIdBytes).copy();
    key.material = Secret(reader.bytes(reader.number(4)).copy());
    const uint64_t count = reader.number(4);
    for (uint64_t i = 0; i < count; ++i) {
        Param param;
        param.tag = static_cast<keymaster_tag_t>(static_cast<int32_t>(reader.number(4)));
        param.integer = reader.number(8);
        param.bytes = reader.bytes(reader.number(4)).copy();
        key.authorizations.add(std::move(param));
    }
    if (!reader.done()) {
        refuse(KM_ERROR_INVALID_KEY_BLOB, "bytes follow the blob's sealed authorizations");
    }
}

}  // namespace

Bytes deriveBlobSecret(const BlobRoots& roots) {
    Bytes context;
    append(context, std::string_view("key blobs"));
    appendLittle(context, roots.level, 4);
    appendLittle(context, roots.device_locked ? 1 : 0, 1);
    appendPrefixed(context, roots.verified_boot_key);
    appendPrefixed(context, sha256(roots.shared_secret));
    return hmacSha256(roots.device_key, context);
}

Bytes deriveBlobKey(ByteView blob_secret, const ParamSet& binding) {
    Bytes context;
    append(context, std::string_view("one key"));
    appendPrefixed(context, binding.bytes(KM_TAG_APPLICATION_ID));
    appendPrefixed(context, binding.bytes(KM_TAG_APPLICATION_DATA));
    return hmacSha256(blob_secret, context);
}

bool isSoftwareEnforced(keymaster_tag_t tag) {
    return std::any_of(std::begin(kFields), std::end(kFields), [tag](const Field& field) {
        return field.tag == tag && field.list == List::kSoftware;
    });
}

bool reportsEarlyBoot(uint64_t version) {
    return version >= kBlobVersion4_4;
}

Bytes sealBlob(const BlobContents& contents, uint64_t version, bool early_boot_byte,
               ByteView blob_key, RandomSource& random) {
    ClearWriter writer(version, early_boot_byte);
    for (const Param& param : contents.authorizations) writer.write(param);
    Bytes blob = writer.finish();
    const Bytes clear = blob;

    const Secret plain(encodeSealed(contents, writer.sealed()));
    const Bytes nonce = random.bytes(kNonceBytes);
    append(blob, nonce);
    append(blob, aesGcmSeal(blob_key, nonce, clear, plain.bytes()));
    return blob;
}

std::optional<OpenedKey> tryOpenBlob(ByteView blob, ByteView blob_key) {
    if (blob.size() < kSealedAt + kTagBytes) {
        refuse(KM_ERROR_INVALID_KEY_BLOB, blob.size(),
               " bytes are no key blob, which has at least ", kSealedAt + kTagBytes,
               "; give the whole key file");
    }
    const ByteView clear = blob.sub(0, kClearBytes);
    const ByteView nonce = blob.sub(kClearBytes, kNonceBytes);
    std::optional<Bytes> opened = aesGcmOpen(blob_key, nonce, clear, blob.sub(kSealedAt));
    if (!opened) return std::nullopt;
    const Secret plain(std::move(*opened));

    OpenedKey key;
    key.authorizations.reserve(std::size(kArrays) + std::size(kFields));
    key.version = versionOf(clear);
    readClear(clear, key);
    readSealed(plain.bytes(), key);
    return key;
}

OpenedKey openBlob(ByteView blob, ByteView blob_key) {
    std::optional<OpenedKey> key = tryOpenBlob(blob, blob_key);
    if (!key) refuse(KM_ERROR_INVALID_KEY_BLOB, "the blob was not sealed under this secret");
    return std::move(*key);
}

void checkClearPart(ByteView blob, keymaster_security_level_t level) {
    const ByteView clear = blob.sub(0, kClearBytes);
    if (loadLittle(clear.data() + kMagicAt, 4) != kMagic) {
        refuse(KM_ERROR_INVALID_KEY_BLOB, "this is no key blob, it does not begin with \"DKMK\" (",
               hexWord(kMagic), "); give the file that generate or import wrote");
    }
    OpenedKey claimed;
    claimed.version = versionOf(clear);
    readClear(clear, claimed);
    const uint64_t type = claimed.authorizations.integer(kTagHardwareType).value_or(level);
    if (type != level) {
        refuse(KM_ERROR_INVALID_KEY_BLOB, "the blob says that it is of ",
               valueWord(kTagHardwareType, type), ", this is ", levelWord(level),
               "; use it at its own security level");
    }
}

}  // namespace lumo::secureapp
