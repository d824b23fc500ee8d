// What others than apps do to a device: the user who presses the button, the authenticators and the
// other secure element, whose tokens are made here, and an engineer who takes an operation apart
// into its steps. No device has these commands. They stand beside both protocols and are for
// whoever has the device to himself: its process, or the socket that admits its owner only.
#pragma once

#include <cstddef>
#include <cstdint>

namespace lumo::secureapp {

// Requests and answers are numbers of 64 bits, little-endian, in the order given; "bytes" end them.
enum class RehearsalCommand : uint32_t {
    // challenge, user id, authenticator id, authenticator type, timestamp -> bytes: the token
    kMintAuthToken = 1,
    // challenge, timestamp, security level -> timestamp, bytes: the MAC
    kMintVerificationToken = 2,
    // bytes: what the user has confirmed -> bytes: the token
    kMintConfirmation = 3,
    // nothing -> 1 where an operation waited for the button, else 0
    kPress = 4,
    // operation handle -> 1 where it waits for the button, else 0
    kAwaitsPresence = 5,
    // operation handle, milliseconds that it may wait for a step -> nothing
    kKeepOperation = 6,
};

constexpr size_t kRehearsalNumberBytes = 8;
// As a timestamp: the application's own clock.
constexpr uint64_t kTimestampNow = UINT64_MAX;

}  // namespace lumo::secureapp
