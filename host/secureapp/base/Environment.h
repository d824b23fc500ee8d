// What a secure application gets from its surroundings: clock, randomness, lasting storage and the
// facts of the device it stands for. Tests give their own.
#pragma once

#include <functional>
#include <map>
#include <stdexcept>

#include "secureapp/base/Types.h"

namespace lumo::secureapp {

class Clock {
  public:
    virtual ~Clock() = default;
    virtual uint64_t bootMillis() = 0;  // monotonic, since boot
    virtual uint64_t wallMillis() = 0;  // since 1970-01-01 UTC
};

class RandomSource {
  public:
    virtual ~RandomSource() = default;
    virtual Bytes bytes(size_t count) = 0;
    virtual void mix(ByteView entropy) = 0;  // adds to the internal state, never replaces it
};

// The storage could not be read or written; `what` says which file, why and what to try.
class StateError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Named records that survive a restart. Every call throws StateError when the storage fails.
class State {
  public:
    virtual ~State() = default;
    virtual std::optional<Bytes> read(const std::string& name) = 0;
    // Replaces the record by what `change` makes of it, with every other writer locked out; nothing
    // in, nothing out: an absent record. After a crash either the old or the new record is there.
    virtual void update(
        const std::string& name,
        const std::function<std::optional<Bytes>(const std::optional<Bytes>&)>& change) = 0;
};

// The record `name`; made of `count` random bytes when it is not there yet.
Bytes lastingSecret(State& state, RandomSource& random, const std::string& name, size_t count);

// The facts of the device: what boot loader and factory would tell.
struct DeviceConfig {
    // YYYYMMDD. The vendor's comes from the HAL at start unless it is set here.
    std::optional<uint32_t> vendor_patchlevel;
    std::optional<uint32_t> boot_patchlevel = 20201205;

    Bytes verified_boot_key = Bytes(32, 0);
    bool device_locked = false;        // the boot loader's lock
    uint32_t verified_boot_state = 2;  // 0 verified, 1 self-signed, 2 unverified, 3 failed
    Bytes verified_boot_hash = Bytes(32, 0x5A);

    std::map<keymaster_tag_t, Bytes>
        device_ids;  // by KM_TAG_ATTESTATION_ID_*; absent: not provisioned

    bool rollback_resistance = false;  // whether such keys can be made
    bool trusted_clock = false;        // whether dates of keys are enforced by wall-clock time
    bool user_presence = false;  // whether there is a button; presence is proven by pressing it
    bool test_attestation_keys = false;  // the fixed test root in place of keys of its own
};

}  // namespace lumo::secureapp
