// A local stream socket that never blocks longer than it was told to.
#pragma once

#include <sys/un.h>

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>

#include "secureapp/base/Bytes.h"
#include "secureapp/base/Posix.h"

namespace lumo::secureapp {

// The other end is gone, too slow or talks something else; `what` says which.
class ChannelError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

class Channel {
  public:
    using Deadline = std::optional<std::chrono::steady_clock::time_point>;  // none: for ever

    explicit Channel(FileHandle socket) : socket_(std::move(socket)) {}

    // Connects to the socket at `path`, which must be served by the same user.
    static Channel connect(const std::string& path);

    // Both throw ChannelError when not all bytes pass before the deadline.
    void read(uint8_t* place, size_t size, Deadline deadline);
    void write(ByteView bytes, Deadline deadline);

    // Returns when there is something to read, or the other end has closed.
    void awaitInput();
    // False once the other end has closed, or has sent what nobody asked for.
    bool quiet() const;
    // Ends reading at once, also for a thread that waits in it.
    void stopReading();
    // Ends both directions at once; the other end sees it.
    void shutdown();

    // Whether the process at the other end belongs to this user.
    bool peerIsSameUser() const;

  private:
    void wait(short events, Deadline deadline) const;

    FileHandle socket_;
};

// The address of the socket at `path`; throws ChannelError for a path that is too long for one.
sockaddr_un socketAddress(const std::string& path);

// Whether the socket at `path` is left over from a server that is gone.
bool isAbandoned(const std::string& path);

Channel::Deadline after(std::chrono::milliseconds duration);

}  // namespace lumo::secureapp
