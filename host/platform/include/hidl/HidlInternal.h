#pragma once

// Stand-in for the HIDL runtime's internals that interface code uses: pointer representation,
// interface mark, fatal log.

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>

namespace android::hardware::details {

// Marks a class as an interface: each has `typedef i_tag _hidl_tag`.
struct i_tag {};

// Logs and aborts.
[[noreturn]] void logAlwaysFatal(const char* message);

// "0x" and the bits of an integer in lower-case hexadecimal, without leading zeros.
std::string hexString(uint64_t bits);

template <typename Integer>
std::string toHexString(Integer value) {
    return hexString(static_cast<std::make_unsigned_t<Integer>>(value));
}

// A pointer that occupies 8 bytes on every ABI, so that 32- and 64-bit processes share
// one layout.
template <typename T>
struct hidl_pointer {
    hidl_pointer() : pad_(0) {}
    hidl_pointer(T* pointer) : pad_(0) { pointer_ = pointer; }

    T* operator->() const { return pointer_; }
    T& operator*() const { return *pointer_; }
    operator T*() const { return pointer_; }

  private:
    union {
        uint64_t pad_;
        T* pointer_;
    };
};

static_assert(sizeof(hidl_pointer<char>) == 8 && alignof(hidl_pointer<char>) == 8,
              "published layout");

}  // namespace android::hardware::details
