// The command that presses the device's button.
#include <chrono>
#include <thread>

#include "Failure.h"
#include "RehearsalCommands.h"
#include "Report.h"
#include "WorkstationServices.h"

namespace lumo::cli {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kInterval{50};
constexpr uint64_t kMaxWaitSeconds = 3600;

// There is one button for both levels.
bool pressOnce() {
    bool any = false;
    for (const auto level : {KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT, KM_SECURITY_LEVEL_STRONGBOX}) {
        bool counted = false;
        requireRehearsed("press the button", Rehearsal(level).press(&counted));
        any = any || counted;
    }
    return any;
}

Action declarePress(CLI::App& app, const Common& common) {
    const auto seconds = std::make_shared<uint64_t>(0);
    app.add_option("--wait", *seconds, "seconds to wait for an operation that wants the button")
        ->check(CLI::Range(uint64_t{0}, kMaxWaitSeconds).description(""))
        ->type_name("SECONDS")
        ->capture_default_str();
    return [seconds, &common] {
        requireFittingOptions();
        if (Rehearsal(KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT).isInProcess()) {
            throw Failure(
                Exit::usage,
                "a secure application in a client's own process has no button for others: "
                "there the command that waits asks for Enter; with a daemon, name it: "
                "LUMO_TRANSPORT=unix:PATH");
        }
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(*seconds);
        while (!pressOnce()) {
            if (std::chrono::steady_clock::now() >= end) {
                throw Failure(
                    Exit::refused,
                    "no operation waits for the button, so that this press does not count; "
                    "it counts from begin to the first data: start the command that wants "
                    "it first, or give --wait");
            }
            std::this_thread::sleep_for(kInterval);
        }
        conclude(common, {{"pressed", true}}, "the user's presence is proven");
    };
}

constexpr char kPressNotes[] =
    "Keys made with --trusted-presence want the button in each use: lumokm sign, encrypt and\n"
    "decrypt wait for it. world.conf gives the device a button: user_presence = yes.\n"
    "Exit status 3 says that no operation waited.\n\n"
    "Examples:\n"
    "  lumokm press\n"
    "  lumokm sign --key present.key --digest sha256 --in file --out file.sig &\n"
    "  lumokm press --wait 10";

}  // namespace

Rehearsal rehearsalOf(SecurityLevel level) {
    return Rehearsal(static_cast<keymaster_security_level_t>(level));
}

void requireRehearsed(const std::string& doing, keymaster_error_t error) {
    require(doing, static_cast<ErrorCode>(error));
}

Command pressCommand() {
    return {"press", "Press the device's button to prove the user's presence", kPressNotes,
            declarePress};
}

}  // namespace lumo::cli
