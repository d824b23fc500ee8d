#include "secureapp/daemon/Channel.h"

#include <openssl/crypto.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace lumo::secureapp {
namespace {

using std::chrono::milliseconds;

// Holds the largest record, and a CBOR message with 16 KiB of data.
constexpr size_t kBufferBytes = 64 << 10;
constexpr size_t kMaxParts = 4;

// How long poll() is to wait.
int patienceUntil(Channel::Deadline deadline) {
    const auto left = std::chrono::ceil<milliseconds>(deadline - std::chrono::steady_clock::now());
    return static_cast<int>(std::clamp<milliseconds::rep>(left.count(), 0, 1 << 30));
}

// For every call on the socket that blocks, connect() among them.
void setPatience(const FileHandle& socket, milliseconds patience) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(patience);
    timeval limit = {};
    limit.tv_sec = static_cast<time_t>(seconds.count());
    limit.tv_usec = static_cast<suseconds_t>(
        std::chrono::microseconds(patience - milliseconds(seconds)).count());
    for (const int option : {SO_RCVTIMEO, SO_SNDTIMEO}) {
        if (::setsockopt(socket.get(), SOL_SOCKET, option, &limit, sizeof(limit)) != 0) {
            throw ChannelError("cannot limit the time of a socket: " + systemError(errno));
        }
    }
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

Channel Channel::connect(const std::string& path, milliseconds patience) {
    FileHandle socket = openSocket();
    setPatience(socket, patience);
    const int error = connectTo(path, socket);
    if (error == EAGAIN) throw ChannelError(path + " takes no connection in time");
    if (error == EACCES) {
        throw ChannelForbidden("cannot reach " + path + ": " + systemError(error) +
                               "; a daemon's socket admits its owner alone");
    }
    if (error != 0) throw ChannelError("cannot reach " + path + ": " + systemError(error));
    Channel channel(std::move(socket));
    if (channel.peer().uid != ::geteuid()) {
        throw ChannelForbidden(path + " is served by another user; run a daemon of your own");
    }
    return channel;
}

void Channel::wait(short events, Deadline deadline) const {
    pollfd entry = {socket_.get(), events, 0};
    for (;;) {
        const int ready = ::poll(&entry, 1, patienceUntil(deadline));
        if (ready > 0) return;
        if (ready == 0) throw ChannelError("the other end does not answer in time");
        if (errno != EINTR) throw ChannelError("cannot wait: " + systemError(errno));
    }
}

void Channel::send(std::initializer_list<ByteView> parts, Deadline deadline) {
    std::array<iovec, kMaxParts> vectors = {};
    msghdr message = {};
    message.msg_iov = vectors.data();
    for (const ByteView part : parts) {
        vectors.at(message.msg_iovlen++) = {const_cast<uint8_t*>(part.data()), part.size()};
    }
    for (bool begun = false;;) {
        const ssize_t sent = ::sendmsg(socket_.get(), &message, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent < 0) {
            if (errno == EINTR) continue;
            if (errno != EAGAIN) {
                const std::string why = "cannot send: " + systemError(errno);
                const bool closed = errno == EPIPE || errno == ECONNRESET;
                if (closed && !begun) throw ChannelClosed(why);
                throw ChannelError(why);
            }
            wait(POLLOUT, deadline);
            continue;
        }
        begun = true;
        size_t done = static_cast<size_t>(sent);
        while (message.msg_iovlen > 0 && done >= message.msg_iov->iov_len) {
            done -= message.msg_iov->iov_len;
            ++message.msg_iov;
            --message.msg_iovlen;
        }
        if (message.msg_iovlen == 0) return;
        message.msg_iov->iov_base = static_cast<uint8_t*>(message.msg_iov->iov_base) + done;
        message.msg_iov->iov_len -= done;
    }
}

bool Channel::take(int flags) {
    for (;;) {
        const ssize_t got = ::recv(socket_.get(), buffer_.get() + end_, capacity_ - end_, flags);
        if (got > 0) {
            end_ += static_cast<size_t>(got);
            return true;
        }
        if (got == 0) throw ChannelError("the other end has closed");
        if (errno == EAGAIN) return false;
        if (errno != EINTR) throw ChannelError("cannot receive: " + systemError(errno));
    }
}

// What the old buffer held may be secret.
void Channel::makeRoom(size_t capacity) {
    std::unique_ptr<uint8_t[]> larger(new uint8_t[capacity]);
    if (end_ > 0) std::copy_n(buffer_.get(), end_, larger.get());
    if (capacity_ > 0) OPENSSL_cleanse(buffer_.get(), capacity_);
    buffer_ = std::move(larger);
    capacity_ = capacity;
}

void Channel::awaitMessage() {
    if (message_ < end_) std::copy(buffer_.get() + message_, buffer_.get() + end_, buffer_.get());
    end_ -= message_;
    message_ = 0;
    if (capacity_ != kBufferBytes && end_ <= kBufferBytes) makeRoom(kBufferBytes);
    if (end_ == 0 && !take(0)) throw ChannelError("the other end does not answer in time");
}

ByteView Channel::receive(size_t size, Deadline deadline) {
    if (size > capacity_) makeRoom(size);
    while (end_ < size) {
        if (!take(MSG_DONTWAIT)) wait(POLLIN, deadline);
    }
    message_ = size;
    return {buffer_.get(), size};
}

void Channel::wipeMessage() {
    if (message_ > 0) OPENSSL_cleanse(buffer_.get(), message_);
}

void Channel::stopReading() {
    ::shutdown(socket_.get(), SHUT_RD);
}

void Channel::shutdown() {
    ::shutdown(socket_.get(), SHUT_RDWR);
}

ucred Channel::peer() const {
    ucred peer = {};
    socklen_t size = sizeof(peer);
    if (::getsockopt(socket_.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) {
        throw ChannelError("cannot tell who is at the other end: " + systemError(errno));
    }
    return peer;
}

}  // namespace lumo::secureapp
