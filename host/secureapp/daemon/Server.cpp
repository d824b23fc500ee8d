#include "secureapp/daemon/Server.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/random.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

#include "inspect/Commands.h"
#include "inspect/Parameters.h"
#include "secureapp/base/Reply.h"
#include "secureapp/protocol/RecordReader.h"

namespace lumo::secureapp {
namespace {

constexpr int kBacklog = 16;
constexpr std::chrono::milliseconds kAcceptPause{50};
constexpr mode_t kOthersWriteMask = 0022;
constexpr mode_t kAllButOwner = 0177;

[[noreturn]] void failSystem(const std::string& what, const std::string& path) {
    throw ChannelError("cannot " + what + " " + path + ": " + systemError(errno));
}

// Whoever else may rename in the socket's directory could put a socket of his own there.
void requireSafeDirectory(const std::string& path) {
    std::string directory = std::filesystem::path(path).parent_path().string();
    if (directory.empty()) directory = ".";
    struct stat status = {};
    if (::stat(directory.c_str(), &status) != 0) failSystem("look at", directory);
    const bool trusted_owner = status.st_uid == ::geteuid() || status.st_uid == 0;
    const bool open = (status.st_mode & kOthersWriteMask) != 0;
    const bool sticky = (status.st_mode & S_ISVTX) != 0;
    if (!trusted_owner || (open && !sticky)) {
        throw ChannelError(directory +
                           " is open to other users; choose a directory of your own "
                           "for the socket");
    }
}

void removeStaleSocket(const std::string& path) {
    struct stat status = {};
    if (::lstat(path.c_str(), &status) != 0) {
        if (errno == ENOENT) return;
        failSystem("look at", path);
    }
    if (!S_ISSOCK(status.st_mode)) throw ChannelError(path + " exists and is no socket");
    if (!isAbandoned(path)) throw ChannelError(path + " is served by another process");
    if (::unlink(path.c_str()) != 0) failSystem("replace", path);
}

// The socket is made with its final mode: nobody else can connect in between.
void bindPrivate(const FileHandle& socket, const std::string& path) {
    const sockaddr_un address = socketAddress(path);
    const mode_t before = ::umask(kAllButOwner);
    const int result =
        ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    const int error = errno;
    ::umask(before);
    errno = error;
    if (result != 0) failSystem("listen at", path);
}

uint64_t makeBootId() {
    uint64_t boot_id = 0;
    // 0 means that no boot has been reached.
    while (boot_id == 0) {
        const bool failed = ::getrandom(&boot_id, sizeof(boot_id), 0) != sizeof(boot_id);
        if (failed && errno != EINTR) {
            throw ChannelError("the system gives no random bytes: " + systemError(errno));
        }
    }
    return boot_id;
}

std::string nameOf(uint64_t client) {
    return "client " + std::to_string(client);
}

std::string nameOf(FrameKind kind) {
    if (kind == FrameKind::kHello) return "hello";
    return kind == FrameKind::kRehearsal ? "fault" : "rehearsal";
}

std::string describe(const RequestFrame& request) {
    const bool record = request.kind == FrameKind::kRecord;
    uint32_t command = request.command;
    if (record && request.body.size() >= kWordBytes) command = loadWord(request.body, 0);
    std::string name;
    if (request.kind == FrameKind::kCbor || record) {
        name = inspect::describeCommand(record ? inspect::Wire::kRecord : inspect::Wire::kCbor,
                                        command);
    } else {
        name = nameOf(request.kind) + (" " + std::to_string(command));
    }
    const bool strongbox = request.level == KM_SECURITY_LEVEL_STRONGBOX;
    return name + (strongbox ? " on strongbox" : " in the trusted environment");
}

std::string describe(keymaster_error_t error) {
    const auto number = static_cast<int32_t>(error);
    return inspect::errorName(number) + " (" + std::to_string(number) + ")";
}

}  // namespace

Server::Server(Device& device, const std::string& path, std::chrono::milliseconds idle_patience,
               const Log& log, const RequestTrace& trace)
    : device_(device),
      path_(path),
      idle_patience_(idle_patience),
      log_(log),
      trace_(trace),
      boot_id_(makeBootId()),
      listener_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)),
      ended_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!ended_) failSystem("make an event for", path);
    if (!listener_) failSystem("make a socket for", path);
    requireSafeDirectory(path);
    removeStaleSocket(path);
    bindPrivate(listener_, path);
    struct stat status = {};
    if (::lstat(path.c_str(), &status) != 0) failSystem("look at", path);
    socket_device_ = status.st_dev;
    socket_inode_ = status.st_ino;
    if (::listen(listener_.get(), kBacklog) != 0) failSystem("listen at", path);
}

