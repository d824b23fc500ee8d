#include "TraceCommands.h"

namespace lumo::cli {

namespace {

constexpr char kTraceNotes[] =
    "A trace is made by --trace FILE before any command, by LUMO_TRACE=FILE in the\n"
    "environment of any program on the workstation's transport, and by lumo-secureapp.\n"
    "Each field stands behind its byte offset and size in the message.\n\n"
    "Examples:\n"
    "  lumokm --trace t sign -k key --digest sha256 -i data -o sig\n"
    "  lumokm trace t --errors\n"
    "  lumokm trace t --command begin --from 3";

}  // namespace

CommandGroup traceCommands() {
    return {"Recorded exchanges", {{"trace", "Show a recorded trace", kTraceNotes, declareTrace}}};
}

}  // namespace lumo::cli
