// What the workers of a soak run have done and which keys they hold, in memory that all its
// processes share: it outlives a worker that is killed.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace lumo::bench::soak {

enum class KeyKind : uint32_t { aes, hmac, ec, rsa, wrapped, resistant };
constexpr size_t kKeyKinds = 6;

// A key goes through these in turn, then its place is free for another. Each state is entered when
// the answer that makes it true has come, so that a kill between two never claims too much.
enum class KeyState : uint32_t {
    none,
    live,      // the secure application said that it made it: it must open
    deleting,  // its deletion was asked for: it may open or not
    deleted,   // a key with rollback resistance whose deletion was confirmed: it must not open
};

struct KeyPlace {
    static constexpr size_t kMaxBlob = 4096;
    std::atomic<KeyState> state{KeyState::none};
    KeyKind kind{};
    uint32_t size = 0;
    std::array<uint8_t, kMaxBlob> blob{};
};

// Of one worker and of whoever takes its place.
struct Ledger {
    static constexpr size_t kKeysOfAKind = 8;
    std::atomic<bool> ready{false};  // its service object stands
    std::array<std::array<KeyPlace, kKeysOfAKind>, kKeyKinds> keys;
};

constexpr size_t kMaxWorkers = 16;

struct Shared {
    std::atomic<uint64_t> goal{0};
    std::atomic<uint64_t> operations{0};  // calls whose result was right
    std::atomic<uint64_t> interrupted{0};
    std::atomic<uint64_t> attestations{0}, rsa{0}, wrapped_imports{0};
    std::array<Ledger, kMaxWorkers> ledgers;

    bool done() const { return operations >= goal; }
};

}  // namespace lumo::bench::soak
