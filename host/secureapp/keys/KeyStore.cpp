#include "secureapp/keys/KeyStore.h"

#include <algorithm>

#include "secureapp/base/Params.h"
#include "secureapp/base/Refusal.h"
#include "secureapp/base/Words.h"
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

constexpr char kBootStatesRecord[] = "boot-states";
constexpr size_t kVerifiedBootKeyBytes = 32;
constexpr size_t kBootStateBytes = kVerifiedBootKeyBytes + 1;
constexpr size_t kMaxBootStates = 64;

bool isBound(const ParamSet& binding) {
    return !binding.bytes(KM_TAG_APPLICATION_ID).empty() ||
           !binding.bytes(KM_TAG_APPLICATION_DATA).empty();
}

const char* lockWord(bool locked) {
    return locked ? "locked" : "unlocked";
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

    noteBootState();
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
    std::optional<OpenedKey> opened = tryOpenBlob(blob, blob_key.bytes());
    if (!opened) refuseBlob(blob, binding);
    OpenedKey key = std::move(*opened);
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
        new_state_ = !own_state_.read(kDeviceKeyRecord);
        blob_secret_ = secretUnder(bootState());
    }
    return blob_secret_.bytes();
}

Secret KeyStore::secretUnder(const BootState& state) {
    const Secret device_key(
        lastingSecret(own_state_, random_, kDeviceKeyRecord, kSecretRecordBytes));
    const Secret shared(
        lastingSecret(shared_state_, random_, kSharedSecretRecord, kSecretRecordBytes));
    return Secret(deriveBlobSecret({device_key.bytes(), shared.bytes(), options_.level,
                                    state.verified_boot_key, state.device_locked}));
}

// The record: verified boot key and lock of each state, the oldest first.
std::vector<KeyStore::BootState> KeyStore::notedBootStates() {
    std::vector<BootState> states;
    const Bytes record = own_state_.read(kBootStatesRecord).value_or(Bytes());
    for (size_t at = 0; at + kBootStateBytes <= record.size(); at += kBootStateBytes) {
        const ByteView entry = ByteView(record).sub(at, kBootStateBytes);
        states.push_back(
            {entry.sub(0, kVerifiedBootKeyBytes).copy(), entry[kVerifiedBootKeyBytes] != 0});
    }
    return states;
}

void KeyStore::noteBootState() {
    if (boot_state_noted_) return;
    boot_state_noted_ = true;
    try {
        std::vector<BootState> states = notedBootStates();
        if (std::find(states.begin(), states.end(), bootState()) != states.end()) return;
        states.push_back(bootState());
        if (states.size() > kMaxBootStates) states.erase(states.begin());
        Bytes record;
        for (const BootState& state : states) {
            append(record, state.verified_boot_key);
            record.push_back(state.device_locked ? 1 : 0);
        }
        own_state_.update(kBootStatesRecord, [&record](const std::optional<Bytes>&) {
            return std::optional<Bytes>(record);
        });
    } catch (const StateError&) {
        // What has to be stored fails by itself.
    }
}

void KeyStore::refuseBlob(ByteView blob, const ParamSet& binding) {
    checkClearPart(blob, options_.level);
    const auto opensUnder = [&](ByteView secret, const ParamSet& tried) {
        return tryOpenBlob(blob, deriveBlobKey(secret, tried)).has_value();
    };
    const BootState now = bootState();
    std::vector<BootState> others = notedBootStates();
    others.push_back({now.verified_boot_key, !now.device_locked});
    for (const BootState& then : others) {
        const Secret secret = secretUnder(then);
        if (then == now || !(opensUnder(secret.bytes(), binding) ||
                             (isBound(binding) && opensUnder(secret.bytes(), {})))) {
            continue;
        }
        if (then.verified_boot_key == now.verified_boot_key) {
            refuse(KM_ERROR_INVALID_KEY_BLOB, "the key was made while the boot loader was ",
                   lockWord(then.device_locked), ", it is ", lockWord(now.device_locked),
                   " now; it opens in the other state alone (device_locked in world.conf)");
        }
        refuse(KM_ERROR_INVALID_KEY_BLOB,
               "root of trust differs from the one the key was made under: the verified boot key "
               "was ",
               startWords(then.verified_boot_key), " (", lockWord(then.device_locked), "), it is ",
               startWords(now.verified_boot_key), " (", lockWord(now.device_locked),
               "); the key opens under its own alone");
    }
    if (isBound(binding) && opensUnder(blobSecret(), {})) {
        refuse(KM_ERROR_INVALID_KEY_BLOB,
               "the key is bound to no application id and data, and some were given; leave them "
               "out");
    }
    if (new_state_) {
        refuse(KM_ERROR_INVALID_KEY_BLOB, "this state had no key before this boot at level ",
               levelWord(options_.level),
               ", so that the blob is of another state directory or level; choose the one that the "
               "key was made in");
    }
    refuse(KM_ERROR_INVALID_KEY_BLOB, "the blob is damaged, of another state directory, or ",
           isBound(binding) ? "bound to another application id or data than those given"
                            : "bound to an application id or data, and none were given");
}

Secret KeyStore::blobKey(const ParamSet& binding) {
    if (isBound(binding)) return Secret(deriveBlobKey(blobSecret(), binding));
    if (unbound_key_.bytes().empty()) {
        unbound_key_ = Secret(deriveBlobKey(blobSecret(), binding));
    }
    return Secret(unbound_key_.bytes());
}

}  // namespace lumo::secureapp
