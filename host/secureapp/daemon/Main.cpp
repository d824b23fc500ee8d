// lumo-secureapp: the software secure application as a daemon.

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>

#include "secureapp/base/Environment.h"
#include "secureapp/daemon/Frame.h"
#include "secureapp/daemon/Server.h"

namespace {

using namespace lumo::secureapp;

// The client program's statuses.
enum ExitStatus : int { kOk = 0, kOther = 1, kUsage = 2, kTransport = 4, kState = 6 };

constexpr char kSocketPrefix[] = "unix:";
constexpr char kDaemonLock[] = "daemon.lock";

struct Options {
    std::string listen;
    std::string state;
    std::string profile = "cbor";
    bool test_keys = false;
    int ready_fd = -1;
    std::string log;
    bool verbose = false;
    unsigned idle_seconds = kIdlePatience.count();
    bool harden = false;
    bool faults = false;
    bool print_capabilities = false;
};

void printCapabilities() {
    const nlohmann::ordered_json capabilities = {
        {"profiles", profileNames()},
        {"security_levels", {"trusted-environment", "strongbox"}},
        {"carriers", {"unix"}},
        {"largest_request_bytes", kMaxBodyBytes},
        {"largest_record_answer_bytes", kMaxCapacity},
        {"most_clients", kMaxClients},
        {"frame_patience_ms", kFramePatience.count()},
        {"idle_patience_ms", std::chrono::milliseconds(kIdlePatience).count()},
    };
    std::printf("%s\n", capabilities.dump(2).c_str());
}

// SIGTERM and SIGINT, which end the daemon, and SIGUSR1, which confirms presence, as a descriptor
// that becomes readable; before any thread exists. A reader of the output that has gone ends
// nothing.
FileHandle catchSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGUSR1);
    ::signal(SIGPIPE, SIG_IGN);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return FileHandle(::signalfd(-1, &signals, SFD_CLOEXEC));
}

void tellReady(int fd) {
    if (fd < 0) return;
    constexpr char kReady[] = "ready\n";
    if (::write(fd, kReady, sizeof(kReady) - 1) < 0) {
        std::fprintf(stderr, "lumo-secureapp: cannot tell that it is ready: %s\n",
                     systemError(errno).c_str());
    }
    ::close(fd);
}

// Nobody but root may look into the process, and no core of it is left: both hold all secrets.
void harden() {
    const rlimit none = {0, 0};
    if (::setrlimit(RLIMIT_CORE, &none) != 0 || ::prctl(PR_SET_DUMPABLE, 0) != 0) {
        throw StateError("cannot harden the process: " + systemError(errno));
    }
}

void run(const Options& options, const std::string& path) {
    if (options.harden) harden();
    const FileHandle signals = catchSignals();
    const Log log(options.log, options.verbose);
    DeviceOptions device_options;
    device_options.state_directory =
        options.state.empty() ? defaultStateDirectory() : options.state;
    device_options.profile = findProfile(options.profile);
    device_options.test_attestation_keys = options.test_keys;

    prepareStateDirectory(device_options.state_directory);
    const FileHandle lock = tryLockFile(device_options.state_directory + "/" + kDaemonLock);
    if (!lock) {
        throw StateError(device_options.state_directory +
                         " is in use by another daemon; stop it "
                         "or choose another with --state");
    }
    Device device(device_options);
    device.app(KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT);
    device.app(KM_SECURITY_LEVEL_STRONGBOX);
    Server server(device, path, std::chrono::seconds(options.idle_seconds), log);
    if (options.faults) server.takeFaults();
    tellReady(options.ready_fd);
    log.line("serves " + device_options.state_directory + " with profile " + options.profile +
             " at unix:" + path);
    const int signal = server.run(signals.get());
    log.line(std::string("ends after ") + ::strsignal(signal));
}

int complain(const char* what, ExitStatus status) {
    std::fprintf(stderr, "lumo-secureapp: %s\n", what);
    return status;
}

int start(const Options& options) {
    if (options.print_capabilities) {
        printCapabilities();
        return kOk;
    }
    if (options.listen.rfind(kSocketPrefix, 0) != 0) {
        return complain("--listen unix:PATH is needed", kUsage);
    }
    if (findProfile(options.profile) == nullptr) {
        return complain("--profile must be one of those that --print-capabilities lists", kUsage);
    }
    if (options.ready_fd != -1 && ::fcntl(options.ready_fd, F_GETFD) < 0) {
        return complain("--ready-fd must be an open file descriptor", kUsage);
    }
    try {
        run(options, options.listen.substr(sizeof(kSocketPrefix) - 1));
        return kOk;
    } catch (const StateError& error) {
        return complain(error.what(), kState);
    } catch (const ChannelError& error) {
        return complain(error.what(), kTransport);
    } catch (const std::exception& error) {
        return complain(error.what(), kOther);
    }
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App program("The software secure keymaster application, for several clients.",
                     "lumo-secureapp");
    program.add_option("--listen", options.listen, "where clients connect: unix:PATH");
    program.add_option("--state", options.state,
                       "state directory (else LUMO_STATE_DIR, else the user's state home)");
    program.add_option("--profile", options.profile,
                       "which secure application to play (default cbor)");
    program.add_flag("--test-keys", options.test_keys,
                     "attest with the fixed, published test keys");
    program.add_option(
        "--ready-fd", options.ready_fd,
        "file descriptor that gets \"ready\" and is closed once clients can connect");
    program.add_option("--idle", options.idle_seconds,
                       "seconds without a request after which a client is dropped when the daemon "
                       "is full and another one comes (default 60)");
    program.add_option("--log", options.log,
                       "write the log behind this file's content (default: to standard error)");
    program.add_flag("-v,--verbose", options.verbose,
                     "log clients that come and go, and every refusal with its reason");
    program.add_flag("--harden", options.harden,
                     "let no other process of the user trace the daemon, and leave no core dump");
    program.add_flag("--faults", options.faults,
                     "restart, or find the disk full, when a client asks for it (rehearsals)");
    program.add_flag("--print-capabilities", options.print_capabilities,
                     "print limits and profiles as JSON and exit");
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return program.exit(error) == 0 ? kOk : kUsage;
    }
    return start(options);
}
