// A local stream socket that never blocks longer than its deadlines.
//
// A message that fits into the receive buffer costs one system call each way: what comes is taken
// as it comes, and poll() is asked only where a call would block in the middle of a message.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <chrono>
#include <initializer_list>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "secureapp/base/Bytes.h"
#include "secureapp/base/Posix.h"

namespace lumo::secureapp {

// The other end is gone, too slow or does not keep to the protocol; `what` says which.
class ChannelError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// There is a daemon, perhaps, but not one of this user.
class ChannelForbidden : public ChannelError {
  public:
    using ChannelError::ChannelError;
};

// The other end had closed before anything of a message was sent.
class ChannelClosed : public ChannelError {
  public:
    using ChannelError::ChannelError;
};

class Channel {
  public:
    using Deadline = std::chrono::steady_clock::time_point;

    // A socket that somebody has connected; awaitMessage() waits for ever.
    explicit Channel(FileHandle socket) : socket_(std::move(socket)) {}
    // Connects to the socket at `path`, which must be served by the same user. Neither connecting
    // nor awaitMessage() takes longer than `patience`.
    static Channel connect(const std::string& path, std::chrono::milliseconds patience);
    ~Channel() = default;
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;
    Channel(Channel&&) = default;
    Channel& operator=(Channel&&) = default;

    // All functions that send or receive throw ChannelError when they cannot.

    // Sends the parts as one message.
    void send(std::initializer_list<ByteView> parts, Deadline deadline);

    // Drops the message received last and waits for the first bytes of the next.
    void awaitMessage();
    // The first `size` bytes of the message, waiting for them until the deadline. The view holds
    // until the next call of receive() or awaitMessage().
    ByteView receive(size_t size, Deadline deadline);
    // Overwrites the message received last.
    void wipeMessage();

    // Ends reading at once, also for a thread that waits in it; what has arrived can still be read.
    void stopReading();
    // Ends both directions at once; the other end sees it.
    void shutdown();

    // The process at the other end and its user.
    ucred peer() const;

  private:
    void wait(short events, Deadline deadline) const;
    // Takes what has come into the room behind end_; false when nothing had and flags forbid to
    // wait for it.
    bool take(int flags);
    void makeRoom(size_t capacity);

    FileHandle socket_;
    // Made by the first awaitMessage(), and not cleared, since only what was received is looked at:
    // the message from 0 to message_, then up to end_ what came behind it.
    std::unique_ptr<uint8_t[]> buffer_;
    size_t capacity_ = 0;
    size_t message_ = 0;
    size_t end_ = 0;
};

// The address of the socket at `path`; throws ChannelError for a path that is too long for one.
sockaddr_un socketAddress(const std::string& path);

// Whether the socket at `path` is left over from a server that is gone.
bool isAbandoned(const std::string& path);

Channel::Deadline after(std::chrono::milliseconds duration);

}  // namespace lumo::secureapp
