// bench_soak [OPERATIONS [SEED]]: mixed operations of many clients, over daemons and in their own
// processes, on every profile. Clients are killed and replaced, daemons killed, stopped and
// restarted; at the end nothing may be lost or left over. Prints one line of figures, or what is
// wrong.
#include <android/log.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <new>
#include <thread>

#include "Daemon.h"
#include "Scratch.h"
#include "SoakWorker.h"

namespace lumo::bench::soak {
namespace {

using Clock = std::chrono::steady_clock;

constexpr uint64_t kDefaultOperations = 1000000;
constexpr uint64_t kKills = 300;
constexpr uint64_t kRestarts = 20;
constexpr size_t kSlots = 16;  // of the trusted environment
// In hundredths of the operations: until when daemons and clients in their own process are killed,
// and where their memory is measured after that.
constexpr uint64_t kUnrestUntil = 50, kFirstMeasured = 75, kLastMeasured = 97;
// Of one process; what allocators and threads may keep. 32 bytes leaked in each call are more.
constexpr long kMaxGrowthKib = 1024;
constexpr double kSchedulingSeconds = 0.25;

template <typename T>
T& makeShared() {
    void* memory =
        ::mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    require(memory != MAP_FAILED, "no memory");
    return *new (memory) T;
}

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

void pause() {
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
}

bool eventually(const std::function<bool()>& condition) {
    constexpr double kPatience = 30;
    const auto start = Clock::now();
    while (!condition()) {
        if (secondsSince(start) > kPatience) return false;
        pause();
    }
    return true;
}

long residentKib(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmRSS:", 0) == 0) return std::strtol(line.c_str() + 6, nullptr, 10);
    }
    return 0;
}

size_t descriptorsOf(pid_t pid) {
    size_t count = 0;
    for ([[maybe_unused]] const auto& entry :
         std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd")) {
        ++count;
    }
    return count;
}

void makeWorld(const std::string& directory) {
    std::filesystem::create_directories(directory);
    std::ofstream(directory + "/world.conf")
        << "rollback_resistance = yes\ntest_attestation_keys = yes\n";
}

// One secure application: a daemon, or what each of its clients has in its own process.
struct Group {
    std::string name;
    std::string transport;
    std::string state;
    std::unique_ptr<Daemon> daemon;
};

Group daemonGroup(const std::string& profile) {
    const std::string name = "daemon-" + profile;
    const std::string state = scratchFolder() + "/" + name + "-state";
    makeWorld(state);
    auto daemon = std::make_unique<Daemon>(
        name, std::vector<std::string>{"--profile", profile, "--log", state + "/log"});
    const std::string transport = daemon->transport();
    return {name, transport, state, std::move(daemon)};
}

Group processGroup(const std::string& profile) {
    const std::string state = scratchFolder() + "/sim-" + profile;
    makeWorld(state);
    return {"sim-" + profile, "sim:profile=" + profile, state, nullptr};
}

struct Place {
    Group& group;
    Ledger& ledger;
    pid_t pid = -1;
};

class Soak {
  public:
    Soak(uint64_t operations, uint32_t seed)
        : seed_(seed), random_(seed), shared_(makeShared<Shared>()) {
        shared_.goal = operations;
        groups_.reserve(8);
        for (const char* profile : {"cbor", "legacy-3"}) groups_.push_back(daemonGroup(profile));
        for (const char* profile : {"cbor", "legacy-4", "legacy-3-encoding", "legacy-3"}) {
            groups_.push_back(processGroup(profile));
        }
        for (Group& group : groups_) {
            const size_t clients = group.daemon != nullptr ? 3 : 1;
            for (size_t i = 0; i < clients; ++i) {
                places_.push_back({group, shared_.ledgers.at(places_.size())});
            }
        }
    }

    void run() {
        const auto start = Clock::now();
        for (Place& place : places_) startWorker(place);
        disturb();
        for (Place& place : places_) requireGoodEnd(place);
        const double seconds = secondsSince(start);
        checkDescriptors();
        auditAll();
        measureBesideGeneration();
        std::printf(
            "soak: %llu operations in %.0f s (seed %u): %llu attestations, %llu of RSA, %llu "
            "wrapped "
            "imports;\n"
            "  %llu clients killed, %llu restarts, %llu calls interrupted; keys: %llu, lost: "
            "none;\n"
            "  growth of a daemon %ld KiB, of a client %ld KiB; descriptors left over: none; slots "
            "taken: none;\n"
            "  signing beside an RSA-4096 generation of %.2f s waited %.2f s at most\n",
            number(shared_.operations), seconds, seed_, number(shared_.attestations),
            number(shared_.rsa), number(shared_.wrapped_imports), number(kills_), number(restarts_),
            number(shared_.interrupted), number(checked_), daemon_growth_, process_growth_,
            generation_seconds_, longest_wait_);
    }

