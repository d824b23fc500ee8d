// The clock and the randomness of the workstation.
#pragma once

#include <mutex>

#include "secureapp/base/Environment.h"

namespace lumo::secureapp {

class HostClock : public Clock {
  public:
    // With a fixed time both clocks always show it.
    explicit HostClock(std::optional<uint64_t> fixed_time = std::nullopt)
        : fixed_time_(fixed_time) {}

    uint64_t bootMillis() override;
    uint64_t wallMillis() override;

  private:
    std::optional<uint64_t> fixed_time_;
};

// The kernel's random bytes, combined with what was mixed in; with a seed, bytes that follow from
// the seed alone. May be called from several threads.
class HostRandom : public RandomSource {
  public:
    explicit HostRandom(const std::optional<Bytes>& seed = std::nullopt);

    Bytes bytes(size_t count) override;
    void mix(ByteView entropy) override;

  private:
    std::mutex mutex_;
    bool seeded_;
    Bytes pool_;  // 32 bytes
    uint64_t counter_ = 0;
};

}  // namespace lumo::secureapp
