// Key blobs: a clear part with the characteristics at fixed places, for the HAL to read, then
// the key itself, sealed together with everything that has no field in the clear part.
//
// All integers are little-endian and packed. Clear part: kClearBytes. Then a 12-byte nonce and
// AES-256-GCM over the sealed part, tag last, with the whole clear part as associated data. The
// sealed part is the key's id (16 bytes), the material (length, bytes), a count, and that many
// authorizations (tag u32, value u64, length u32, bytes).
#pragma once

#include <optional>

#include "secureapp/base/Environment.h"
#include "secureapp/base/Params.h"
#include "secureapp/keys/KeymasterOptions.h"
#include "secureapp/keys/OpenedKey.h"

namespace lumo::secureapp {

constexpr size_t kKeyIdBytes = 16;

// The HAL refuses anything up to this size as a key blob.
constexpr size_t kMaxRefusedBlobBytes = 394;

struct BlobContents {
    ByteView material;
    ParamSet authorizations;  // in any order
    Bytes id;
};

// What a sealing key is derived from, besides APPLICATION_ID and APPLICATION_DATA.
struct BlobRoots {
    ByteView device_key;
    ByteView shared_secret;
    uint32_t level = 0;
    ByteView verified_boot_key;
    bool device_locked = false;
};

// The secret from which the sealing keys of this device in this boot state are derived.
Bytes deriveBlobSecret(const BlobRoots& roots);
// The sealing key of one key: absent and empty id or data are the same.
Bytes deriveBlobKey(ByteView blob_secret, const ParamSet& binding);

// Whether the clear part lists the tag as software-enforced, in the versions that have a field for
// it.
bool isSoftwareEnforced(keymaster_tag_t tag);

// Whether blobs of this version have the byte that says EARLY_BOOT_ONLY.
bool reportsEarlyBoot(uint64_t version);

// `early_boot_byte`: whether that byte may be used where the version has it.
Bytes sealBlob(const BlobContents& contents, uint64_t version, bool early_boot_byte,
               ByteView blob_key, RandomSource& random);

// nullopt for a blob that sealBlob did not make with the same key, or that has changed since.
// KM_ERROR_INVALID_KEY_BLOB for what has no room for a blob.
std::optional<OpenedKey> tryOpenBlob(ByteView blob, ByteView blob_key);
// KM_ERROR_INVALID_KEY_BLOB in both cases.
OpenedKey openBlob(ByteView blob, ByteView blob_key);

// For a blob that does not open: KM_ERROR_INVALID_KEY_BLOB where its clear part, which nothing has
// proven then, says that it is no key blob or one of another level.
void checkClearPart(ByteView blob, keymaster_security_level_t level);

}  // namespace lumo::secureapp
