// How everything within the secure application refuses.
#pragma once

#include <hardware/keymaster_defs.h>

#include <exception>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace lumo::secureapp {

// The code goes to the client in the protocol; the reason travels beside the protocol. It is one
// sentence for people, without any secret in it: what was asked for and what it was compared with.
// Every place that refuses has one of its own, so that it also tells where. Behind "; " it may say
// what to try, where that differs from what the code alone suggests.
class Refusal : public std::exception {
  public:
    Refusal(keymaster_error_t code, std::string reason) : code_(code), reason_(std::move(reason)) {}

    keymaster_error_t code() const { return code_; }
    const std::string& reason() const { return reason_; }
    const char* what() const noexcept override { return reason_.c_str(); }

  private:
    keymaster_error_t code_;
    std::string reason_;
};

template <typename Part>
std::string reasonPart(const Part& part) {
    if constexpr (std::is_integral_v<Part>) {
        return std::to_string(part);
    } else {
        return std::string(std::string_view(part));
    }
}

// Throws the Refusal whose reason is the parts one after the other: text, and numbers in decimal.
template <typename... Parts>
[[noreturn]] void refuse(keymaster_error_t code, const Parts&... parts) {
    static_assert(sizeof...(Parts) > 0, "a refusal has a reason");
    throw Refusal(code, (std::string() + ... + reasonPart(parts)));
}

}  // namespace lumo::secureapp