  private:
    static unsigned long long number(uint64_t value) { return value; }

    // Runs `task` in a child process that reaches the group's secure application.
    pid_t inChild(const Group& group, const std::function<void()>& task) {
        std::fflush(nullptr);
        const pid_t pid = ::fork();
        require(pid >= 0, "cannot start a process");
        if (pid != 0) return pid;
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::setenv("LUMO_TRANSPORT", group.transport.c_str(), 1);
        ::setenv("LUMO_STATE_DIR", group.state.c_str(), 1);
        task();
        ::_exit(0);
    }

    void startWorker(Place& place) {
        place.ledger.ready = false;
        const auto seed = static_cast<uint32_t>(random_());
        place.pid = inChild(place.group, [&] {
            Worker(place.group.name, shared_, place.ledger, place.group.daemon != nullptr, seed)
                .work();
        });
    }

    static void requireGood(int status, const std::string& name) {
        if (WIFSIGNALED(status)) {
            giveUp(name + ": a client was ended by signal " + std::to_string(WTERMSIG(status)));
        }
        // It has said why.
        if (WEXITSTATUS(status) != 0) std::exit(1);
    }

    static void requireGoodEnd(Place& place) {
        if (place.pid < 0) return;
        int status = 0;
        ::waitpid(std::exchange(place.pid, -1), &status, 0);
        requireGood(status, place.group.name);
    }

    void killWorker(Place& place) {
        if (!place.ledger.ready) return;
        ::kill(place.pid, SIGKILL);
        int status = 0;
        ::waitpid(place.pid, &status, 0);
        if (!WIFSIGNALED(status)) requireGood(status, place.group.name);
        ++kills_;
        startWorker(place);
    }

    // A service object cannot be made while its daemon is away, so all must stand.
    void restart(Group& group) {
        const bool stand = eventually([&] {
            return std::all_of(places_.begin(), places_.end(), [&](const Place& place) {
                return &place.group != &group || place.ledger.ready;
            });
        });
        require(stand, "a client does not start");
        group.daemon->restart(random_() % 2 == 0 ? SIGKILL : SIGTERM);
        ++restarts_;
    }

    // Of every daemon, or of every client with its secure application in its own process.
    std::vector<long> resident(bool daemons) const {
        std::vector<long> sizes;
        for (const Group& group : groups_) {
            if (daemons && group.daemon != nullptr) {
                sizes.push_back(residentKib(group.daemon->pid()));
            }
        }
        for (const Place& place : places_) {
            if (!daemons && place.group.daemon == nullptr) sizes.push_back(residentKib(place.pid));
        }
        return sizes;
    }

    static long mostGrowth(const std::vector<long>& before, const std::vector<long>& now) {
        long most = 0;
        for (size_t i = 0; i < now.size(); ++i) most = std::max(most, now[i] - before[i]);
        return most;
    }

    void disturb() {
        const uint64_t goal = shared_.goal;
        const uint64_t unrest = goal / 100 * kUnrestUntil;
        const uint64_t kill_step = std::max<uint64_t>(goal / kKills, 1000);
        const uint64_t restart_step = std::max<uint64_t>(unrest / kRestarts, 3000);
        uint64_t next_kill = kill_step, next_restart = restart_step;
        std::vector<long> first_daemons, first_processes;
        bool measured = false;
        while (!shared_.done()) {
            pause();
            for (Place& place : places_) {
                int status = 0;
                if (::waitpid(place.pid, &status, WNOHANG) != place.pid) continue;
                requireGood(status, place.group.name);
                place.pid = -1;
            }
            const uint64_t now = shared_.operations;
            if (shared_.done()) break;
            if (now >= next_restart && now < unrest) {
                restart(groups_[random_() % 2]);
                next_restart += restart_step;
            }
            if (now >= next_kill) {
                Place& place = places_[random_() % places_.size()];
                if (place.group.daemon != nullptr || now < unrest) killWorker(place);
                next_kill += kill_step;
            }
            if (!measured && now >= goal / 100 * kFirstMeasured) {
                measured = true;
                first_daemons = resident(true);
                first_processes = resident(false);
            }
            if (measured && now < goal / 100 * kLastMeasured) {
                daemon_growth_ = mostGrowth(first_daemons, resident(true));
                process_growth_ = mostGrowth(first_processes, resident(false));
            }
        }
        for (const long growth : {daemon_growth_, process_growth_}) {
            if (growth > kMaxGrowthKib) {
                giveUp("the memory of a process grew by " + std::to_string(growth) + " KiB");
            }
        }
    }

