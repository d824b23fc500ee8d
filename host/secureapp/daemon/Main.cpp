// lumo-secureapp: the software secure application as a daemon.

#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
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
    };
    std::printf("%s\n", capabilities.dump(2).c_str());
}

// SIGTERM and SIGINT, which end the daemon, and SIGUSR1, which presses the device's button, as a
// descriptor that becomes readable; before any thread exists.
FileHandle catchSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGUSR1);
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

void run(const Options& options, const std::string& path) {
    const FileHandle signals = catchSignals();
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
    Server server(device, path);
    tellReady(options.ready_fd);
    server.run(signals.get());
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
    program.add_flag("--print-capabilities", options.print_capabilities,
                     "print limits and profiles as JSON and exit");
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return program.exit(error) == 0 ? kOk : kUsage;
    }
    return start(options);
}
