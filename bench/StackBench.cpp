// bench_stack: times of whole calls, from HIDL to the secure application and back: in one process,
// and with the daemon behind its socket.
#include <benchmark/benchmark.h>
#include <lumo/Transport.h>
#include <openssl/cipher.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Daemon.h"
#include "Rows.h"
#include "Scratch.h"
#include "ServiceCalls.h"

namespace lumo::bench {
namespace {

// ---- Other processes ----

void moveAll(ssize_t (*move)(int, uint8_t*, size_t), int fd, uint8_t* bytes, size_t size) {
    for (size_t done = 0; done < size;) {
        const ssize_t moved = move(fd, bytes + done, size - done);
        if (moved <= 0) ::_exit(0);
        done += static_cast<size_t>(moved);
    }
}

ssize_t readSome(int fd, uint8_t* bytes, size_t size) {
    return ::read(fd, bytes, size);
}

ssize_t writeSome(int fd, uint8_t* bytes, size_t size) {
    return ::write(fd, bytes, size);
}

// A process that sends back as many bytes as it is sent.
class Echo {
  public:
    explicit Echo(size_t size) : bytes_(size) {
        int ends[2];
        require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0,
                "cannot make sockets");
        const pid_t pid = ::fork();
        if (pid == 0) {
            ::close(ends[0]);
            for (;;) {
                moveAll(readSome, ends[1], bytes_.data(), size);
                moveAll(writeSome, ends[1], bytes_.data(), size);
            }
        }
        ::close(ends[1]);
        end_ = ends[0];
        child_ = std::make_unique<Child>(pid);
    }
    ~Echo() { ::close(end_); }

    void run() {
        moveAll(writeSome, end_, bytes_.data(), bytes_.size());
        moveAll(readSome, end_, bytes_.data(), bytes_.size());
    }

  private:
    std::vector<uint8_t> bytes_;
    int end_ = -1;
    std::unique_ptr<Child> child_;
};

// swtpm, ready when it has answered one command.
class Swtpm {
  public:
    Swtpm() {
        const std::string folder = scratchFolder() + "/swtpm";
        const std::string path = folder + "/socket";
        std::filesystem::create_directories(folder);
        std::filesystem::remove(path);
        const pid_t pid = ::fork();
        if (pid == 0) {
            ::execlp("swtpm", "swtpm", "socket", "--tpm2", "--tpmstate", ("dir=" + folder).c_str(),
                     "--server", ("type=unixio,path=" + path).c_str(), "--flags",
                     "not-need-init,startup-clear", nullptr);
            ::_exit(127);
        }
        child_ = std::make_unique<Child>(pid);
        answered_ = getRandom(path);
    }
    bool answered() const { return answered_; }

  private:
    static bool getRandom(const std::string& path) {
        uint8_t command[] = {0x80, 0x01, 0, 0, 0, 12, 0, 0, 0x01, 0x7b, 0, 8};
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof(address.sun_path) - 1);
        const int end = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        constexpr int kAttempts = 20000;
        bool good = false;
        for (int i = 0; i < kAttempts && !good; ++i) {
            good = ::connect(end, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
            if (!good) ::usleep(100);
        }
        uint8_t answer[64];
        good = good && ::write(end, command, sizeof(command)) == sizeof(command) &&
               ::read(end, answer, sizeof(answer)) > 10 && answer[0] == 0x80;
        ::close(end);
        return good;
    }

    std::unique_ptr<Child> child_;
    bool answered_ = false;
};

// ---- libcrypto alone ----

class RawCipher {
  public:
    explicit RawCipher(size_t size) : input_(gcmInput(size)), output_(size) {
        require(EVP_EncryptInit_ex(context_.get(), EVP_aes_256_gcm(), nullptr, gcmKey().data(),
                                   gcmNonce().data()) == 1,
                "libcrypto takes no AES key");
    }
    void run() {
        int size = 0;
        require(EVP_EncryptUpdate(context_.get(), output_.data(), &size, input_.data(),
                                  static_cast<int>(input_.size())) == 1,
                "libcrypto does not encrypt");
    }
    const std::vector<uint8_t>& output() const { return output_; }

