#include <algorithm>

#include "secureapp/crypto/Crypto.h"
#include "secureapp/keymaster/Keymaster.h"
#include "secureapp/keymaster/KeymasterImpl.h"
#include "secureapp/keys/KeyBlob.h"
#include "secureapp/keys/KeyMaterial.h"
#include "secureapp/keys/KeyRules.h"

namespace lumo::secureapp {
namespace {

bool isRollbackResistant(const ParamSet& authorizations) {
    // Old blobs report the older tag.
    return authorizations.contains(KM_TAG_ROLLBACK_RESISTANCE) ||
           authorizations.contains(KM_TAG_ROLLBACK_RESISTANT);
}

uint64_t valueOrZero(const ParamSet& params, keymaster_tag_t tag) {
    return params.integer(tag).value_or(0);
}

bool isCurrent(const ParamSet& authorizations, const ParamSet& versions) {
    return std::all_of(std::begin(kVersionTags), std::end(kVersionTags), [&](keymaster_tag_t tag) {
        return valueOrZero(authorizations, tag) == valueOrZero(versions, tag);
    });
}

// Whether upgrading would take something back. A system of version 0 is one in development, on
// which keys may follow downwards.
bool wouldDowngrade(const ParamSet& authorizations, const ParamSet& versions) {
    return std::any_of(std::begin(kVersionTags), std::end(kVersionTags), [&](keymaster_tag_t tag) {
        const uint64_t current = valueOrZero(versions, tag);
        if (tag == KM_TAG_OS_VERSION && current == 0) return false;
        return valueOrZero(authorizations, tag) > current;
    });
}

// The version of a new blob: a later one where only that can report what the key is.
uint64_t blobVersion(const KeymasterOptions& options, const ParamSet& authorizations) {
    const bool report_early_boot = options.early_boot_blobs &&
                                   options.blob_version >= kBlobVersion4_1 &&
                                   authorizations.contains(KM_TAG_EARLY_BOOT_ONLY);
    return report_early_boot ? std::max(options.blob_version, kBlobVersion4_4)
                             : options.blob_version;
}

}  // namespace

Bytes Keymaster::generateKey(const ParamSet& params) {
    const ParamSet accepted = acceptedParams(params);
    const KeyFacts facts = planGeneration(accepted, options_.level);
    checkMacRules(accepted, options_.level);
    return createKey(accepted, KM_ORIGIN_GENERATED, makeMaterial(facts, random_).bytes());
}

Bytes Keymaster::importKey(const ParamSet& params, uint32_t format, ByteView data) {
    return importMaterial(params, format, data, KM_ORIGIN_IMPORTED);
}

Bytes Keymaster::importMaterial(const ParamSet& params, uint32_t format, ByteView data,
                                uint32_t origin) {
    const ParamSet accepted = acceptedParams(params);
    const auto algorithm = static_cast<uint32_t>(valueOrZero(accepted, KM_TAG_ALGORITHM));
    checkMaterial(algorithm, format, data);
    checkImport(accepted, materialFacts(algorithm, data), options_.level);
    checkMacRules(accepted, options_.level);
    return createKey(accepted, origin, data);
}

ParamSet Keymaster::acceptedParams(const ParamSet& params) const {
    requireConfigured();
    CreationContext context;
    context.level = options_.level;
    context.early_boot = impl_->early_boot;
    context.rollback_resistance = config_.rollback_resistance;
    context.user_presence = config_.user_presence;
    return acceptCreation(params, context);
}

Bytes Keymaster::createKey(const ParamSet& params, uint32_t origin, ByteView material) {
    const auto algorithm = static_cast<uint32_t>(valueOrZero(params, KM_TAG_ALGORITHM));
    const Additions additions = {origin, impl_->versions, clock_.wallMillis()};
    ParamSet authorizations =
        finishAuthorizations(params, materialFacts(algorithm, material), additions);
    return sealKey(material, random_.bytes(kKeyIdBytes), std::move(authorizations), params, {});
}

Bytes Keymaster::sealKey(ByteView material, const Bytes& id, ParamSet authorizations,
                         const ParamSet& binding, ByteView replaced) {
    const bool resistant = isRollbackResistant(authorizations);
    authorizations.removeAll(KM_TAG_ROLLBACK_RESISTANT);
    authorizations.removeAll(KM_TAG_ROLLBACK_RESISTANCE);
    if (resistant) authorizations.add(boolParam(KM_TAG_ROLLBACK_RESISTANCE));

    const uint64_t version = blobVersion(options_, authorizations);
    if (version >= kBlobVersion4_1) {
        // Such blobs state the hardware type of every key.
        authorizations.removeAll(KM_TAG_HARDWARE_TYPE);
        authorizations.add(intParam(KM_TAG_HARDWARE_TYPE, options_.level));
    }
    const Secret blob_key(deriveBlobKey(blobSecret(), binding));
    Bytes blob = sealBlob({material, std::move(authorizations), id}, version,
                          options_.early_boot_blobs, blob_key.bytes(), random_);
    if (resistant) impl_->rollback.add(blob, replaced);
    return blob;
}

const Bytes& Keymaster::blobSecret() {
    if (impl_->blob_secret.bytes().empty()) {
        const Secret device_key(
            lastingSecret(state_, random_, kDeviceKeyRecord, kSecretRecordBytes));
        const Secret shared(
            lastingSecret(shared_state_, random_, kSharedSecretRecord, kSecretRecordBytes));
        impl_->blob_secret =
            Secret(deriveBlobSecret({device_key.bytes(), shared.bytes(), options_.level,
                                     config_.verified_boot_key, config_.device_locked}));
    }
    return impl_->blob_secret.bytes();
}

// Damage comes out before anything else that could be said of the key.
OpenedKey Keymaster::open(ByteView blob, const ParamSet& binding) {
    requireConfigured();
    const Secret blob_key(deriveBlobKey(blobSecret(), binding));
    OpenedKey key = openBlob(blob, blob_key.bytes());
    if (isRollbackResistant(key.hardware) && !impl_->rollback.lists(blob)) {
        refuse(KM_ERROR_INVALID_KEY_BLOB);
    }
    return key;
}

OpenedKey Keymaster::openCurrent(ByteView blob, const ParamSet& binding) {
    OpenedKey key = open(blob, binding);
    if (!isCurrent(key.all(), impl_->versions)) refuse(KM_ERROR_KEY_REQUIRES_UPGRADE);
    return key;
}

OpenedKey Keymaster::openForUse(ByteView blob, const ParamSet& binding) {
    OpenedKey key = open(blob, binding);
    if (key.all().contains(KM_TAG_BOOTLOADER_ONLY)) refuse(KM_ERROR_INVALID_KEY_BLOB);
    if (!isCurrent(key.all(), impl_->versions)) refuse(KM_ERROR_KEY_REQUIRES_UPGRADE);
    return key;
}

OpenedKey Keymaster::characteristics(ByteView blob, const ParamSet& binding) {
    return openCurrent(blob, binding);
}

OpenedKey Keymaster::openForExport(uint32_t format, ByteView blob, const ParamSet& binding) {
    OpenedKey key = openCurrent(blob, binding);
    const bool asymmetric =
        key.algorithm() == KM_ALGORITHM_RSA || key.algorithm() == KM_ALGORITHM_EC;
    if (!asymmetric || format != KM_KEY_FORMAT_X509) refuse(KM_ERROR_UNSUPPORTED_KEY_FORMAT);
    return key;
}

Bytes Keymaster::exportKey(uint32_t format, ByteView blob, const ParamSet& binding) {
    return publicKeyOf(openForExport(format, blob, binding).material);
}

PublicKeyParts Keymaster::exportKeyParts(uint32_t format, ByteView blob, const ParamSet& binding) {
    const OpenedKey key = openForExport(format, blob, binding);
    return publicPartsOf(key.algorithm(), key.material);
}

Bytes Keymaster::upgradeKey(ByteView blob, const ParamSet& params) {
    const OpenedKey key = open(blob, params);
    ParamSet authorizations = key.all();
    if (wouldDowngrade(authorizations, impl_->versions)) refuse(KM_ERROR_INVALID_ARGUMENT);
    if (isCurrent(authorizations, impl_->versions)) return {};
    setVersions(authorizations, impl_->versions);
    return sealKey(key.material, key.id, std::move(authorizations), params, blob);
}

void Keymaster::deleteKey(ByteView blob) {
    requireConfigured();
    impl_->rollback.remove(blob);
}

void Keymaster::deleteAllKeys() {
    requireConfigured();
    impl_->rollback.clear();
}

}  // namespace lumo::secureapp
