// Surroundings of a secure application under test: nothing in them moves by itself.
#pragma once

#include <map>
#include <utility>

#include "secureapp/base/Environment.h"

namespace lumo::test {

// Stands still until the test moves it.
class FixedClock : public secureapp::Clock {
  public:
    uint64_t boot = 1'000'000;
    uint64_t wall = 1'600'000'000'000;

    uint64_t bootMillis() override { return boot; }
    uint64_t wallMillis() override { return wall; }
    void advance(uint64_t millis) {
        boot += millis;
        wall += millis;
    }
};

// The same unguessed-looking bytes in every run (xorshift64*); two seeds give two sequences.
class CountingRandom : public secureapp::RandomSource {
  public:
    explicit CountingRandom(uint64_t seed = 1) : state_(0x9E3779B97F4A7C15U * (seed + 1)) {}

    secureapp::Bytes bytes(size_t count) override {
        secureapp::Bytes result(count);
        for (uint8_t& byte : result) byte = next();
        return result;
    }
    void mix(secureapp::ByteView entropy) override { mixed += entropy.size(); }

    size_t mixed = 0;  // bytes of entropy handed in so far

  private:
    uint8_t next() {
        state_ ^= state_ >> 12;
        state_ ^= state_ << 25;
        state_ ^= state_ >> 27;
        return static_cast<uint8_t>((state_ * 0x2545F4914F6CDD1DU) >> 56);
    }

    uint64_t state_;
};

// Records in memory; they outlive a secure application that is "restarted" over them.
class MemoryState : public secureapp::State {
  public:
    std::map<std::string, secureapp::Bytes> records;
    bool broken = false;  // every access fails while set

    std::optional<secureapp::Bytes> read(const std::string& name) override {
        check();
        const auto found = records.find(name);
        if (found == records.end()) return std::nullopt;
        return found->second;
    }

    void update(const std::string& name,
                const std::function<std::optional<secureapp::Bytes>(
                    const std::optional<secureapp::Bytes>&)>& change) override {
        std::optional<secureapp::Bytes> changed = change(read(name));
        if (changed) {
            records[name] = std::move(*changed);
        } else {
            records.erase(name);
        }
    }
    void remove(const std::string& name) override { records.erase(name); }

  private:
    void check() const {
        if (broken) throw secureapp::StateError("the test's storage is broken");
    }
};

}  // namespace lumo::test
