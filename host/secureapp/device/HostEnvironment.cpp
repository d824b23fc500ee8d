#include "secureapp/device/HostEnvironment.h"

#include <sys/random.h>
#include <time.h>

#include <algorithm>
#include <cerrno>

#include "secureapp/base/Posix.h"
#include "secureapp/base/Refusal.h"
#include "secureapp/crypto/Digest.h"

namespace lumo::secureapp {
namespace {

constexpr size_t kCounterBytes = 8;

uint64_t millis(clockid_t clock) {
    timespec now = {};
    if (::clock_gettime(clock, &now) != 0) {
        refuse(KM_ERROR_UNKNOWN_ERROR, "the system has no clock: ", systemError(errno));
    }
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

void fillFromKernel(Bytes& bytes) {
    size_t filled = 0;
    while (filled < bytes.size()) {
        const ssize_t got = ::getrandom(bytes.data() + filled, bytes.size() - filled, 0);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) {
            refuse(KM_ERROR_UNKNOWN_ERROR,
                   "the system gives no random bytes: ", systemError(errno));
        }
        filled += static_cast<size_t>(got);
    }
}

}  // namespace

// The boot-time clock counts through suspend, as the platform's does.
uint64_t HostClock::bootMillis() {
    return fixed_time_ ? *fixed_time_ : millis(CLOCK_BOOTTIME);
}

uint64_t HostClock::wallMillis() {
    return fixed_time_ ? *fixed_time_ : millis(CLOCK_REALTIME);
}

HostRandom::HostRandom(const std::optional<Bytes>& seed)
    : seeded_(seed.has_value()), pool_(sha256(seed.value_or(Bytes()))) {}

// The kernel's bytes XOR the HMAC of a counter under the pool.
Bytes HostRandom::bytes(size_t count) {
    const std::lock_guard<std::mutex> lock(mutex_);
    Bytes result(count, 0);
    if (!seeded_) fillFromKernel(result);
    for (size_t done = 0; done < count; done += kSha256Bytes) {
        Bytes counter(kCounterBytes);
        for (size_t i = 0; i < kCounterBytes; ++i) {
            counter[i] = static_cast<uint8_t>(counter_ >> (8 * i));
        }
        ++counter_;
        const Bytes block = hmacSha256(pool_, counter);
        const size_t size = std::min(block.size(), count - done);
        for (size_t i = 0; i < size; ++i) {
            result[done + i] = static_cast<uint8_t>(result[done + i] ^ block[i]);
        }
    }
    return result;
}

void HostRandom::mix(ByteView entropy) {
    const std::lock_guard<std::mutex> lock(mutex_);
    Bytes both = pool_;
    both.insert(both.end(), entropy.begin(), entropy.end());
    pool_ = sha256(both);
}

}  // namespace lumo::secureapp
