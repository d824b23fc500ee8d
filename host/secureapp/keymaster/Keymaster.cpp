#include "secureapp/keymaster/Keymaster.h"

#include <algorithm>

#include "secureapp/attestation/AttestationRules.h"
#include "secureapp/base/Refusal.h"
#include "secureapp/keys/KeyVersions.h"

namespace lumo::secureapp {
namespace {

constexpr size_t kMaxEntropyBytes = 2048;
constexpr size_t kVerifiedBootKeyBytes = 32;
constexpr size_t kMaxOperations = 16;
constexpr size_t kMaxStrongBoxOperations = 4;

// The number that attestations use; the boot loader's colours are in another order.
uint32_t verifiedBootState(uint32_t color) {
    switch (static_cast<BootColor>(color)) {
        case BootColor::kGreen:
            return 0;
        case BootColor::kYellow:
            return 1;
        case BootColor::kOrange:
            return 2;
        case BootColor::kRed:
            return 3;
    }
    refuse(KM_ERROR_INVALID_ARGUMENT, "the boot loader's colour ", color, " is none of 0 to 3");
}

// The values that configure() sets, in a fixed order.
ParamSet configuredValues(const ParamSet& params) {
    ParamSet values;
    for (const keymaster_tag_t tag :
         {KM_TAG_OS_VERSION, KM_TAG_OS_PATCHLEVEL, kTagVendorPatchlevel}) {
        const Param* param = params.find(tag);
        if (param != nullptr) values.add(*param);
    }
    return values;
}

// A HAL without date support sends its vendor patch level without a day. Read as a date it would be
// wrong, so it is left out.
void addPatchDate(ParamSet& versions, keymaster_tag_t tag, std::optional<uint64_t> value) {
    if (value && isPatchDate(*value)) versions.add(intParam(tag, *value));
}

}  // namespace

Keymaster::Keymaster(const KeymasterOptions& options, DeviceConfig config, State& state,
                     State& shared_state, Clock& clock, RandomSource& random)
    : options_(options),
      config_(std::move(config)),
      state_(state),
      clock_(clock),
      random_(random),
      hmac_(state, shared_state, random, options.level),
      access_(clock, options.trusted_clock),
      keys_(options_, config_, state, shared_state, random),
      operations_(
          options.level == KM_SECURITY_LEVEL_STRONGBOX ? kMaxStrongBoxOperations : kMaxOperations,
          access_, random) {}

void Keymaster::configure(const ParamSet& params) {
    const ParamSet values = configuredValues(params);
    if (!values.contains(KM_TAG_OS_VERSION) || !values.contains(KM_TAG_OS_PATCHLEVEL)) {
        refuse(
            KM_ERROR_INVALID_ARGUMENT,
            "configure needs OS_VERSION and OS_PATCHLEVEL and came with: ", versionWords(values));
    }
    if (configured_) {
        if (!std::equal(values.begin(), values.end(), configured_->begin(), configured_->end())) {
            refuse(KM_ERROR_INVALID_ARGUMENT, "this boot was configured with ",
                   versionWords(*configured_), ", and now comes ", versionWords(values),
                   "; other versions need a restart of the secure application");
        }
        return;
    }
    configured_ = values;
    versions_ = {*values.find(KM_TAG_OS_VERSION), *values.find(KM_TAG_OS_PATCHLEVEL)};
    std::optional<uint64_t> vendor = config_.vendor_patchlevel;
    if (!vendor) vendor = values.integer(kTagVendorPatchlevel);
    addPatchDate(versions_, kTagVendorPatchlevel, vendor);
    addPatchDate(versions_, kTagBootPatchlevel, config_.boot_patchlevel);
}

void Keymaster::requireConfigured() const {
    if (!configured_) {
        refuse(KM_ERROR_KEYMASTER_NOT_CONFIGURED,
               "nobody has sent the versions of the system since the boot");
    }
}

void Keymaster::addEntropy(ByteView entropy) {
    requireConfigured();
    if (entropy.size() > kMaxEntropyBytes) {
        refuse(KM_ERROR_INVALID_INPUT_LENGTH, entropy.size(), " bytes of entropy are more than ",
               kMaxEntropyBytes);
    }
    random_.mix(entropy);
}

Bytes Keymaster::computeSharedHmac(const std::vector<HmacSharingParameters>& all) {
    return hmac_.agree(all);
}

VerificationToken Keymaster::verifyAuthorization(uint64_t challenge) {
    if (options_.level == KM_SECURITY_LEVEL_STRONGBOX) {
        refuse(KM_ERROR_UNIMPLEMENTED, "StrongBox does not verify authorizations");
    }
    requireConfigured();
    VerificationToken token;
    token.challenge = challenge;
    token.timestamp = clock_.bootMillis();
    token.security_level = options_.level;
    token.mac = verificationTokenMac(hmac_.key(), challenge, token.timestamp, options_.level);
    return token;
}

void Keymaster::destroyDeviceIds() {
    requireConfigured();
    secureapp::destroyDeviceIds(state_);
}

void Keymaster::earlyBootEnded() {
    early_boot_ = false;
}

void Keymaster::deviceLocked(bool password_only) {
    access_.lockDevice(password_only);
}

void Keymaster::setRootOfTrust(ByteView verified_boot_key) {
    if (verified_boot_key.size() != kVerifiedBootKeyBytes) {
        refuse(KM_ERROR_INVALID_ARGUMENT, "the verified boot key has ", verified_boot_key.size(),
               " bytes in place of ", kVerifiedBootKeyBytes);
    }
    // Keys are bound to the root of trust, so it cannot change once one was used.
    if (root_of_trust_set_ || keys_.used()) {
        refuse(KM_ERROR_ROOT_OF_TRUST_ALREADY_SET, "the root of trust is fixed for this boot: ",
               root_of_trust_set_ ? "it was set before" : "a key was made or opened under it");
    }
    config_.verified_boot_key = verified_boot_key.copy();
    root_of_trust_set_ = true;
}

// The boot loader's system version is not used: keys are bound to the version that the HAL sends.
void Keymaster::setBootState(bool locked, uint32_t color, uint32_t /*system_version*/,
                             uint32_t /*system_patchlevel*/) {
    const uint32_t state = verifiedBootState(color);
    if (boot_state_set_ || keys_.used()) {
        refuse(KM_ERROR_ROOT_OF_TRUST_ALREADY_SET, "the boot state is fixed for this boot: ",
               boot_state_set_ ? "it was sent before" : "a key was made or opened in it");
    }
    config_.device_locked = locked;
    config_.verified_boot_state = state;
    boot_state_set_ = true;
}

bool Keymaster::confirmPresence() {
    return access_.confirmPresence();
}

bool Keymaster::awaitsPresence(uint64_t handle) {
    const RunningOperation& running = runningOperation(handle);
    return running.controlled && access_.awaitsPresence(running.admission);
}

}  // namespace lumo::secureapp
