#include "secureapp/keys/KeyStore.h"

#include <algorithm>

#include "secureapp/base/Params.h"
#include "secureapp/base/Refusal.h"
#include "secureapp/keys/KeyBlob.h"

namespace lumo::secureapp {
namespace {

bool isRollbackResistant(const ParamSet& authorizations) {
    // Old blobs report the older tag.
    return authorizations.contains(KM_TAG_ROLLBACK_RESISTANCE) ||
           authorizations.contains(KM_TAG_ROLLBACK_RESISTANT);
}

// The version of a new blob: 4.4 where only that can report early boot.
uint64_t blobVersion(const KeymasterOptions& options, const ParamSet& authorizations) {
    const bool report_early_boot = options.early_boot_blobs &&
                                   options.blob_version >= kBlobVersion4_1 &&
                                   authorizations.contains(KM_TAG_EARLY_BOOT_ONLY);
    return report_early_boot ? std::max(options.blob_version, kBlobVersion4_4)
                             : options.blob_version;
}

}  // namespace

KeyStore::KeyStore(const KeymasterOptions& options, const DeviceConfig& config, State& own_state,
                   State& shared_state, RandomSource& random)
    : options_(options),
      config_(config),
      own_state_(own_state),
      shared_state_(shared_state),
      random_(random),
      registry_(own_state) {}

Bytes KeyStore::seal(ByteView material, const Bytes& id, ParamSet authorizations,
                     const ParamSet& binding, ByteView replaced) {
    const bool resistant = isRollbackResistant(authorizations);
    authorizations.removeAll(KM_TAG_ROLLBACK_RESISTANT);
    authorizations.removeAll(KM_TAG_ROLLBACK_RESISTANCE);
    if (resistant) authorizations.add(boolParam(KM_TAG_ROLLBACK_RESISTANCE));

    const uint64_t version = blobVersion(options_, authorizations);
    if (version >= kBlobVersion4_1) {
        // Such blobs state the hardware type of every key.
        authorizations.removeAll(kTagHardwareType);
        authorizations.add(intParam(kTagHardwareType, options_.level));
    }
    const Secret blob_key = blobKey(binding);
    Bytes blob = sealBlob({material, std::move(authorizations), id}, version,
                          options_.early_boot_blobs, blob_key.bytes(), random_);
    if (resistant && replaced.empty()) registry_.add(blob);
    if (resistant && !replaced.empty()) registry_.addBeside(replaced, blob);
    return blob;
}

OpenedKey KeyStore::open(ByteView blob, const ParamSet& binding) {
    const Secret blob_key = blobKey(binding);
    OpenedKey key = openBlob(blob, blob_key.bytes());
    if (isRollbackResistant(key.authorizations) && !registry_.lists(blob)) {
        refuse(KM_ERROR_INVALID_KEY_BLOB,
               "the registry of rollback-resistant keys does not have this blob: the key was "
               "deleted, or a newer blob of it was used; no other file brings it back");
    }
    return key;
}

void KeyStore::use(ByteView blob, const OpenedKey& key) {
    if (isRollbackResistant(key.authorizations)) registry_.use(blob);
}

const Bytes& KeyStore::blobSecret() {
    if (!used()) {
        const Secret device_key(
            lastingSecret(own_state_, random_, kDeviceKeyRecord, kSecretRecordBytes));
        const Secret shared(
            lastingSecret(shared_state_, random_, kSharedSecretRecord, kSecretRecordBytes));
        blob_secret_ = Secret(deriveBlobSecret({device_key.bytes(), shared.bytes(), options_.level,
                                                config_.verified_boot_key, config_.device_locked}));
    }
    return blob_secret_.bytes();
}

Secret KeyStore::blobKey(const ParamSet& binding) {
    const bool bound = !binding.bytes(KM_TAG_APPLICATION_ID).empty() ||
                       !binding.bytes(KM_TAG_APPLICATION_DATA).empty();
    if (bound) return Secret(deriveBlobKey(blobSecret(), binding));
    if (unbound_key_.bytes().empty()) {
        unbound_key_ = Secret(deriveBlobKey(blobSecret(), binding));
    }
    return Secret(unbound_key_.bytes());
}

}  // namespace lumo::secureapp
