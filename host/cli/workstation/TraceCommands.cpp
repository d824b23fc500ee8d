#include "TraceCommands.h"

namespace lumo::cli {

namespace {

constexpr char kTraceNotes[] =
    "A trace is made by --trace FILE before any command, by LUMO_TRACE=FILE in the\n"
    "environment of any program on the workstation's transport, and by lumo-secureapp.\n"
    "Each field stands behind its byte offset and size in the message. Lines that\n"
    "cannot be read are named, and the exit status is then 5; 2 where none can be.\n\n"
    "Examples:\n"
    "  lumokm --trace t sign -k key --digest sha256 -i data -o sig\n"
    "  lumokm trace t --errors\n"
    "  lumokm trace t --command begin --from 3";

constexpr char kReplayNotes[] =
    "The requests go to the application that --transport names, with its own key\n"
    "blobs, handles and nonces in place of the recorded ones. What differs by nature\n"
    "is compared by form. The first difference that matters ends the replay with exit\n"
    "status 5, as lines do that cannot be read; another protocol than the trace's is\n"
    "exit status 2. Lines with redacted secrets, or tokens of another HMAC key, are\n"
    "left out and counted.\n\n"
    "Examples:\n"
    "  lumokm replay t\n"
    "  lumokm --transport unix:/run/user/1000/lumo.sock replay t";

}  // namespace

CommandGroup traceCommands() {
    return {"Recorded exchanges",
            {{"trace", "Show a recorded trace", kTraceNotes, declareTrace},
             {"replay", "Send a trace's requests again and compare the answers", kReplayNotes,
              declareReplay}}};
}

}  // namespace lumo::cli
