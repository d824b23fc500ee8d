// What a secure application gets from its environment: clock, randomness and persistent storage.
// Tests provide their own.
#pragma once

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>

#include "secureapp/base/Bytes.h"

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

// The size of the largest record.
constexpr size_t kMaxRecordBytes = 16 << 20;

// Named records that survive a restart. Every call throws StateError when the storage fails.
class State {
  public:
    virtual ~State() = default;
    virtual std::optional<Bytes> read(const std::string& name) = 0;
    // Replaces the record by what `change` makes of it, with every other writer locked out;
    // std::nullopt stands for an absent record. After a crash either the old or the new record is
    // there.
    virtual void update(
        const std::string& name,
        const std::function<std::optional<Bytes>(const std::optional<Bytes>&)>& change) = 0;
    // Removes the record, whatever it holds; no error when there is none.
    virtual void remove(const std::string& name) = 0;
    // Differs from an earlier stamp if the record has changed since; nullopt where that is unknown.
    virtual std::optional<Bytes> stamp(const std::string& /*name*/) { return std::nullopt; }
};

// The secrets from which everything else is derived: a record of the instance's own, and one that
// the instances of one device share.
constexpr char kDeviceKeyRecord[] = "device-key";
constexpr char kSharedSecretRecord[] = "shared-secret";
constexpr size_t kSecretRecordBytes = 32;

// A secret in the record `name` of `state`, both of which outlive it.
class LastingSecret {
  public:
    // Reads the record; where there is none, draws `count` random bytes for it.
    LastingSecret(State& state, RandomSource& random, std::string name, size_t count);

    // The record, stored first where there was none: nothing may be derived from a secret that a
    // crash can undo. Another instance may have stored its own in the meantime.
    const Bytes& bytes();

  private:
    State& state_;
    const std::string name_;
    Bytes bytes_;
    bool stored_;
};

// The record `name`; created with `count` random bytes where there is none yet.
Bytes lastingSecret(State& state, RandomSource& random, const std::string& name, size_t count);

}  // namespace lumo::secureapp
