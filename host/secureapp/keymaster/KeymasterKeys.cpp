// Keys: generated, imported, opened, exported, upgraded and deleted.
#include "secureapp/base/Params.h"
#include "secureapp/base/Refusal.h"
#include "secureapp/base/Secret.h"
#include "secureapp/base/Words.h"
#include "secureapp/keymaster/Keymaster.h"
#include "secureapp/keys/KeyBlob.h"
#include "secureapp/keys/KeyMaterial.h"
#include "secureapp/keys/KeyRules.h"
#include "secureapp/keys/KeyVersions.h"
#include "secureapp/keys/OpenedKey.h"

namespace lumo::secureapp {
namespace {

uint64_t valueOrZero(const ParamSet& params, keymaster_tag_t tag) {
    return params.integer(tag).value_or(0);
}

}  // namespace

Bytes Keymaster::generateKey(const ParamSet& params) {
    const ParamSet accepted = acceptedParams(params);
    const KeyFacts facts = planGeneration(accepted, options_.level);
    checkMacRules(accepted, options_.level);
    const Secret material = makeMaterial(facts, random_);
    return createKey(accepted, KM_ORIGIN_GENERATED, facts, material.bytes());
}

Bytes Keymaster::importKey(const ParamSet& params, uint32_t format, ByteView data) {
    return importMaterial(params, format, data, KM_ORIGIN_IMPORTED);
}

Bytes Keymaster::importMaterial(const ParamSet& params, uint32_t format, ByteView data,
                                uint32_t origin) {
    const ParamSet accepted = acceptedParams(params);
    const auto algorithm = static_cast<uint32_t>(valueOrZero(accepted, KM_TAG_ALGORITHM));
    checkMaterial(algorithm, format, data);
    const KeyFacts facts = materialFacts(algorithm, data);
    checkImport(accepted, facts, options_.level);
    checkMacRules(accepted, options_.level);
    return createKey(accepted, origin, facts, data);
}

ParamSet Keymaster::acceptedParams(const ParamSet& params) {
    requireConfigured();
    CreationContext context;
    context.level = options_.level;
    context.early_boot = early_boot_;
    context.rollback_resistance = config_.rollback_resistance;
    context.user_presence = config_.user_presence;
    ParamSet accepted = acceptCreation(params, context);
    if (accepted.contains(KM_TAG_ROLLBACK_RESISTANCE) && !keys_.hasRollbackRoom()) {
        refuse(
            KM_ERROR_ROLLBACK_RESISTANCE_UNAVAILABLE,
            "the registry of rollback-resistant keys has no room for another; delete some of them");
    }
    return accepted;
}

Bytes Keymaster::createKey(const ParamSet& params, uint32_t origin, const KeyFacts& facts,
                           ByteView material) {
    ParamSet authorizations =
        finishAuthorizations(params, facts, {origin, versions_, clock_.wallMillis()});
    return keys_.seal(material, random_.bytes(kKeyIdBytes), std::move(authorizations), params, {});
}

OpenedKey Keymaster::open(ByteView blob, const ParamSet& binding) {
    requireConfigured();
    return keys_.open(blob, binding);
}

void Keymaster::requireCurrent(const OpenedKey& key) const {
    if (isCurrent(key.authorizations, versions_)) return;
    // Upgrading is what the code asks for; here it would be refused.
    if (wouldDowngrade(key.authorizations, versions_)) {
        refuse(KM_ERROR_KEY_REQUIRES_UPGRADE, versionDifference(key.authorizations, versions_),
               "; a newer key opens only once the device has that version, and is not upgraded "
               "to an older one");
    }
    refuse(KM_ERROR_KEY_REQUIRES_UPGRADE, "the key is bound to other versions: ",
           versionDifference(key.authorizations, versions_));
}

OpenedKey Keymaster::openCurrent(ByteView blob, const ParamSet& binding) {
    OpenedKey key = open(blob, binding);
    requireCurrent(key);
    return key;
}

OpenedKey Keymaster::openForUse(ByteView blob, const ParamSet& binding) {
    OpenedKey key = open(blob, binding);
    if (key.authorizations.contains(KM_TAG_BOOTLOADER_ONLY)) {
        refuse(KM_ERROR_INVALID_KEY_BLOB,
               "the key has BOOTLOADER_ONLY; nothing but the boot loader can use it");
    }
    requireCurrent(key);
    keys_.use(blob, key);
    return key;
}

OpenedKey Keymaster::characteristics(ByteView blob, const ParamSet& binding) {
    return openCurrent(blob, binding);
}

OpenedKey Keymaster::openForExport(uint32_t format, ByteView blob, const ParamSet& binding) {
    OpenedKey key = openCurrent(blob, binding);
    const bool asymmetric =
        key.algorithm() == KM_ALGORITHM_RSA || key.algorithm() == KM_ALGORITHM_EC;
    if (!asymmetric) {
        refuse(KM_ERROR_UNSUPPORTED_KEY_FORMAT, "a key of algorithm ",
               algorithmWord(key.algorithm()), " has no public key to export");
    }
    if (format != KM_KEY_FORMAT_X509) {
        refuse(KM_ERROR_UNSUPPORTED_KEY_FORMAT, "public keys are exported in format 0 (x509), not ",
               format);
    }
    return key;
}

Bytes Keymaster::exportKey(uint32_t format, ByteView blob, const ParamSet& binding) {
    return publicKeyOf(openForExport(format, blob, binding).material.bytes());
}

PublicKeyParts Keymaster::exportKeyParts(uint32_t format, ByteView blob, const ParamSet& binding) {
    const OpenedKey key = openForExport(format, blob, binding);
    return publicPartsOf(key.algorithm(), key.material.bytes());
}

Bytes Keymaster::upgradeKey(ByteView blob, const ParamSet& params) {
    const OpenedKey key = open(blob, params);
    if (wouldDowngrade(key.authorizations, versions_)) {
        refuse(KM_ERROR_INVALID_ARGUMENT, "keys are not bound to older versions, and ",
               versionDifference(key.authorizations, versions_),
               "; start the device with the version of the key or a newer one");
    }
    if (isCurrent(key.authorizations, versions_)) return {};
    ParamSet authorizations = key.authorizations;
    setVersions(authorizations, versions_);
    return keys_.seal(key.material.bytes(), key.id, std::move(authorizations), params, blob);
}

void Keymaster::deleteKey(ByteView blob) {
    requireConfigured();
    keys_.remove(blob);
}

void Keymaster::deleteAllKeys() {
    requireConfigured();
    keys_.removeAll();
}

}  // namespace lumo::secureapp