  private:
    bssl::ScopedEVP_CIPHER_CTX context_;
    std::vector<uint8_t> input_;
    std::vector<uint8_t> output_;
};

// ---- Rows ----

void useTransport(const std::string& name) {
    ::setenv("LUMO_TRANSPORT", name.c_str(), 1);
}

// An operation over `transport`, whose first output is what libcrypto makes of the same.
std::unique_ptr<UpdateCall> makeCall(const std::string& transport, size_t size) {
    useTransport(transport);
    auto call = std::make_unique<UpdateCall>(size);
    RawCipher raw(size);
    raw.run();
    require(std::equal(raw.output().begin(), raw.output().end(), call->firstOutput().data()),
            "the ciphertexts differ");
    return call;
}

void runInProcess(benchmark::State& state) {
    const auto call = makeCall("sim", static_cast<size_t>(state.range(0)));
    for (auto _ : state) call->run();
}

void runRawCipher(benchmark::State& state) {
    RawCipher raw(static_cast<size_t>(state.range(0)));
    for (auto _ : state) raw.run();
}

double secondsOf(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// A call through the daemon, and in turn with it what it cannot do without: the bytes to another
// process and back, and the call itself. The counters are medians in ns: what else the machine does
// meets all three alike.
void runDaemon(benchmark::State& state) {
    const auto size = static_cast<size_t>(state.range(0));
    const Daemon daemon("daemon-" + std::to_string(size));
    const auto call = makeCall(daemon.transport(), size);
    const auto in_process = makeCall("sim", size);
    Echo echo(size);
    std::vector<double> calls;
    std::vector<double> echoes;
    std::vector<double> calls_in_process;
    for (auto _ : state) {
        calls.push_back(secondsOf([&] { call->run(); }) * 1e9);
        echoes.push_back(secondsOf([&] { echo.run(); }) * 1e9);
        calls_in_process.push_back(secondsOf([&] { in_process->run(); }) * 1e9);
        state.SetIterationTime(calls.back() / 1e9);
    }
    state.counters["call"] = median(calls);
    state.counters["echo"] = median(echoes);
    state.counters["in_process"] = median(calls_in_process);
}

void runTraced(benchmark::State& state) {
    const Daemon daemon("traced-" + std::to_string(state.range(0)));
    const auto call = makeCall(daemon.transport(), static_cast<size_t>(state.range(0)));
    for (auto _ : state) call->run();
}

// One of `clients` connected clients calls after the other; each is a service object with a
// connection of its own.
void runClients(benchmark::State& state) {
    const Daemon daemon("clients-" + std::to_string(state.range(0)));
    useTransport(daemon.transport());
    std::vector<SharingParametersCall> clients(static_cast<size_t>(state.range(0)));
    size_t next = 0;
    for (auto _ : state) clients[next++ % clients.size()].run();
}

// From the start of the daemon to its first answer.
void runStart(benchmark::State& state, bool fresh) {
    static int rounds = 0;
    for (auto _ : state) {
        const std::string name = fresh ? "fresh-" + std::to_string(++rounds) : "kept";
        std::unique_ptr<Daemon> daemon;
        state.SetIterationTime(secondsOf([&] {
            daemon = std::make_unique<Daemon>(name);
            useTransport(daemon->transport());
            require(
                checkTransport(KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT).kind == TransportStatus::ok,
                "the daemon does not answer");
        }));
    }
}

void runStartKept(benchmark::State& state) {
    { const Daemon made("kept"); }
    runStart(state, false);
}

void runStartFresh(benchmark::State& state) {
    runStart(state, true);
}

void runStartSwtpm(benchmark::State& state) {
    if (::system("command -v swtpm >/dev/null") != 0 || !Swtpm().answered()) {
        state.SkipWithError("no swtpm here");
        return;
    }
    for (auto _ : state) {
        std::unique_ptr<Swtpm> tpm;
        state.SetIterationTime(secondsOf([&] { tpm = std::make_unique<Swtpm>(); }));
        require(tpm->answered(), "swtpm does not answer");
    }
}

}  // namespace

void registerAll() {
    const auto add = [](const char* name, void (*run_row)(benchmark::State&)) {
        return benchmark::RegisterBenchmark(name, run_row);
    };
    for (const int64_t size : {64, 1024, 4096, 16384}) {
        add("aes-gcm", runInProcess)->Arg(size);
        add("aes-gcm:libcrypto", runRawCipher)->Arg(size);
        add("daemon", runDaemon)->Arg(size)->UseManualTime()->Iterations(1000);
    }
    for (const int64_t clients : {1, 2, 8, 30, 60}) {
        add("daemon-clients", runClients)->Arg(clients)->UseRealTime();
    }
    for (const auto& [name, start] :
         {std::pair("daemon-start:swtpm", runStartSwtpm), std::pair("daemon-start", runStartKept),
          std::pair("daemon-start-fresh", runStartFresh)}) {
        benchmark::RegisterBenchmark(name, start)->UseManualTime();
    }
    // A known number of calls, for whoever counts system calls.
    for (const int64_t calls : {100, 300}) {
        benchmark::RegisterBenchmark("traced", runTraced)->Arg(64)->Iterations(calls);
        benchmark::RegisterBenchmark("traced", runTraced)->Arg(16384)->Iterations(calls);
    }
}

}  // namespace lumo::bench
