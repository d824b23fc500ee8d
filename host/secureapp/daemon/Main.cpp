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
#include <iostream>
#include <nlohmann/json.hpp>

#include "secureapp/base/Environment.h"
#include "secureapp/daemon/Frame.h"
#include "secureapp/daemon/Notify.h"
#include "secureapp/daemon/Options.h"

namespace {

using namespace lumo::secureapp;

// The client program's statuses.
enum ExitStatus : int { kOk = 0, kOther = 1, kUsage = 2, kTransport = 4, kState = 6 };

constexpr char kSocketPrefix[] = "unix:";
constexpr char kDaemonLock[] = "daemon.lock";

void printCapabilities() {
    const nlohmann::ordered_json capabilities = {
        {"profiles", profileNames()},
        {"security_levels", {"trusted-environment", "strongbox"}},
        {"carriers", {"unix"}},
        {"largest_request_bytes", kMaxBodyBytes},
        {"largest_answer_bytes", kMaxBodyBytes},
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

// What the options leave open, the environment says.
std::unique_ptr<lumo::inspect::TraceFile> openTrace(const Options& options) {
    if (!options.trace.empty()) ::setenv(lumo::inspect::kTraceVariable, options.trace.c_str(), 1);
    if (options.unredacted) ::setenv(lumo::inspect::kUnredactedVariable, "1", 1);
    auto file = lumo::inspect::traceFileOfEnvironment();
    if (options.unredacted && file == nullptr) {
        throw lumo::inspect::TraceError("--unredacted is for a trace; give --trace FILE as well");
    }
    return file;
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

    auto trace_file = openTrace(options);
    prepareStateDirectory(device_options.state_directory);
    const FileHandle lock = tryLockFile(device_options.state_directory + "/" + kDaemonLock);
    if (!lock) {
        throw StateError(device_options.state_directory +
                         " is in use by another daemon; stop it "
                         "or choose another with --state");
    }
    Device device(device_options);
    if (device.isNew()) log.line("made a new device in " + device_options.state_directory);
    device.app(KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT);
    device.app(KM_SECURITY_LEVEL_STRONGBOX);
    const RequestTrace trace(std::move(trace_file), *device_options.profile, log);
    Server server(device, path, std::chrono::seconds(options.idle_seconds), log, trace);
    if (options.faults) server.takeFaults();
    tellReady(options.ready_fd);
    notifyManager("READY=1", log);
    log.line("serves " + device_options.state_directory + " with profile " + options.profile +
             " at unix:" + path);
    const int signal = server.run(signals.get());
    notifyManager("STOPPING=1", log);
    log.line(std::string("ends after ") + ::strsignal(signal));
}

int complain(const char* what, ExitStatus status) {
    std::fprintf(stderr, "lumo-secureapp: %s\n", what);
    return status;
}

// What was asked for in place of a start is printed, or could not be.
int endPrinted() {
    if (std::cout.flush() && std::fflush(stdout) == 0) return kOk;
    return complain(("cannot write standard output: " + systemError(errno)).c_str(), kOther);
}

int start(const Options& options) {
    if (options.print_capabilities) {
        printCapabilities();
        return endPrinted();
    }
    if (options.listen.rfind(kSocketPrefix, 0) != 0) {
        return complain("--listen unix:PATH is needed: where clients connect", kUsage);
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
    } catch (const lumo::inspect::TraceError& error) {
        return complain(error.what(), kUsage);
    } catch (const std::exception& error) {
        return complain(error.what(), kOther);
    }
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App program;
    declareOptions(program, options);
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            program.exit(error);
            return endPrinted();
        }
        const std::vector<std::string> extras = program.remaining();
        const bool option = !extras.empty() && extras.front()[0] == '-';
        const std::string what =
            extras.empty() ? error.what()
                           : (option ? "there is no option '" : "there is no place for '") +
                                 extras.front() + "'";
        return complain((what + "; see lumo-secureapp --help").c_str(), kUsage);
    }
    return start(options);
}
