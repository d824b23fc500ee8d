// Bytes that are wiped when they are released.
#pragma once

#include <openssl/crypto.h>

#include <utility>

#include "secureapp/base/Bytes.h"

namespace lumo::secureapp {

inline void wipe(Bytes& bytes) {
    if (!bytes.empty()) OPENSSL_cleanse(bytes.data(), bytes.size());
}

// Holds a secret for as long as it is needed. What is moved out of it is the new owner's to wipe.
class Secret {
  public:
    Secret() = default;
    explicit Secret(Bytes bytes) : bytes_(std::move(bytes)) {}
    Secret(const Secret&) = delete;
    Secret& operator=(const Secret&) = delete;
    Secret(Secret&&) = default;
    Secret& operator=(Secret&& other) noexcept {
        bytes_.swap(other.bytes_);
        return *this;
    }
    ~Secret() { wipe(bytes_); }

    const Bytes& bytes() const { return bytes_; }
    Bytes& bytes() { return bytes_; }

  private:
    Bytes bytes_;
};

}  // namespace lumo::secureapp
