#include "secureapp/base/Posix.h"

#include <unistd.h>

#include <system_error>

namespace lumo::secureapp {

int FileHandle::release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
}

void FileHandle::reset(int fd) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
}

std::string systemError(int error) {
    return std::system_category().message(error);
}

}  // namespace lumo::secureapp
