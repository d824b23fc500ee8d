// The keys of one keymaster: sealed into blobs under the secrets of the device and the state that
// it booted in, and opened again.
#pragma once

#include "secureapp/base/DeviceConfig.h"
#include "secureapp/base/Environment.h"
#include "secureapp/base/Params.h"
#include "secureapp/base/Secret.h"
#include "secureapp/keys/KeymasterOptions.h"
#include "secureapp/keys/OpenedKey.h"
#include "secureapp/keys/RollbackRegistry.h"

namespace lumo::secureapp {

class KeyStore {
  public:
    // `config` may change until the first key is sealed or opened.
    KeyStore(const KeymasterOptions& options, const DeviceConfig& config, State& own_state,
             State& shared_state, RandomSource& random);

    // The blob of a key. `binding` carries APPLICATION_ID and APPLICATION_DATA. `replaced` is the
    // blob that the new one replaces, or empty.
    Bytes seal(ByteView material, const Bytes& id, ParamSet authorizations, const ParamSet& binding,
               ByteView replaced);
    // KM_ERROR_INVALID_KEY_BLOB for a blob that is damaged, was sealed under other secrets or
    // another binding, or was deleted: damage is reported before anything else.
    OpenedKey open(ByteView blob, const ParamSet& binding);

    // Whether another rollback-resistant key can be made.
    bool hasRollbackRoom() { return registry_.hasRoom(); }
    // The key was opened for use: from then on older blobs of it are refused.
    void use(ByteView blob, const OpenedKey& key);

    // Only rollback-resistant keys are registered and can be removed; of others nothing is stored.
    void remove(ByteView blob) { registry_.remove(blob); }
    void removeAll() { registry_.clear(); }

    // Whether a key was sealed or opened in this boot: from then on its state must stay the same.
    bool used() const { return !blob_secret_.bytes().empty(); }

  private:
    // A boot state that keys were sealed under.
    struct BootState {
        Bytes verified_boot_key;
        bool device_locked;

        bool operator==(const BootState& other) const {
            return verified_boot_key == other.verified_boot_key &&
                   device_locked == other.device_locked;
        }
    };

    BootState bootState() const { return {config_.verified_boot_key, config_.device_locked}; }
    Secret secretUnder(const BootState& state);
    // The states of a record that only serves to explain later why a blob does not open, so that
    // nothing fails over it.
    void noteBootState();
    std::vector<BootState> notedBootStates();
    // Says why the blob does not open, as far as that can be found out.
    [[noreturn]] void refuseBlob(ByteView blob, const ParamSet& binding);

    const Bytes& blobSecret();
    // What the blob of a key with this binding is sealed under.
    Secret blobKey(const ParamSet& binding);

    const KeymasterOptions& options_;
    const DeviceConfig& config_;
    State& own_state_;
    State& shared_state_;
    RandomSource& random_;
    RollbackRegistry registry_;
    Secret blob_secret_;             // empty until it is needed
    Secret unbound_key_;             // for keys without a binding; empty until it is needed
    bool new_state_ = false;         // no key was made before this boot
    bool boot_state_noted_ = false;  // in this boot
};

}  // namespace lumo::secureapp