    // A daemon without clients has as many descriptors and threads as a new one.
    void checkDescriptors() {
        const Daemon fresh("fresh", {"--log", scratchFolder() + "/fresh-log"});
        const size_t wanted = descriptorsOf(fresh.pid());
        for (const Group& group : groups_) {
            if (group.daemon == nullptr) continue;
            const pid_t pid = group.daemon->pid();
            if (!eventually([&] { return descriptorsOf(pid) == wanted; })) {
                giveUp(group.name + ": " + std::to_string(descriptorsOf(pid)) +
                       " descriptors without a client, " + std::to_string(wanted) +
                       " in a new daemon");
            }
        }
    }

    void auditAll() {
        auto& checked = makeShared<std::atomic<uint64_t>>();
        for (Place& place : places_) {
            place.pid = inChild(place.group, [&] {
                Worker worker(place.group.name, shared_, place.ledger, false, 1);
                uint64_t count = 0;
                if (const size_t wrong = worker.audit(count); wrong != 0) {
                    giveUp(place.group.name + ": " + std::to_string(wrong) +
                           " keys lost, or back after their deletion");
                }
                checked += count;
                if (const size_t free = worker.freeSlots(); free != kSlots) {
                    giveUp(place.group.name + ": only " + std::to_string(free) + " slots of " +
                           std::to_string(kSlots) + " are free");
                }
            });
            requireGoodEnd(place);
        }
        checked_ = checked;
    }

    // How long one client's signing waits while another has an RSA key of 4096 bits made.
    void measureBesideGeneration() {
        struct Times {
            std::atomic<bool> signing{false}, generated{false};
            std::atomic<double> generation{0}, longest{0};
        };
        auto& times = makeShared<Times>();
        Place& signer = places_[0];
        Place& generator = places_[1];
        signer.pid = inChild(signer.group, [&] {
            Worker worker("signing", shared_, signer.ledger, false, 1);
            worker.signOnce();
            times.signing = true;
            while (!times.generated) {
                const auto start = Clock::now();
                worker.signOnce();
                times.longest = std::max(times.longest.load(), secondsSince(start));
            }
        });
        generator.pid = inChild(generator.group, [&] {
            Worker worker("generating", shared_, generator.ledger, false, 1);
            require(eventually([&] { return times.signing.load(); }), "nobody signs");
            const auto start = Clock::now();
            worker.generateRsa(4096);
            times.generation = secondsSince(start);
            times.generated = true;
        });
        requireGoodEnd(generator);
        requireGoodEnd(signer);
        generation_seconds_ = times.generation;
        longest_wait_ = times.longest;
        require(longest_wait_ <= generation_seconds_ + kSchedulingSeconds,
                "signing waited longer than the generation of a key beside it took");
    }

    uint32_t seed_;
    std::mt19937 random_;
    Shared& shared_;
    std::vector<Group> groups_;
    std::vector<Place> places_;
    uint64_t kills_ = 0, restarts_ = 0, checked_ = 0;
    long daemon_growth_ = 0, process_growth_ = 0;
    double generation_seconds_ = 0, longest_wait_ = 0;
};

}  // namespace
}  // namespace lumo::bench::soak

int main(int argc, char** argv) {
    using namespace lumo::bench;
    const uint64_t operations =
        argc > 1 ? std::strtoull(argv[1], nullptr, 10) : soak::kDefaultOperations;
    const uint32_t seed = argc > 2 ? static_cast<uint32_t>(std::strtoul(argv[2], nullptr, 10))
                                   : std::random_device()();
    require(operations > 0, "the number of operations must be positive");
    ::umask(077);
    // The library logs every refusal, and some are asked for here.
    __android_log_set_logger([](const __android_logger_data*, const char*) {});
    setUpWorld();
    soak::Soak(operations, seed).run();
}
