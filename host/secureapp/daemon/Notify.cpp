#include "secureapp/daemon/Notify.h"

#include <errno.h>
#include <stddef.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstdlib>
#include <cstring>

namespace lumo::secureapp {

void notifyManager(const std::string& state, const Log& log) {
    const char* name = std::getenv("NOTIFY_SOCKET");
    if (name == nullptr || *name == '\0') return;
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const size_t length = std::strlen(name);
    if (length >= sizeof(address.sun_path)) {
        log.line("NOTIFY_SOCKET is too long for a socket's path");
        return;
    }
    std::memcpy(address.sun_path, name, length);
    if (address.sun_path[0] == '@') address.sun_path[0] = '\0';
    const FileHandle socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
    if (::sendto(socket.get(), state.data(), state.size(), MSG_NOSIGNAL,
                 // The socket interfaces take every kind of address by this type.
                 reinterpret_cast<const sockaddr*>(&address), size) < 0) {
        log.line("cannot tell the service manager " + state + ": " + systemError(errno));
    }
}

}  // namespace lumo::secureapp
