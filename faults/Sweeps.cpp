// fault_sweeps NAME K FIRST SEED: one fault at a time in the device core, its transport and the
// secure application, all in this process. Every K-th point, FIRST of the first K left out.
//
//   transport    each exchange of a session meets each fault on command, over each protocol
//   allocations  the n-th allocation of each call fails, for every n, over each protocol
//
// Prints figures, and what does not hold; ends with 1 then.
#include <android/log.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "Session.h"
#include "secureapp/protocol/Profile.h"

namespace lumo::faults {
namespace {

// What is tried, for whoever has to find out why the process ended.
char present[256];

void tellPresent(int signal) {
    static_cast<void>(!::write(STDERR_FILENO, present, strlen(present)));
    ::signal(signal, SIG_DFL);
    ::raise(signal);
}

void note(const std::string& what) {
    snprintf(present, sizeof(present), "fault_sweeps: %s\n", what.c_str());
}

struct Choice {
    long every;
    long first;
    unsigned seed;
    long points = 0;
    long tried = 0;
    long problems = 0;

    bool takes() {
        const bool taken = points++ % every == first;
        if (taken) ++tried;
        return taken;
    }
    void report(const std::string& what) {
        ++problems;
        std::printf("%s\n", what.c_str());
    }
};

void use(const secureapp::Profile& profile, const std::string& settings = "") {
    ::setenv("LUMO_TRANSPORT", ("sim:profile=" + profile.name + settings).c_str(), 1);
}

std::string listOf(const std::map<int32_t, long>& counts) {
    std::string text;
    long others = 0;  // what a garbled reply holds
    for (const auto& [code, count] : counts) {
        if (code > KM_ERROR_OK || code < KM_ERROR_UNKNOWN_ERROR) {
            others += count;
            continue;
        }
        text +=
            (text.empty() ? "" : ", ") + std::to_string(code) + " " + std::to_string(count) + "x";
    }
    return others == 0 ? text : text + ", others " + std::to_string(others) + "x";
}

void tellFigures(const char* name, const Choice& choice, const std::map<int32_t, long>& codes) {
    std::printf("%s: %ld points (one in %ld, from the %ld. on), %ld not as they should be; ", name,
                choice.tried, choice.every, choice.first + 1, choice.problems);
    std::printf("results %s\n", listOf(codes).c_str());
}

// ---- Transport ----

int32_t play(const Session::Step& step) {
    step.prepare();
    const int32_t result = step.call();
    step.finish();
    return result;
}

// A step without a fault gives what it should, which the sweeps build upon.
void playWell(Session& session, Choice& choice, const secureapp::Profile& profile) {
    for (const Session::Step& step : session.steps()) {
        const int32_t result = play(step);
        if (result != step.wanted) {
            choice.report(profile.name + ", " + step.name + ": " + std::to_string(result) +
                          " without a fault");
        }
    }
}

// Every fault on command is logged: that line says that it was met.
long faults_met = 0;

void countFaults(const __android_logger_data*, const char* message) {
    if (std::strncmp(message, "fault on command", 16) == 0) ++faults_met;
}

void sweepTransport(Choice& choice) {
    constexpr const char* kFaults[] = {"error@open",       "error@any",      "error:-28@any",
                                       "lost@any",         "short@any",      "short:1@any",
                                       "long@any",         "long:70000@any", "garbled@any",
                                       "garbled:9999@any", "restart@any",    "full@any"};
    std::map<int32_t, long> codes;
    for (const std::string& name : secureapp::profileNames()) {
        const secureapp::Profile& profile = *secureapp::findProfile(name);
        {
            use(profile);
            Session session;
            playWell(session, choice, profile);
        }
        for (const char* kind : kFaults) {
            for (long exchange = 1;; ++exchange) {
                // Past the last exchange nothing is met; a short sweep looks for that end, too.
                if (!choice.takes() && exchange % 16 != 0) continue;
                const std::string fault = std::string(kind) + "#" + std::to_string(exchange);
                note(name + ", " + fault);
                use(profile, ",seed=" + std::to_string(choice.seed + exchange) + ",fault=" + fault);
                faults_met = 0;
                Session session;
                for (const Session::Step& step : session.steps()) {
                    const long before = faults_met;
                    const int32_t result = play(step);
                    if (faults_met == before) continue;
                    ++codes[result];
                    // The fault is over: the secure application and the way to it are in order.
                    if (!session.works()) {
                        choice.report(name + ", " + fault + " in " + step.name +
                                      ": the next call fails");
                    }
                }
                if (faults_met == 0) break;
            }
        }
    }
    tellFigures("transport", choice, codes);
}

// ---- Allocations ----

// What a call without memory may give: the published code for it, or success where it can do
// without. libcrypto does not tell a lack of memory from bad input, so that what it does fails as
// for that: conversions of the record path, and where its own allocations fail too, which they do
// not under the address sanitizer, all that the secure application has it do.
bool isDefined(int32_t code, const std::string& step) {
    if (code == KM_ERROR_OK || code == KM_ERROR_MEMORY_ALLOCATION_FAILED) return true;
    // The transport has no request buffer, so that the request does not encode.
    if (code == KM_ERROR_INVALID_INPUT_LENGTH) return true;
    if (step.find("verify") != std::string::npos && code == KM_ERROR_VERIFICATION_FAILED)
        return true;
    const bool imports = step.find("import") == 0;
    const bool converts = step == "import_key EC" || step.find("export_key") == 0;
    if (converts &&
        (code == KM_ERROR_INVALID_KEY_BLOB || code == KM_ERROR_KEY_EXPORT_OPTIONS_INVALID)) {
        return true;
    }
#ifdef __SANITIZE_ADDRESS__
    static_cast<void>(imports);
    return false;
#else
    return code == KM_ERROR_UNKNOWN_ERROR || (imports && code == KM_ERROR_INVALID_ARGUMENT);
#endif
}

void sweepAllocations(Choice& choice) {
    std::map<int32_t, long> codes;
    for (const std::string& name : secureapp::profileNames()) {
        const secureapp::Profile& profile = *secureapp::findProfile(name);
        use(profile);
        auto session = std::make_unique<Session>();
        playWell(*session, choice, profile);
        // The second boot has all that lasts, so that a call makes the same allocations each time.
        session = nullptr;
        session = std::make_unique<Session>();
        for (const Session::Step& step : session->steps()) {
            long misfit = 0;
            for (long n = 1;; ++n) {
                const bool taken = choice.takes();
                if (!taken && n % 64 != 0) continue;
                const std::string where =
                    name + ", allocation " + std::to_string(n) + " of " + step.name;
                note(where);
                step.prepare();
                session->failing_allocation = n;
                const int32_t result = step.call();
                session->failing_allocation = 0;
                step.finish();
                if (!session->allocation_failed) break;
                ++codes[result];
                if (result != step.wanted && !isDefined(result, step.name) && ++misfit <= 3) {
                    choice.report(where + ": " + std::to_string(result));
                }
                const int32_t again = play(step);
                if (again != step.wanted) {
                    choice.report(where + ": the next call gives " + std::to_string(again));
                }
            }
        }
    }
    tellFigures("allocations", choice, codes);
}

int run(const std::string& name, Choice& choice) {
    const std::string folder =
        (std::filesystem::temp_directory_path() / "lumo-faults-XXXXXX").string();
    std::vector<char> path(folder.begin(), folder.end());
    path.push_back('\0');
    if (::mkdtemp(path.data()) == nullptr) {
        std::perror("fault_sweeps: cannot make a folder for the state");
        return 2;
    }
    ::setenv("LUMO_STATE_DIR", path.data(), 1);
    __android_log_set_logger(countFaults);
    ::signal(SIGABRT, tellPresent);
    ::signal(SIGSEGV, tellPresent);
    name == "transport" ? sweepTransport(choice) : sweepAllocations(choice);
    std::error_code ignored;
    std::filesystem::remove_all(path.data(), ignored);
    return choice.problems == 0 ? 0 : 1;
}

}  // namespace
}  // namespace lumo::faults

int main(int argc, char** argv) {
    const std::string name = argc == 5 ? argv[1] : "";
    if (name != "transport" && name != "allocations") {
        std::fprintf(stderr, "usage: fault_sweeps transport|allocations K FIRST SEED\n");
        return 2;
    }
    lumo::faults::Choice choice = {std::atol(argv[2]), std::atol(argv[3]),
                                   static_cast<unsigned>(std::atol(argv[4]))};
    return lumo::faults::run(name, choice);
}
