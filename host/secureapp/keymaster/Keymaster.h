// The keymaster itself: keys, operations and what protects them, the same for both protocols.
//
// Every method throws Refusal with the published code when it refuses, and StateError when
// the storage fails. Not thread-safe: the caller serialises.
#pragma once

#include <map>
#include <optional>

#include "secureapp/access/AccessControl.h"
#include "secureapp/access/SharedHmac.h"
#include "secureapp/access/Tokens.h"
#include "secureapp/attestation/AttestationKeys.h"
#include "secureapp/base/DeviceConfig.h"
#include "secureapp/base/Environment.h"
#include "secureapp/base/Params.h"
#include "secureapp/keymaster/OperationTable.h"
#include "secureapp/keys/KeyMaterial.h"
#include "secureapp/keys/KeyRules.h"
#include "secureapp/keys/KeyStore.h"
#include "secureapp/keys/KeymasterOptions.h"
#include "secureapp/keys/OpenedKey.h"

namespace lumo::secureapp {

struct BeginResult {
    uint64_t handle = 0;
    uint32_t algorithm = 0;
    ParamSet out_params;  // the nonce, when one was made
};

// The boot loader's colours, by the numbers that it sends.
enum class BootColor : uint32_t { kGreen = 0, kOrange = 1, kYellow = 2, kRed = 3 };

class Keymaster {
  public:
    // `shared_state` holds what all instances of one device share; see SharedHmac.
    Keymaster(const KeymasterOptions& options, DeviceConfig config, State& state,
              State& shared_state, Clock& clock, RandomSource& random);
    ~Keymaster() = default;
    Keymaster(const Keymaster&) = delete;
    Keymaster& operator=(const Keymaster&) = delete;

    const KeymasterOptions& options() const { return options_; }
    const DeviceConfig& config() const { return config_; }

    // OS version and patch levels, once per boot: the same values again are accepted, others are
    // KM_ERROR_INVALID_ARGUMENT. Until then other calls give KM_ERROR_KEYMASTER_NOT_CONFIGURED.
    void configure(const ParamSet& params);
    void addEntropy(ByteView entropy);

    Bytes generateKey(const ParamSet& params);
    Bytes importKey(const ParamSet& params, uint32_t format, ByteView data);
    Bytes importWrappedKey(ByteView wrapped, ByteView wrapping_blob, ByteView masking_key,
                           const ParamSet& unwrapping_params, uint64_t password_sid,
                           uint64_t biometric_sid);
    // `binding` of this and the following calls carries APPLICATION_ID and APPLICATION_DATA.
    OpenedKey characteristics(ByteView blob, const ParamSet& binding);
    Bytes exportKey(uint32_t format, ByteView blob, const ParamSet& binding);
    PublicKeyParts exportKeyParts(uint32_t format, ByteView blob, const ParamSet& binding);
    std::vector<Bytes> attestKey(ByteView blob, const ParamSet& params);
    // Empty when the key is current.
    Bytes upgradeKey(ByteView blob, const ParamSet& params);
    void deleteKey(ByteView blob);
    void deleteAllKeys();
    void destroyDeviceIds();

    BeginResult begin(uint32_t purpose, ByteView blob, const ParamSet& params);
    // Consumes all of `input` and appends the output to `out`.
    void update(uint64_t handle, const ParamSet& params, ByteView input, Bytes& out);
    Bytes finish(uint64_t handle, const ParamSet& params, ByteView input, ByteView signature);
    void abort(uint64_t handle);

    // The client of the calls that follow; a transport with several clients numbers them. Ends what
    // was kept for too long.
    void serve(uint64_t client);
    // Aborts the operations that a client left open, so that they do not block others.
    void abortAllOf(uint64_t client);
    // The operation goes on when its client has gone. It ends when no step comes for `millis`,
    // which are not 0. KM_ERROR_INVALID_OPERATION_HANDLE where there is none,
    // KM_ERROR_TOO_MANY_OPERATIONS when half of the places are taken by such operations.
    void keepOperation(uint64_t handle, uint64_t millis);
    bool isRunning(uint64_t handle) const { return operations_.contains(handle); }

    const HmacSharingParameters& hmacSharingParameters() { return hmac_.ownParameters(); }
    Bytes computeSharedHmac(const std::vector<HmacSharingParameters>& all);
    VerificationToken verifyAuthorization(uint64_t challenge);

    void earlyBootEnded();
    void deviceLocked(bool password_only);
    // From the boot loader, before anything else. Once set, or once a key was made or opened, it is
    // fixed for this boot: KM_ERROR_ROOT_OF_TRUST_ALREADY_SET. `color` is a BootColor.
    void setRootOfTrust(ByteView verified_boot_key);
    void setBootState(bool locked, uint32_t color, uint32_t system_version,
                      uint32_t system_patchlevel);
    // The user has pressed the button: for the operation that waits for it. False where none does.
    bool confirmPresence();
    // Whether the operation waits for the button; KM_ERROR_INVALID_OPERATION_HANDLE where there is
    // none.
    bool awaitsPresence(uint64_t handle);

    // For whoever plays an authenticator of this device: the key of its tokens, and its clock.
    const Bytes& sharedHmacKey() { return hmac_.key(); }
    uint64_t bootMillis() { return clock_.bootMillis(); }

  private:
    void requireConfigured() const;
    ParamSet acceptedParams(const ParamSet& params);
    // Makes the blob of a new key. `params` passed the rules of creation; `facts` are those of
    // `material`.
    Bytes createKey(const ParamSet& params, uint32_t origin, const KeyFacts& facts,
                    ByteView material);
    // All of an import: the rules of creation, the material against `params`, the blob.
    Bytes importMaterial(const ParamSet& params, uint32_t format, ByteView data, uint32_t origin);

    OpenedKey open(ByteView blob, const ParamSet& binding);
    // KM_ERROR_KEY_REQUIRES_UPGRADE for a key that was made for other versions.
    void requireCurrent(const OpenedKey& key) const;
    OpenedKey openCurrent(ByteView blob, const ParamSet& binding);
    // As openCurrent, and KM_ERROR_INVALID_KEY_BLOB for a key that only the boot loader may use.
    OpenedKey openForUse(ByteView blob, const ParamSet& binding);
    OpenedKey openForExport(uint32_t format, ByteView blob, const ParamSet& binding);
    // The key that signs attestations of keys of `algorithm`; read once a boot.
    const AttestationKey& batchKey(uint32_t algorithm);
    // The one that signs in place of it for who asks for the device's own; read once a boot.
    const AttestationKey& deviceKey();
    void checkUse(uint64_t handle, const RunningOperation& running, const ParamSet& params);
    RunningOperation& runningOperation(uint64_t handle);

    const KeymasterOptions options_;
    DeviceConfig config_;
    State& state_;
    Clock& clock_;
    RandomSource& random_;
    SharedHmac hmac_;
    AccessControl access_;
    KeyStore keys_;
    OperationTable operations_;
    std::map<uint32_t, AttestationKey> batch_keys_;
    AttestationKey device_key_;

    uint64_t client_ = 0;  // who calls
    bool early_boot_ = true;
    bool root_of_trust_set_ = false;
    bool boot_state_set_ = false;
    std::optional<ParamSet> configured_;  // as the HAL delivered it
    ParamSet versions_;                   // the version tags of new keys
};

}  // namespace lumo::secureapp
