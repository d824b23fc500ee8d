// Memory from malloc on its way to a caller, who releases it with free, and the wiping of secrets.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

namespace keymasterdevice {

struct FreeDelete {
    void operator()(void* memory) const { std::free(memory); }
};

using MallocedBytes = std::unique_ptr<uint8_t[], FreeDelete>;

// `size` bytes from malloc; null when there is no memory. With a size of 0 the result may be null
// or not, as malloc decides.
[[nodiscard]] inline MallocedBytes mallocBytes(size_t size) {
    // NOLINTNEXTLINE(clang-analyzer-optin.portability.UnixAPI): a size of 0 is meant
    return MallocedBytes(static_cast<uint8_t*>(std::malloc(size)));
}

// Overwrites `size` bytes in a way that the compiler does not leave out. Null is allowed with 0.
void wipe(void* memory, size_t size);

// Memory from malloc that holds a secret of `size` bytes: wiped before it is freed, on every path
// but that of release().
struct WipeAndFree {
    size_t size = 0;
    void operator()(uint8_t* memory) const {
        wipe(memory, size);
        std::free(memory);
    }
};

using SecretBytes = std::unique_ptr<uint8_t[], WipeAndFree>;

// Wipes a buffer of the caller's when it goes out of scope. The buffer must outlive this object and
// must not be moved by then.
class WipeAtExit {
  public:
    WipeAtExit(void* memory, size_t size) : memory_(memory), size_(size) {}
    ~WipeAtExit() { wipe(memory_, size_); }
    WipeAtExit(const WipeAtExit&) = delete;
    WipeAtExit& operator=(const WipeAtExit&) = delete;

  private:
    void* memory_;
    size_t size_;
};

// The same for what a vector of the caller's holds by then, which is nothing once it was moved
// from.
class WipeVectorAtExit {
  public:
    explicit WipeVectorAtExit(std::vector<uint8_t>& bytes) : bytes_(bytes) {}
    ~WipeVectorAtExit() { wipe(bytes_.data(), bytes_.size()); }
    WipeVectorAtExit(const WipeVectorAtExit&) = delete;
    WipeVectorAtExit& operator=(const WipeVectorAtExit&) = delete;

  private:
    std::vector<uint8_t>& bytes_;
};

}  // namespace keymasterdevice
