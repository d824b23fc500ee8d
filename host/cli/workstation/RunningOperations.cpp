// What the workstation's client does with a running operation beside the interface: it keeps it,
// and waits for the button.
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "Failure.h"
#include "Files.h"
#include "RehearsalCommands.h"
#include "Report.h"
#include "ServiceSource.h"

namespace lumo::cli {

namespace {

using std::chrono::milliseconds;

constexpr std::chrono::seconds kButtonPatience{60};
constexpr milliseconds kButtonInterval{100};

std::string patienceText() {
    return std::to_string(kButtonPatience.count()) + " seconds";
}

[[noreturn]] void failUnpressed(const std::string& why) {
    throw Failure(Exit::refused, "the key wants the user's presence: " + why,
                  {km::V4_1::ErrorCode::PROOF_OF_PRESENCE_REQUIRED, std::nullopt, why});
}

bool isWanted(Rehearsal& rehearsal, uint64_t operation) {
    bool wanted = false;
    requireRehearsed("wait for the button", rehearsal.awaitsPresence(operation, &wanted));
    return wanted;
}

// Somebody else presses the daemon's button.
void awaitOthersPress(Rehearsal& rehearsal, uint64_t operation) {
    say("waiting for the button: run lumokm press within " + patienceText());
    const auto end = std::chrono::steady_clock::now() + kButtonPatience;
    while (isWanted(rehearsal, operation)) {
        if (std::chrono::steady_clock::now() >= end) {
            failUnpressed("nobody pressed the button within " + patienceText());
        }
        std::this_thread::sleep_for(kButtonInterval);
    }
}

// The button of a secure application in this process is the terminal's Enter, since nobody else can
// reach it. Standard input may be the data.
void pressByEnter(Rehearsal& rehearsal) {
    const FileDescriptor terminal(open("/dev/tty", O_RDONLY | O_CLOEXEC));
    if (!terminal.isOpen()) {
        failUnpressed(
            "there is no terminal to press Enter at, which is the button of a secure application "
            "in "
            "this process; run the daemon, whose button lumokm press presses");
    }
    say("press Enter within " + patienceText() + " to prove presence");
    pollfd entry = {terminal.get(), POLLIN, 0};
    const int ready = poll(&entry, 1, static_cast<int>(milliseconds(kButtonPatience).count()));
    char line[256];
    if (ready <= 0 || read(terminal.get(), line, sizeof(line)) <= 0) {
        failUnpressed("nobody pressed Enter within " + patienceText());
    }
    bool counted = false;
    requireRehearsed("press the button", rehearsal.press(&counted));
}

}  // namespace

void awaitPresence(SecurityLevel level, uint64_t operation) {
    Rehearsal rehearsal(static_cast<keymaster_security_level_t>(level));
    bool wanted = false;
    // Where that cannot be told, the keymaster says so when the data comes.
    if (rehearsal.awaitsPresence(operation, &wanted) != KM_ERROR_OK || !wanted) return;
    if (rehearsal.isInProcess()) return pressByEnter(rehearsal);
    awaitOthersPress(rehearsal, operation);
}

bool awaitsPresence(SecurityLevel level, uint64_t operation) {
    Rehearsal rehearsal(static_cast<keymaster_security_level_t>(level));
    return isWanted(rehearsal, operation);
}

void requireLastingOperations() {
    if (!Rehearsal(KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT).isInProcess()) return;
    throw Failure(Exit::usage,
                  "the secure application is in this process, and the operation would end with it; "
                  "run lumo-secureapp and name it: LUMO_TRANSPORT=unix:PATH");
}

void keepOperation(SecurityLevel level, uint64_t operation, std::chrono::seconds patience) {
    Rehearsal rehearsal(static_cast<keymaster_security_level_t>(level));
    requireRehearsed("keep the operation", rehearsal.keepOperation(operation, patience));
}

}  // namespace lumo::cli
