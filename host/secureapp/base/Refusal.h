// How everything within the secure application refuses.
#pragma once

#include <hardware/keymaster_defs.h>

#include <exception>
#include <string>
#include <utility>

namespace lumo::secureapp {

// The code goes to the client in the protocol; the reason, a sentence for people without any
// secret in it, travels beside the protocol. May be empty.
class Refusal : public std::exception {
  public:
    explicit Refusal(keymaster_error_t code, std::string reason = {})
        : code_(code), reason_(std::move(reason)) {}

    keymaster_error_t code() const { return code_; }
    const std::string& reason() const { return reason_; }
    const char* what() const noexcept override {
        return reason_.empty() ? "refused by the secure application" : reason_.c_str();
    }

  private:
    keymaster_error_t code_;
    std::string reason_;
};

[[noreturn]] inline void refuse(keymaster_error_t code) {
    throw Refusal(code);
}
[[noreturn]] inline void refuse(keymaster_error_t code, std::string reason) {
    throw Refusal(code, std::move(reason));
}

}  // namespace lumo::secureapp