Server::~Server() {
    for (Client& client : clients_) {
        client.channel.stopReading();
        client.thread.join();
    }
    // Unless another server has put its own there meanwhile.
    struct stat status = {};
    const bool ours = ::lstat(path_.c_str(), &status) == 0 && status.st_dev == socket_device_ &&
                      status.st_ino == socket_inode_;
    if (ours) ::unlink(path_.c_str());
}

int Server::readSignal(int signals) {
    signalfd_siginfo signal = {};
    if (::read(signals, &signal, sizeof(signal)) != sizeof(signal)) return SIGTERM;
    if (signal.ssi_signo != SIGUSR1) return static_cast<int>(signal.ssi_signo);
    bool awaited = false;
    for (const auto level : {KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT, KM_SECURITY_LEVEL_STRONGBOX}) {
        if (device_.app(level).confirmPresence()) awaited = true;
    }
    log_.line(awaited
                  ? "presence confirmed by a signal"
                  : "a signal pressed the button, but no operation waits for it: it counts from "
                    "begin to the first data");
    return 0;
}

int Server::run(int signals) {
    for (;;) {
        pollfd entries[] = {
            {signals, POLLIN, 0}, {listener_.get(), POLLIN, 0}, {ended_.get(), POLLIN, 0}};
        if (::poll(entries, std::size(entries), -1) < 0) {
            if (errno == EINTR) continue;
            failSystem("wait at", path_);
        }
        if (entries[0].revents != 0) {
            if (const int signal = readSignal(signals); signal != 0) return signal;
        }
        if (entries[2].revents != 0) removeFinished();
        if (entries[1].revents != 0) accept();
    }
}

void Server::accept() {
    FileHandle socket(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!socket) {
        // Out of descriptors: the connection waits, and clients may end meanwhile.
        std::this_thread::sleep_for(kAcceptPause);
        return;
    }
    try {
        admit(Channel(std::move(socket)));
    } catch (const std::exception& error) {
        log_.line(std::string("lost a new client: ") + error.what());
    }
}

void Server::admit(Channel channel) {
    const ucred peer = channel.peer();
    const std::string process = "process " + std::to_string(peer.pid);
    if (peer.uid != ::geteuid()) {
        log_.line("refused " + process + " of another user");
        return;
    }
    const auto staying = std::count_if(clients_.begin(), clients_.end(),
                                       [](const Client& client) { return !client.leaving; });
    if (static_cast<size_t>(staying) >= kMaxClients && !dropIdle()) {
        refuse(channel, "the daemon serves " + std::to_string(kMaxClients) +
                            " clients, which is as many as it can, and all of them are in use; end "
                            "one, or try again later");
        return;
    }
    Client& client = clients_.emplace_back(std::move(channel), ++last_client_, boot_id_);
    try {
        client.thread = std::thread([this, &client] {
            serve(client);
            client.done = true;
            constexpr uint64_t kOne = 1;
            static_cast<void>(!::write(ended_.get(), &kOne, sizeof(kOne)));
        });
        log_.detail(nameOf(client.number) + " is " + process);
    } catch (const std::system_error& error) {
        refuse(client.channel,
               std::string("the daemon cannot start a thread for another client: ") + error.what());
        clients_.pop_back();
    }
}

// The client finds the reason in place of the answer to its hello.
void Server::refuse(Channel& channel, const std::string& why) {
    log_.line("refused a client: " + why);
    writeReply(channel, {KM_ERROR_SECURE_HW_BUSY, {}, Cause::kRefusal, why}, kFramePatience);
}

