#include "secureapp/daemon/Server.h"

#include <poll.h>
#include <signal.h>
#include <sys/random.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "secureapp/base/Reply.h"
#include "secureapp/daemon/Frame.h"

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

uint64_t makeLife() {
    uint64_t life = 0;
    // 0 is no life.
    while (life == 0) {
        const bool failed = ::getrandom(&life, sizeof(life), 0) != sizeof(life);
        if (failed && errno != EINTR) {
            throw ChannelError("the system gives no random bytes: " + systemError(errno));
        }
    }
    return life;
}

Reply carryOut(Device& device, const RequestFrame& request, uint64_t client, uint64_t life) {
    SecureApp& app = device.app(static_cast<keymaster_security_level_t>(request.level));
    const Profile& profile = device.profile();
    switch (request.kind) {
        case FrameKind::kHello:
            return {KM_ERROR_OK,
                    encodeFacts({profile.legacy, profile.keymaster_version,
                                 profile.ta_minor_version, profile.hal_minor_version, life}),
                    Cause::kNone,
                    {}};
        case FrameKind::kCbor:
            return app.exchangeCbor(request.command, request.body, client);
        case FrameKind::kRecord:
            return app.exchangeRecord(request.body, request.area, request.capacity, client);
    }
    throw ChannelError("what came is no request");
}

bool isLevel(uint32_t level) {
    return level <= KM_SECURITY_LEVEL_STRONGBOX;
}

}  // namespace

Server::Server(Device& device, const std::string& path)
    : device_(device),
      path_(path),
      life_(makeLife()),
      listener_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
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

bool Server::readSignal(int signals) {
    signalfd_siginfo signal = {};
    const bool pressed =
        ::read(signals, &signal, sizeof(signal)) == sizeof(signal) && signal.ssi_signo == SIGUSR1;
    if (!pressed) return true;
    for (const auto level : {KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT, KM_SECURITY_LEVEL_STRONGBOX}) {
        device_.app(level).confirmPresence();
    }
    return false;
}

void Server::run(int signals) {
    for (;;) {
        pollfd entries[] = {{signals, POLLIN, 0}, {listener_.get(), POLLIN, 0}};
        if (::poll(entries, 2, -1) < 0) {
            if (errno == EINTR) continue;
            failSystem("wait at", path_);
        }
        if (entries[0].revents != 0 && readSignal(signals)) return;
        if (entries[1].revents != 0) accept();
    }
}

void Server::accept() {
    FileHandle socket(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    removeFinished();
    // Out of descriptors: the connection waits, and clients may end meanwhile.
    if (!socket) std::this_thread::sleep_for(kAcceptPause);
    if (!socket || clients_.size() >= kMaxClients) return;
    clients_.emplace_back(Channel(std::move(socket)), ++last_client_);
    Client& client = clients_.back();
    if (client.channel.peer().uid != ::geteuid()) {
        clients_.pop_back();
        return;
    }
    client.thread = std::thread([this, &client] {
        serve(client);
        client.done = true;
    });
}

void Server::removeFinished() {
    clients_.remove_if([](Client& client) {
        if (!client.done) return false;
        client.thread.join();
        return true;
    });
}

// Whatever goes wrong with a client ends this client's connection, with the operations that it left
// open, and nothing else.
void Server::serve(Client& client) {
    Channel& channel = client.channel;
    try {
        for (;;) {
            const RequestFrame request = readRequest(channel, kFramePatience);
            if (!isLevel(request.level)) break;
            const Reply reply = carryOut(device_, request, client.number, life_);
            if (bringsKeyMaterial(request)) channel.wipeMessage();
            writeReply(channel, reply, kFramePatience);
        }
    } catch (const std::exception&) {
        // Closed, too slow, garbage, or no memory for what it sent.
    }
    device_.endClient(client.number);
    channel.shutdown();
}

}  // namespace lumo::secureapp
