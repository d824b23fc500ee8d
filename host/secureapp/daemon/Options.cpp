#include "secureapp/daemon/Options.h"

namespace lumo::secureapp {

namespace {

// The tools have one version. The build gives it, as nothing is shared with the library.
constexpr char kVersion[] = "lumo-secureapp " LUMO_TOOLS_VERSION;

constexpr char kFooter[] =
    "SIGTERM and SIGINT end the daemon after the command at hand; SIGUSR1 presses\n"
    "the button of world.conf's user_presence.\n\n"
    "Started by systemd it tells when it is ready and when it ends (NOTIFY_SOCKET).\n\n"
    "Example:\n"
    "  lumo-secureapp --listen unix:/run/user/1000/lumo.sock --harden\n\n"
    "Exit status:\n"
    "  0 ended by a signal   2 usage   4 cannot listen   6 state   1 anything else";

// An empty value would mean what no option does.
void requireValue(CLI::Option& option) {
    option.check(CLI::Validator(
        [](const std::string& value) {
            return value.empty() ? "it is empty; leave it out or name one" : "";
        },
        ""));
}

// In words of this program; a sign would have numbers wrap around.
void requireNumber(CLI::Option& option) {
    option.check(CLI::Validator(
        [](const std::string& value) {
            constexpr size_t kMostDigits = 9;
            const bool digits = value.find_first_not_of("0123456789") == std::string::npos;
            return value.empty() || value.size() > kMostDigits || !digits
                       ? "'" + value + "' is not a number of at most 9 digits"
                       : "";
        },
        ""));
}

}  // namespace

void declareOptions(CLI::App& program, Options& options) {
    program.name("lumo-secureapp");
    program.description("The software secure keymaster application, for several clients.");
    program.footer(kFooter);
    program.add_option("--listen", options.listen, "where clients connect")->type_name("unix:PATH");
    program
        .add_option("--state", options.state,
                    "state directory (else LUMO_STATE_DIR, else\n"
                    "that of the user)")
        ->type_name("DIR");
    program.add_option("--profile", options.profile, "which one to play (default cbor)")
        ->type_name("NAME");
    program.add_flag("--test-keys", options.test_keys,
                     "attest with the fixed, published test keys");
    program
        .add_option("--ready-fd", options.ready_fd,
                    "gets \"ready\" and is closed once clients can\n"
                    "connect")
        ->type_name("FD");
    program
        .add_option("--idle", options.idle_seconds,
                    "how long an idle client keeps its place when all\n"
                    "are taken and another one comes (default 60)")
        ->type_name("SECONDS");
    program
        .add_option("--log", options.log,
                    "append the log to this file (default: to\n"
                    "standard error)")
        ->type_name("FILE");
    program
        .add_option("--trace", options.trace,
                    "append every exchange to this file (else\n"
                    "LUMO_TRACE)")
        ->type_name("FILE");
    program.add_flag("--unredacted", options.unredacted,
                     "let the trace have keys, plaintext and tokens");
    program.add_flag("-v,--verbose", options.verbose,
                     "log clients that come and go, and every refusal\n"
                     "with its reason");
    program.add_flag("--harden", options.harden,
                     "let no other process of the user trace the\n"
                     "daemon, and leave no core dump");
    program.add_flag("--faults", options.faults,
                     "restart, or find the disk full, when a client\n"
                     "asks for it (rehearsals)");
    program.set_version_flag("--version", kVersion, "print the version and exit");
    program.add_flag("--print-capabilities", options.print_capabilities,
                     "print limits and profiles as JSON and exit");
    for (const char* name : {"--state", "--log", "--trace"}) {
        requireValue(*program.get_option(name));
    }
    requireNumber(*program.get_option("--ready-fd"));
    requireNumber(*program.get_option("--idle"));
}

}  // namespace lumo::secureapp