bool Server::dropIdle() {
    const auto longest =
        std::min_element(clients_.begin(), clients_.end(), [](const Client& a, const Client& b) {
            return std::pair(a.leaving, a.idle_since.load()) <
                   std::pair(b.leaving, b.idle_since.load());
        });
    const Time since = longest->idle_since;
    const bool idle = !longest->leaving && since != kBusy &&
                      std::chrono::steady_clock::now() - since >= idle_patience_;
    if (!idle) return false;
    log_.line("dropped " + nameOf(longest->number) + ", idle, for a new one");
    longest->leaving = true;
    longest->channel.stopReading();
    return true;
}

void Server::removeFinished() {
    uint64_t count = 0;
    static_cast<void>(!::read(ended_.get(), &count, sizeof(count)));
    clients_.remove_if([](Client& client) {
        if (!client.done) return false;
        client.thread.join();
        return true;
    });
}

Reply Server::rehearse(const RequestFrame& request, Client& client) {
    const auto rehearsal = static_cast<Rehearsal>(request.command);
    if (!takes_faults_) {
        return {KM_ERROR_UNIMPLEMENTED,
                {},
                Cause::kRefusal,
                "this daemon makes no faults on command; start it with --faults"};
    }
    if (rehearsal == Rehearsal::kRestart) {
        log_.line("restarts, as " + nameOf(client.number) + " has asked");
        boot_id_ = makeBootId();
        device_.restart();
    } else if (rehearsal == Rehearsal::kFullDisk) {
        log_.line(nameOf(client.number) + " has asked for a full disk");
        client.disk_full = true;
    } else {
        return {KM_ERROR_UNIMPLEMENTED, {}, Cause::kRefusal, "there is no such fault"};
    }
    return {KM_ERROR_OK, {}, Cause::kNone, {}};
}

// A connection does not outlive the boot that it was made to.
Reply Server::answer(const RequestFrame& request, Client& client) {
    const auto requireSameBoot = [&] {
        if (client.boot_id != boot_id_) throw ChannelError("the device has restarted");
    };
    requireSameBoot();
    if (request.kind == FrameKind::kRehearsal) return rehearse(request, client);
    std::optional<FullDisk> full_disk;
    if (request.kind != FrameKind::kHello && std::exchange(client.disk_full, false)) {
        full_disk.emplace();
    }
    Reply reply = carryOut(request, client);
    requireSameBoot();
    return reply;
}

Reply Server::carryOut(const RequestFrame& request, Client& client) {
    SecureApp& app = device_.app(static_cast<keymaster_security_level_t>(request.level));
    const Profile& profile = device_.profile();
    switch (request.kind) {
        case FrameKind::kHello:
            return {
                KM_ERROR_OK,
                encodeFacts({profile.legacy, profile.keymaster_version, profile.ta_minor_version,
                             profile.hal_minor_version, client.boot_id}),
                Cause::kNone,
                {}};
        case FrameKind::kCbor:
            return app.exchangeCbor(request.command, request.body, client.number);
        case FrameKind::kRecord:
            return app.exchangeRecord(request.body, request.area, request.capacity, client.number);
        case FrameKind::kRehearsal:
            break;
        case FrameKind::kOtherPart:
            return app.rehearse(static_cast<RehearsalCommand>(request.command), request.body);
    }
    throw ChannelError("what came is no request");
}

// Whatever goes wrong with a client ends this client's connection, with the operations that it left
// open, and nothing else.
void Server::serve(Client& client) {
    Channel& channel = client.channel;
    try {
        for (;;) {
            const RequestFrame request = readRequest(channel, kFramePatience);
            client.idle_since = kBusy;
            const auto start = std::chrono::steady_clock::now();
            const Reply reply = answer(request, client);
            trace_.note(request, client.number, boot_id_, reply, start);
            if (reply.error != KM_ERROR_OK && log_.verbose()) {
                log_.line(nameOf(client.number) + ": " + describe(request) +
                          " refused: " + describe(reply.error) +
                          (reply.reason.empty() ? "" : ": " + reply.reason));
            }
            if (bringsKeyMaterial(request)) channel.wipeMessage();
            client.idle_since = std::chrono::steady_clock::now();
            writeReply(channel, reply, kFramePatience);
        }
    } catch (const std::exception& error) {
        // Closed, too slow, garbage, or no memory for what it sent.
        if (log_.verbose()) log_.line(nameOf(client.number) + " ended: " + error.what());
    }
    device_.endClient(client.number);
    channel.shutdown();
}

}  // namespace lumo::secureapp
