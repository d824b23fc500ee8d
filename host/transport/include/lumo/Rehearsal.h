// What a program on the workstation may do to the secure application beside the maker's interface,
// as its user, as an authenticator of its device, or as an engineer who takes an operation apart.
//
// It goes to the secure application that LUMO_TRANSPORT names: over the daemon's socket, which
// admits its owner only, or to the one in this process, which it shares with the service objects
// here.
#pragma once

#include <hardware/keymaster_defs.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace lumo {

// Every call but the constructor, which opens nothing, returns KM_ERROR_OK or why it failed, with
// the reason in lastExchangeReason() (lumo/Transport.h); after an error the output is as it was.
class Rehearsal {
  public:
    // Of the level's secure application: StrongBox's, or for every other level the trusted
    // environment's.
    explicit Rehearsal(keymaster_security_level_t level);
    ~Rehearsal();
    Rehearsal(const Rehearsal&) = delete;
    Rehearsal& operator=(const Rehearsal&) = delete;

    // Whether the application is in this process: what lasts for a boot ends with the process.
    bool isInProcess() const;
    // Whether another process can have the same HMAC key, so that a token made here is good there:
    // with a daemon, and where each boot draws the same random numbers (random_seed).
    keymaster_error_t sharesItsKey(bool* shares);

    // Milliseconds since boot; nothing stands for the secure application's clock.
    using Timestamp = std::optional<uint64_t>;

    // All fields as they are, under the HMAC key of this boot. The token has 69 bytes.
    struct AuthToken {
        uint64_t challenge = 0;
        uint64_t user_id = 0;
        uint64_t authenticator_id = 0;
        uint32_t authenticator_type = 0;
        Timestamp timestamp;
    };
    keymaster_error_t mintAuthToken(const AuthToken& fields, std::vector<uint8_t>* token);

    // `timestamp` comes back as it is in the token. The MAC has 32 bytes.
    keymaster_error_t mintVerificationToken(uint64_t challenge, uint32_t security_level,
                                            Timestamp* timestamp, std::vector<uint8_t>* mac);

    // The token for `data`, which the user is said to have confirmed. 32 bytes.
    keymaster_error_t mintConfirmation(const std::vector<uint8_t>& data,
                                       std::vector<uint8_t>* token);

    // Presses the button. `counted`: whether an operation waited for it; else the press is lost.
    keymaster_error_t press(bool* counted);
    // Whether the operation waits for the button.
    keymaster_error_t awaitsPresence(uint64_t operation, bool* awaits);

    // Keeps the operation when its client goes; it ends when no step comes for `patience`, which is
    // more than nothing and at most a day.
    keymaster_error_t keepOperation(uint64_t operation, std::chrono::milliseconds patience);

  private:
    struct Way;
    std::unique_ptr<Way> way_;
};

}  // namespace lumo
