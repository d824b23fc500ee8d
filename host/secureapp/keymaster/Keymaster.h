// The keymaster itself: keys, operations and what protects them, the same for both protocols.
//
// Every method throws Refusal with the published code when it refuses, and StateError when
// the storage fails. Not thread-safe: the caller serialises.
#pragma once

#include <map>
#include <memory>

#include "secureapp/access/SharedHmac.h"
#include "secureapp/base/Environment.h"
#include "secureapp/base/Types.h"

namespace lumo::secureapp {

// Versions of key blobs, as the library tells them apart: major in the high half, minor in the low.
constexpr uint64_t kBlobVersion3_0 = 0x300000000;
constexpr uint64_t kBlobVersion4_0 = 0x400000000;
constexpr uint64_t kBlobVersion4_1 = 0x400000001;
constexpr uint64_t kBlobVersion4_4 = 0x400000004;

struct KeymasterOptions {
    keymaster_security_level_t level = KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT;
    // The version of new blobs. Below 4.1 auth timeouts stand in milliseconds and there are no
    // vendor and boot patch levels in the clear part.
    uint64_t blob_version = kBlobVersion4_1;
    // Whether blobs of keys for early boot may take version 4.4, whose clear part reports that.
    bool early_boot_blobs = true;
    // Whether the wall clock can be trusted. Otherwise the dates of a key are its caller's to
    // enforce.
    bool trusted_clock = false;
};

// A key blob opened. The material is wiped when it goes.
struct OpenedKey {
    OpenedKey() = default;
    OpenedKey(OpenedKey&&) = default;
    OpenedKey& operator=(OpenedKey&&) = default;
    OpenedKey(const OpenedKey&) = default;
    OpenedKey& operator=(const OpenedKey&) = default;
    ~OpenedKey();

    Bytes material;     // PKCS#8 of RSA and EC keys; the bytes of others
    ParamSet hardware;  // as the clear part reports them
    ParamSet software;
    ParamSet sealed;  // authorizations without a field in the clear part: enforced, not reported
    Bytes id;         // 16 random bytes, kept through upgrades
    uint64_t version = 0;

    ParamSet all() const;  // the three lists together
    uint32_t algorithm() const;
};

struct BeginResult {
    uint64_t handle = 0;
    uint32_t algorithm = 0;
    ParamSet out_params;  // the nonce, when one was made
};

struct UpdateResult {
    uint32_t consumed = 0;
    Bytes output;
};

struct VerificationToken {
    uint64_t challenge = 0;
    uint64_t timestamp = 0;
    uint32_t security_level = 0;
    Bytes mac;
};

// The public key as its parts, for old applications that leave the encoding to the HAL.
struct PublicKeyParts {
    uint32_t algorithm = 0;
    Bytes modulus, exponent;  // RSA, big-endian, minimal
    Bytes x, y;               // EC, big-endian, minimal
};

// The boot loader's colours, by the numbers that it sends.
enum class BootColor : uint32_t { kGreen = 0, kOrange = 1, kYellow = 2, kRed = 3 };

class Keymaster {
  public:
    // `shared_state` holds what all instances of one device share; see SharedHmac.
    Keymaster(const KeymasterOptions& options, DeviceConfig config, State& state,
              State& shared_state, Clock& clock, RandomSource& random);
    Keymaster(const Keymaster&) = delete;
    Keymaster& operator=(const Keymaster&) = delete;
    ~Keymaster();

    const KeymasterOptions& options() const { return options_; }
    const DeviceConfig& config() const { return config_; }

    // One set of OS version and patch levels a boot; the same again is fine, another is refused
    // with KM_ERROR_INVALID_ARGUMENT. Until then other calls give
    // KM_ERROR_KEYMASTER_NOT_CONFIGURED.
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
    UpdateResult update(uint64_t handle, const ParamSet& params, ByteView input);
    Bytes finish(uint64_t handle, const ParamSet& params, ByteView input, ByteView signature);
    void abort(uint64_t handle);

    // Who makes the calls that follow; a carrier with several clients numbers them.
    void serve(uint64_t client);
    // The client is gone: aborts what it began and never ended, which would else keep others out.
    void abortAllOf(uint64_t client);
    bool isRunning(uint64_t handle) const;

    const HmacSharingParameters& hmacSharingParameters() const { return hmac_.ownParameters(); }
    Bytes computeSharedHmac(const std::vector<HmacSharingParameters>& all);
    VerificationToken verifyAuthorization(uint64_t challenge);

    void earlyBootEnded();
    void deviceLocked(bool password_only);
    // From the boot loader, before anything else. Once set, or once a key was made or opened, it
    // stands for this boot: KM_ERROR_ROOT_OF_TRUST_ALREADY_SET. `color` is a BootColor.
    void setRootOfTrust(ByteView verified_boot_key);
    void setBootState(bool locked, uint32_t color, uint32_t system_version,
                      uint32_t system_patchlevel);
    // Stands for the user's finger on the button.
    void confirmPresence();

    // The pieces that several source files share.

    // Opens a key to be used: KM_ERROR_INVALID_KEY_BLOB where it does not open or may not be used
    // here, KM_ERROR_KEY_REQUIRES_UPGRADE where it was made for other versions.
    OpenedKey openForUse(ByteView blob, const ParamSet& binding);
    // Makes the blob of a new key. `params` passed the rules of creation; what `material` says of
    // the key is added here.
    Bytes createKey(const ParamSet& params, uint32_t origin, ByteView material);
    // All of an import: the rules of creation, the material against `params`, the blob.
    Bytes importMaterial(const ParamSet& params, uint32_t format, ByteView data, uint32_t origin);

  private:
    struct Impl;

    void requireConfigured() const;
    const Bytes& blobSecret();
    OpenedKey open(ByteView blob, const ParamSet& binding);
    OpenedKey openCurrent(ByteView blob, const ParamSet& binding);
    OpenedKey openForExport(uint32_t format, ByteView blob, const ParamSet& binding);
    ParamSet acceptedParams(const ParamSet& params) const;
    // `replaced`: the blob that the new one stands in for, or empty.
    Bytes sealKey(ByteView material, const Bytes& id, ParamSet authorizations,
                  const ParamSet& binding, ByteView replaced);
    uint64_t newHandle();

    KeymasterOptions options_;
    DeviceConfig config_;
    State& state_;
    State& shared_state_;
    Clock& clock_;
    RandomSource& random_;
    SharedHmac hmac_;
    std::unique_ptr<Impl> impl_;
};

}  // namespace lumo::secureapp
