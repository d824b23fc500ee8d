// The daemon, run as the program that it is.
#include <android/log.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include "Client.h"
#include "Folder.h"
#include "lumo/Transport.h"
#include "secureapp/daemon/Frame.h"

// The test stands in front of the system calls that pass messages, and counts them.
static std::atomic<int> g_calls{0};
extern "C" ssize_t recv(int fd, void* place, size_t size, int flags) {
    ++g_calls;
    return ::syscall(SYS_recvfrom, fd, place, size, flags, nullptr, nullptr);
}
extern "C" ssize_t sendmsg(int fd, const msghdr* message, int flags) {
    ++g_calls;
    return ::syscall(SYS_sendmsg, fd, message, flags);
}
extern "C" int poll(pollfd* entries, nfds_t count, int timeout) {
    ++g_calls;
    return static_cast<int>(::syscall(SYS_poll, entries, count, timeout));
}

namespace lumo::test {
namespace {

using keymasterutils::KeymasterUtils;
using ::testing::HasSubstr;

constexpr auto kTee = KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT;
constexpr int kReadyFd = 30;

// One run of the program; `out` is what it writes to both outputs.
class Program {
  public:
    explicit Program(std::vector<std::string> arguments) {
        int ready[2], out[2];
        if (::pipe2(ready, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0) std::abort();
        pid_ = ::fork();
        if (pid_ == 0) {
            ::dup2(ready[1], kReadyFd);
            ::dup2(out[1], STDOUT_FILENO);
            ::dup2(out[1], STDERR_FILENO);
            arguments.insert(arguments.begin(), LUMO_DAEMON);
            std::vector<char*> argv;
            for (std::string& argument : arguments) argv.push_back(argument.data());
            argv.push_back(nullptr);
            ::execv(argv[0], argv.data());
            ::_exit(127);
        }
        ::close(ready[1]);
        ::close(out[1]);
        ready_ = ready[0];
        out_ = out[0];
    }
    ~Program() {
        if (pid_ > 0) end(SIGKILL);
        ::close(ready_);
        ::close(out_);
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    // What came on the ready descriptor until the program closed it.
    std::string awaitReady() { return readAll(ready_); }

    // The exit status, or minus the signal that ended it.
    int wait() {
        int status = 0;
        ::waitpid(std::exchange(pid_, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    int end(int signal) {
        ::kill(pid_, signal);
        return wait();
    }
    void send(int signal) const { ::kill(pid_, signal); }
    pid_t pid() const { return pid_; }
    std::string output() { return readAll(out_); }

  private:
    static std::string readAll(int fd) {
        std::string text;
        char chunk[256];
        for (ssize_t got; (got = ::read(fd, chunk, sizeof(chunk))) > 0;) {
            text.append(chunk, static_cast<size_t>(got));
        }
        return text;
    }

    pid_t pid_ = -1;
    int ready_ = -1, out_ = -1;
};

class Daemon : public ::testing::Test {
  protected:
    std::unique_ptr<Program> launch(const std::vector<std::string>& more = {}) {
        std::vector<std::string> arguments = {
            "--listen", "unix:" + socket_, "--state",    folder_ / "state",
            "--log",    folder_ / "log",   "--ready-fd", std::to_string(kReadyFd)};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return std::make_unique<Program>(arguments);
    }

    std::unique_ptr<Program> start(const std::vector<std::string>& more = {}) {
        auto program = launch(more);
        EXPECT_EQ(program->awaitReady(), "ready\n");
        useTransport("unix:" + socket_);
        return program;
    }

    // A client that sends what it likes.
    int connectRaw() const {
        const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const sockaddr_un address = secureapp::socketAddress(socket_);
        const timeval patience = {3, 0};
        ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
        EXPECT_EQ(::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
        return fd;
    }

    static std::string contentOf(const std::string& path) {
        std::ifstream file(path);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    Folder folder_;
    const std::string socket_ = folder_ / "socket";
};

TEST_F(Daemon, CallTakesTwoSystemCallsOnEachSide) {
    const auto daemon = start();
    KeymasterUtils client(kTee);
    ASSERT_EQ(client.hsm_init(), KM_ERROR_OK);
    g_calls = 0;
    EXPECT_FALSE(client.isLegacy());
    EXPECT_EQ(client.hsm_init(), KM_ERROR_OK);
    EXPECT_EQ(sendRecord(client, {kDateSupport, 0, 0}), KM_ERROR_OK);
    EXPECT_EQ(g_calls, 2);
    // A frame that fits into no buffer of the socket or of the daemon comes whole, too.
    EXPECT_EQ(sendCbor(client, kGenerate, Bytes(1 << 20)).error, KM_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(sendRecord(client, {kDateSupport, 0, 0}), KM_ERROR_OK);

    int ends[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    secureapp::Channel here{secureapp::FileHandle(ends[0])}, there{secureapp::FileHandle(ends[1])};
    const std::chrono::seconds patience(10);
    const Bytes body(16384, 0x5A);
    secureapp::RequestFrame request;
    request.body = body;
    writeRequest(here, request, patience);
    g_calls = 0;
    EXPECT_EQ(readRequest(there, patience).body.copy(), body);
    writeReply(there, {}, patience);
    EXPECT_EQ(g_calls, 2);
}

TEST_F(Daemon, SignalConfirmsPresence) {
    constexpr uint32_t kFinish = 0x2112;
    const Bytes kTrustedPresence = {0x1A, 0x70, 0x00, 0x01, 0xFB, 0xF5};
    Bytes presence_key = kHmacKey;
    presence_key[0] = 0xA8;
    presence_key[2] = 0x07;
    secureapp::append(presence_key, kTrustedPresence);
    ASSERT_EQ(::mkdir((folder_ / "state").c_str(), 0700), 0);
    std::ofstream(folder_ / "state/world.conf") << "user_presence = yes\n";
    ASSERT_EQ(::chmod((folder_ / "state/world.conf").c_str(), 0600), 0);
    const auto daemon = start();
    KeymasterUtils client(kTee);
    ASSERT_EQ(sendCbor(client, kConfigure, kVersions).error, KM_ERROR_OK);
    const CborAnswer key = sendCbor(client, kGenerate, presence_key);
    const CborAnswer begun = sendCbor(client, kBegin, beginSign(key.body));
    daemon->send(SIGUSR1);
    // The daemon takes the signal before it answers a newcomer.
    EXPECT_EQ(KeymasterUtils(kTee).getKeymasterVersion(), 4U);
    Bytes finish = {0xA1};
    secureapp::append(finish, entryOf(begun.body));
    EXPECT_EQ(sendCbor(client, kFinish, finish).error, KM_ERROR_OK);
}

// The frames' header: "LUMQ", kind, level, command, capacity, lengths of area and body.
TEST_F(Daemon, FaultyClientsDisturbNoOther) {
    const auto daemon = start();
    KeymasterUtils good(kTee);
    ASSERT_EQ(sendCbor(good, kConfigure, kVersions).error, KM_ERROR_OK);

    const auto header = [](std::initializer_list<uint32_t> words) {
        std::string bytes;
        for (const uint32_t word : words) {
            for (unsigned shift = 0; shift < 32; shift += 8) {
                bytes += static_cast<char>(word >> shift);
            }
        }
        return bytes;
    };
    constexpr uint32_t kMagic = 0x514D554C;
    struct {
        const char* what;
        std::string sent;
        bool closes;  // whether the daemon closes the connection at once
    } const cases[] = {
        {"nothing", "", false},
        {"half a header", header({kMagic, 2}), false},
        {"a header whose body does not come", header({kMagic, 2, 1, kGenerate, 0, 0, 100}), false},
        {"garbage", std::string(64, '\xA5'), true},
        {"a body too large", header({kMagic, 2, 1, kGenerate, 0, 0, 0xFFFFFFFF}), true},
        {"an area too large", header({kMagic, 3, 1, 0, 100, 65, 0}), true},
        {"a capacity too large", header({kMagic, 3, 1, 0, 0xFFFFFFFF, 0, 0}), true},
        {"an unknown kind", header({kMagic, 9, 1, 0, 0, 0, 0}), true},
        {"an unknown level", header({kMagic, 2, 77, kGenerate, 0, 0, 0}), true},
    };
    std::vector<int> sockets;
    for (const auto& test : cases) {
        const int fd = connectRaw();
        sockets.push_back(fd);
        ASSERT_EQ(::send(fd, test.sent.data(), test.sent.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(test.sent.size()));
        char byte = 0;
        if (test.closes) {
            const ssize_t got = ::recv(fd, &byte, 1, 0);
            EXPECT_TRUE(got == 0 || (got < 0 && errno == ECONNRESET)) << test.what;
        }
        EXPECT_EQ(sendCbor(good, kGenerate, kHmacKey).error, KM_ERROR_OK) << test.what;
    }
    EXPECT_EQ(daemon->end(SIGTERM), 0);
    for (const int fd : sockets) ::close(fd);
}

std::atomic<int> g_restarts_logged{0};

// Each object hears of each restart once, from the call that it makes while the daemon is away or
// else from its first one after that; then it works as if nothing had been.
TEST_F(Daemon, ObjectsOutliveRestarts) {
    __android_log_set_logger([](const __android_logger_data*, const char* message) {
        if (std::strstr(message, "has restarted") != nullptr) ++g_restarts_logged;
    });
    auto daemon = start();
    struct stat status = {};
    ASSERT_EQ(::stat(socket_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
    std::array<KeymasterUtils, 5> clients = {KeymasterUtils(kTee), KeymasterUtils(kTee),
                                             KeymasterUtils(kTee), KeymasterUtils(kTee),
                                             KeymasterUtils(kTee)};
    for (auto& client : clients) {
        EXPECT_EQ(sendRecord(client, {kDateSupport, 0, 0}), KM_ERROR_OK);
        ASSERT_EQ(sendCbor(client, kConfigure, kVersions).error, KM_ERROR_OK);
    }
    useTransport("unix:" + socket_ + ",replay=no");
    KeymasterUtils forgetful(kTee);
    ASSERT_EQ(forgetful.hsm_init(), KM_ERROR_OK);
    const Bytes begin = beginSign(sendCbor(clients[0], kGenerate, kHmacKey).body);
    constexpr int kRestarts = 20;
    for (int restart = 0; restart < kRestarts; ++restart) {
        const bool killed = restart % 2 == 0, called_meanwhile = restart % 3 == 0;
        EXPECT_EQ(daemon->end(killed ? SIGKILL : SIGTERM), killed ? -SIGKILL : 0);
        EXPECT_EQ(::stat(socket_.c_str(), &status) == 0, killed) << "whether the socket is left";
        for (int calls = called_meanwhile ? 2 : 0; calls > 0; --calls) {
            EXPECT_EQ(sendCbor(clients[0], kBegin, begin).error,
                      KM_ERROR_SECURE_HW_COMMUNICATION_FAILED);
        }
        daemon = start();
        EXPECT_EQ(sendCbor(forgetful, kBegin, begin).error, KM_ERROR_KEYMASTER_NOT_CONFIGURED);
        std::vector<std::thread> threads;
        for (auto& client : clients) {
            threads.emplace_back([&, told = called_meanwhile && &client == &clients[0]] {
                if (!told) {
                    EXPECT_EQ(sendCbor(client, kBegin, begin).error,
                              KM_ERROR_SECURE_HW_COMMUNICATION_FAILED);
                    EXPECT_THAT(lastTransportFailure().message, HasSubstr("has restarted"));
                }
                EXPECT_EQ(sendCbor(client, kBegin, begin).error, KM_ERROR_OK);
            });
        }
        for (std::thread& thread : threads) thread.join();
    }
    EXPECT_EQ(g_restarts_logged, static_cast<int>(clients.size()) * kRestarts);
    __android_log_set_logger(__android_log_stderr_logger);
}

TEST_F(Daemon, RecordsAreReplayedToo) {
    constexpr uint32_t kConfigureRecord = 0x116, kDeleteAllRecord = 0x10E;
    auto daemon = start({"--profile", "legacy-3"});
    KeymasterUtils client(kTee);
    EXPECT_TRUE(client.isLegacy());
    EXPECT_EQ(client.getKeymasterVersion(), 3U);
    EXPECT_EQ(client.getKeymasterTaMinorVersion(), 112U);
    EXPECT_EQ(client.getKeymasterHalMinorVersion(), 0U);
    EXPECT_EQ(sendRecord(client, {kDateSupport, 0, 0}), KM_ERROR_INVALID_TAG);
    EXPECT_EQ(sendRecord(client, {kConfigureRecord, 12, 2, KM_TAG_OS_VERSION, 110000, 0,
                                  KM_TAG_OS_PATCHLEVEL, 202012, 0}),
              KM_ERROR_OK);
    EXPECT_EQ(daemon->end(SIGTERM), 0);
    daemon = start({"--profile", "legacy-3", "--faults"});
    EXPECT_EQ(sendRecord(client, {kDeleteAllRecord}), KM_ERROR_SECURE_HW_COMMUNICATION_FAILED);
    EXPECT_EQ(sendRecord(client, {kDeleteAllRecord}), KM_ERROR_OK);
    // Every object of the daemon meets a restart on command, as one of the daemon itself.
    useTransport("unix:" + socket_ + ",fault=restart@getDateSupport#2,fault=full@0x20b");
    KeymasterUtils other(kTee);
    EXPECT_EQ(sendRecord(other, {kDateSupport, 0, 0}), KM_ERROR_INVALID_TAG);
    EXPECT_EQ(sendRecord(other, {kDateSupport, 0, 0}), KM_ERROR_SECURE_HW_COMMUNICATION_FAILED);
    EXPECT_EQ(sendRecord(client, {kDeleteAllRecord}), KM_ERROR_SECURE_HW_COMMUNICATION_FAILED);
    EXPECT_EQ(sendRecord(client, {kDeleteAllRecord}), KM_ERROR_OK);
    EXPECT_EQ(sendRecord(other, {0x20B, 0}), KM_ERROR_SECURE_HW_ACCESS_DENIED);
    EXPECT_EQ(sendRecord(client, {0x20B, 0}), KM_ERROR_OK);
}

TEST_F(Daemon, FullOneSaysSoAndDropsTheIdle) {
    const auto daemon = start({"--idle", "1"});
    KeymasterUtils busy(kTee);
    ASSERT_EQ(busy.hsm_init(), KM_ERROR_OK);
    const auto descriptors = [&] {
        const std::filesystem::directory_iterator entries("/proc/" + std::to_string(daemon->pid()) +
                                                          "/fd");
        return std::distance(begin(entries), end(entries));
    };
    const auto before = descriptors();
    std::vector<secureapp::FileHandle> idle(63);
    for (auto& fd : idle) fd.reset(connectRaw());
    EXPECT_THAT(checkTransport(kTee).message, HasSubstr("serves 64 clients"));
    ::usleep(1100000);
    EXPECT_EQ(sendRecord(busy, {kDateSupport, 0, 0}), KM_ERROR_OK);
    EXPECT_EQ(checkTransport(kTee).kind, TransportStatus::ok);
    char byte = 0;
    EXPECT_EQ(::recv(idle[0].get(), &byte, 1, 0), 0);
    EXPECT_EQ(::recv(idle[1].get(), &byte, 1, MSG_DONTWAIT), -1);
    EXPECT_THAT(contentOf(folder_ / "log"),
                AllOf(HasSubstr("refused a client: the daemon"), HasSubstr("dropped client 2")));
    // What ended clients held is given back without anybody having to come.
    idle.clear();
    for (int i = 0; i < 200 && descriptors() != before; ++i) ::usleep(10000);
    EXPECT_EQ(descriptors(), before);
}

TEST_F(Daemon, ClientWithoutAThreadIsRefused) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizer needs memory of its own";
#endif
    const auto daemon = start({"--harden"});
    EXPECT_THAT(contentOf("/proc/" + std::to_string(daemon->pid()) + "/limits"),
                ::testing::ContainsRegex("Max core file size +0 +0 "));
    KeymasterUtils first(kTee);
    ASSERT_EQ(sendCbor(first, kConfigure, kVersions).error, KM_ERROR_OK);
    const rlimit limit = {1 << 20, RLIM_INFINITY};
    ASSERT_EQ(::prlimit(daemon->pid(), RLIMIT_AS, &limit, nullptr), 0);
    EXPECT_THAT(checkTransport(kTee).message, HasSubstr("cannot start a thread"));
    EXPECT_EQ(sendCbor(first, kGenerate, kHmacKey).error, KM_ERROR_OK);
}

// It starts again wherever it was killed while it made its state.
TEST_F(Daemon, StateSurvivesKillsInALoop) {
    for (useconds_t moment = 0; moment < 30; ++moment) {
        const auto daemon = launch();
        ::usleep(1000 * moment);
        EXPECT_EQ(daemon->end(SIGKILL), -SIGKILL);
    }
    const auto daemon = start();
    EXPECT_EQ(checkTransport(KM_SECURITY_LEVEL_STRONGBOX).kind, TransportStatus::ok);
}

TEST_F(Daemon, RefusesToStartInTheWrongPlace) {
    const auto daemon = start();
    const std::string own_state = folder_ / "other";
    std::ofstream(folder_ / "file") << "x";
    const std::string loose = folder_ / "loose";
    ::mkdir(loose.c_str(), 0700);
    ::chmod(loose.c_str(), 0777);
    const std::string piped = folder_ / "piped";
    ::mkdir(piped.c_str(), 0700);
    ::mkfifo((piped + "/world.conf").c_str(), 0600);
    struct {
        std::vector<std::string> arguments;
        int status;
        const char* why;
    } const cases[] = {
        {{"--listen", "unix:" + socket_, "--state", own_state}, 4, "served by another process"},
        {{"--listen", "unix:" + (folder_ / "s2"), "--state", folder_ / "state"},
         6,
         "another daemon"},
        {{"--listen", "unix:" + (folder_ / "file"), "--state", own_state}, 4, "no socket"},
        {{"--listen", "unix:" + loose + "/s", "--state", own_state}, 4, "open to other users"},
        {{"--listen", "unix:/" + std::string(200, 'x'), "--state", own_state}, 4, "bytes"},
        {{"--listen", "unix:" + (folder_ / "s3"), "--state", loose}, 6, "open to other users"},
        {{"--listen", "unix:" + (folder_ / "s4"), "--profile", "legacy-9"}, 2, "--profile"},
        {{"--wordy"}, 2, "--wordy"},
        {{"--listen", "unix:" + (folder_ / "s5"), "--ready-fd", "99"}, 2, "--ready-fd"},
        {{"--listen", "unix:" + (folder_ / "s6"), "--state", piped}, 6, "is not a file that"},
    };
    for (const auto& test : cases) {
        Program refused(test.arguments);
        EXPECT_EQ(refused.wait(), test.status) << test.why;
        EXPECT_THAT(refused.output(), HasSubstr(test.why));
    }
    EXPECT_EQ(checkTransport(kTee).kind, TransportStatus::ok);
}

}  // namespace
}  // namespace lumo::test
