#include "secureapp/daemon/Channel.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace lumo::secureapp {
namespace {

using std::chrono::milliseconds;

// How long poll() is to wait; -1 is for ever.
int patience(Channel::Deadline deadline) {
    if (!deadline) return -1;
    const auto left = std::chrono::ceil<milliseconds>(*deadline - std::chrono::steady_clock::now());
    return static_cast<int>(std::clamp<milliseconds::rep>(left.count(), 0, 1 << 30));
}

FileHandle openSocket() {
    FileHandle socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!socket) throw ChannelError("no socket: " + systemError(errno));
    return socket;
}

// 0, or the error number.
int connectTo(const std::string& path, const FileHandle& socket) {
    const sockaddr_un address = socketAddress(path);
    const sockaddr* generic = reinterpret_cast<const sockaddr*>(&address);
    return ::connect(socket.get(), generic, sizeof(address)) == 0 ? 0 : errno;
}

}  // namespace

Channel::Deadline after(milliseconds duration) {
    return std::chrono::steady_clock::now() + duration;
}

sockaddr_un socketAddress(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof(address.sun_path)) {
        throw ChannelError("'" + path + "' cannot name a socket: it must have 1 to " +
                           std::to_string(sizeof(address.sun_path) - 1) + " bytes");
    }
    std::copy(path.begin(), path.end(), address.sun_path);
    return address;
}

bool isAbandoned(const std::string& path) {
    return connectTo(path, openSocket()) == ECONNREFUSED;
}

Channel Channel::connect(const std::string& path) {
    FileHandle socket = openSocket();
    const int error = connectTo(path, socket);
    if (error != 0) throw ChannelError("cannot reach " + path + ": " + systemError(error));
    Channel channel(std::move(socket));
    if (!channel.peerIsSameUser()) throw ChannelError(path + " is served by another user");
    return channel;
}

void Channel::wait(short events, Deadline deadline) const {
    pollfd entry = {socket_.get(), events, 0};
    for (;;) {
        const int ready = ::poll(&entry, 1, patience(deadline));
        if (ready > 0) return;
        if (ready == 0) throw ChannelError("the other end does not answer in time");
        if (errno != EINTR) throw ChannelError("cannot wait: " + systemError(errno));
    }
}

void Channel::awaitInput() {
    wait(POLLIN, std::nullopt);
}

void Channel::read(uint8_t* place, size_t size, Deadline deadline) {
    while (size > 0) {
        wait(POLLIN, deadline);
        const ssize_t got = ::recv(socket_.get(), place, size, MSG_DONTWAIT);
        if (got == 0) throw ChannelError("the other end has closed");
        if (got < 0 && (errno == EAGAIN || errno == EINTR)) continue;
        if (got < 0) throw ChannelError("cannot receive: " + systemError(errno));
        place += got;
        size -= static_cast<size_t>(got);
    }
}

void Channel::write(ByteView bytes, Deadline deadline) {
    while (!bytes.empty()) {
        wait(POLLOUT, deadline);
        const ssize_t sent =
            ::send(socket_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent < 0 && (errno == EAGAIN || errno == EINTR)) continue;
        if (sent < 0) throw ChannelError("cannot send: " + systemError(errno));
        bytes = bytes.sub(static_cast<size_t>(sent));
    }
}

bool Channel::quiet() const {
    pollfd entry = {socket_.get(), POLLIN, 0};
    return socket_ && ::poll(&entry, 1, 0) == 0;
}

void Channel::stopReading() {
    ::shutdown(socket_.get(), SHUT_RD);
}

void Channel::shutdown() {
    ::shutdown(socket_.get(), SHUT_RDWR);
}

bool Channel::peerIsSameUser() const {
    ucred peer = {};
    socklen_t size = sizeof(peer);
    return ::getsockopt(socket_.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
           peer.uid == ::geteuid();
}

}  // namespace lumo::secureapp
