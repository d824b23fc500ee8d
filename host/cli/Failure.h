// How the client fails: one line for the user, one exit status for scripts.
#pragma once

#include <android/hardware/keymaster/4.1/types.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

namespace lumo::cli {

// The exit statuses. Scripts rely on the numbers.
enum class Exit : int {
    ok = 0,
    other = 1,      // a file, the machine
    usage = 2,      // the command line, the environment, an input of the wrong form
    refused = 3,    // the keymaster refused
    transport = 4,  // the secure application cannot be reached, or its answer not be read
    check = 5,      // a signature, a tag or an agreement does not match
    state = 6,      // the secure application's state cannot be used
};

// What a program may want to know of a failed call.
struct CallOutcome {
    std::optional<::android::hardware::keymaster::V4_1::ErrorCode> code;  // the keymaster's own
    std::optional<int32_t> reader_status;  // in its place, see ReaderStatus.h
    std::string reason;                    // of the secure application; empty where it is not known
};

// What went wrong and what to try, in one line without the program's name.
class Failure : public std::runtime_error {
  public:
    Failure(Exit status, const std::string& message, CallOutcome outcome = {})
        : std::runtime_error(message), status_(status), outcome_(std::move(outcome)) {}

    Exit status() const { return status_; }
    const CallOutcome& outcome() const { return outcome_; }

  private:
    Exit status_;
    CallOutcome outcome_;
};

// The end of a command that failed and has told how itself.
struct ReportedFailure {
    explicit ReportedFailure(Exit its_status) : status(its_status) {}

    Exit status;
};

// The status as scripts see it by name: "refused", "usage".
const char* nameOf(Exit status);

// `doing` completes "could not ...": "sign", "open the key". `reason` may be empty; where it says
// behind "; " what to try, that stands in place of what the code alone suggests.
Failure keymasterFailure(const std::string& doing,
                         ::android::hardware::keymaster::V4_1::ErrorCode error,
                         const std::string& reason);

// The same for an answer that the library could not read, see ReaderStatus.h.
Failure unreadableAnswer(const std::string& doing, int32_t status, const std::string& reason);

// "cannot ACTION PATH: REASON" for the errno given.
Failure fileFailure(const std::string& action, const std::string& path, int error_number);

}  // namespace lumo::cli
