#include <signal.h>

#include "CommandLine.h"

int main(int argc, char** argv) {
    // A reader that goes away becomes a failed write with a message of its own.
    signal(SIGPIPE, SIG_IGN);
    return lumo::cli::run(argc, argv);
}
