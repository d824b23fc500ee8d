#include "secureapp/daemon/Log.h"

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "secureapp/base/Environment.h"

namespace lumo::secureapp {
namespace {

constexpr mode_t kFileMode = 0600;

std::string timeNow() {
    timespec now = {};
    ::clock_gettime(CLOCK_REALTIME, &now);
    tm parts = {};
    ::gmtime_r(&now.tv_sec, &parts);
    char text[sizeof("2000-01-01T00:00:00")];
    text[::strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%S", &parts)] = 0;
    const std::string millis = std::to_string(1000 + now.tv_nsec / 1000000).substr(1);
    return std::string(text) + "." + millis + "Z";
}

}  // namespace

Log::Log(const std::string& file, bool verbose) : verbose_(verbose) {
    if (file.empty()) return;
    constexpr int kFlags = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    file_.reset(::open(file.c_str(), kFlags, kFileMode));
    if (!file_) throw StateError("cannot write the log " + file + ": " + systemError(errno));
}

void Log::line(const std::string& text) const {
    std::string whole = timeNow() + " lumo-secureapp[" + std::to_string(::getpid()) + "]: " + text;
    // A reason never makes a second line.
    std::replace_if(
        whole.begin(), whole.end(), [](unsigned char c) { return c < ' '; }, ' ');
    whole += '\n';
    const int fd = file_ ? file_.get() : STDERR_FILENO;
    static_cast<void>(!::write(fd, whole.data(), whole.size()));
}

}  // namespace lumo::secureapp
