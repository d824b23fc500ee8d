// Preloaded before a program: counts the system calls with which it touches one folder, and lets
// one of them fail. scripts/faults drives it by the environment:
//
//   LUMO_FAULT_ROOT  the folder; the calls count whose path or descriptor lies in it
//   LUMO_FAULT_LIST  a file that gets a line for each of them: its name
//   LUMO_FAULT_AT    N:MODE, for the N-th call from 1: kill-before, kill-after, short (half of the
//                    bytes are read or written), or the errno by which it fails
//
// The programs call the C library for every such system call, and the wrappers stand in front of
// it.
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>

namespace {

enum class Mode { kNone, kKillBefore, kKillAfter, kShort, kError };

struct Plan {
    const char* root = nullptr;
    int list = -1;
    long at = 0;
    Mode mode = Mode::kNone;
    int error = 0;

    Plan();
};

template <typename Function>
Function* real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

Plan::Plan() {
    root = getenv("LUMO_FAULT_ROOT");
    if (const char* file = getenv("LUMO_FAULT_LIST")) {
        list = real<int(const char*, int, ...)>("open")(
            file, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    }
    const char* fault = getenv("LUMO_FAULT_AT");
    if (fault == nullptr) return;
    char* end = nullptr;
    at = strtol(fault, &end, 10);
    if (*end == ':') ++end;
    if (strcmp(end, "kill-before") == 0) {
        mode = Mode::kKillBefore;
    } else if (strcmp(end, "kill-after") == 0) {
        mode = Mode::kKillAfter;
    } else if (strcmp(end, "short") == 0) {
        mode = Mode::kShort;
    } else {
        mode = Mode::kError;
        error = atoi(end);
    }
}

const Plan& plan() {
    static const Plan made;
    return made;
}

bool isInRoot(const char* path) {
    const char* root = plan().root;
    if (root == nullptr || path == nullptr) return false;
    const size_t length = strlen(root);
    return strncmp(path, root, length) == 0 && (path[length] == '/' || path[length] == '\0');
}

bool concerns(const char* path) {
    if (path == nullptr || path[0] == '/') return isInRoot(path);
    char absolute[PATH_MAX];
    if (getcwd(absolute, sizeof(absolute)) == nullptr) return false;
    const size_t length = strlen(absolute);
    snprintf(absolute + length, sizeof(absolute) - length, "/%s", path);
    return isInRoot(absolute);
}

bool concerns(int fd) {
    if (plan().root == nullptr) return false;
    char link[64];
    char path[PATH_MAX];
    snprintf(link, sizeof(link), "/proc/self/fd/%d", fd);
    static auto* const read_link = real<ssize_t(const char*, char*, size_t)>("readlink");
    const ssize_t length = read_link(link, path, sizeof(path) - 1);
    if (length < 0) return false;
    path[length] = '\0';
    return isInRoot(path);
}

std::atomic<long> calls{0};

// What is to become of this call.
Mode next(const char* name) {
    const long number = ++calls;
    if (plan().list >= 0) {
        char line[64];
        const int length = snprintf(line, sizeof(line), "%s\n", name);
        static auto* const write_line = real<ssize_t(int, const void*, size_t)>("write");
        static_cast<void>(!write_line(plan().list, line, static_cast<size_t>(length)));
    }
    return number == plan().at ? plan().mode : Mode::kNone;
}

void end() {
    kill(getpid(), SIGKILL);
    pause();
}

template <typename Call>
auto pass(const char* name, bool concerned, Call call) -> decltype(call(false)) {
    const Mode mode = concerned ? next(name) : Mode::kNone;
    if (mode == Mode::kKillBefore) end();
    if (mode == Mode::kError) {
        errno = plan().error;
        return -1;
    }
    const auto result = call(mode == Mode::kShort);
    if (mode == Mode::kKillAfter) end();
    return result;
}

size_t half(size_t size, bool cut) {
    return cut && size > 1 ? size / 2 : size;
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    static auto* const call = real<int(const char*, int, ...)>("open");
    return pass("open", concerns(path), [&](bool) { return call(path, flags, mode); });
}

ssize_t read(int fd, void* bytes, size_t size) {
    static auto* const call = real<ssize_t(int, void*, size_t)>("read");
    return pass("read", concerns(fd), [&](bool cut) { return call(fd, bytes, half(size, cut)); });
}

ssize_t write(int fd, const void* bytes, size_t size) {
    static auto* const call = real<ssize_t(int, const void*, size_t)>("write");
    return pass("write", concerns(fd), [&](bool cut) { return call(fd, bytes, half(size, cut)); });
}

int fsync(int fd) {
    static auto* const call = real<int(int)>("fsync");
    return pass("fsync", concerns(fd), [&](bool) { return call(fd); });
}

int flock(int fd, int operation) {
    static auto* const call = real<int(int, int)>("flock");
    return pass("flock", concerns(fd), [&](bool) { return call(fd, operation); });
}

int fchmod(int fd, mode_t mode) {
    static auto* const call = real<int(int, mode_t)>("fchmod");
    return pass("fchmod", concerns(fd), [&](bool) { return call(fd, mode); });
}

int fstat(int fd, struct stat* status) {
    static auto* const call = real<int(int, struct stat*)>("fstat");
    return pass("fstat", concerns(fd), [&](bool) { return call(fd, status); });
}

int stat(const char* path, struct stat* status) {
    static auto* const call = real<int(const char*, struct stat*)>("stat");
    return pass("stat", concerns(path), [&](bool) { return call(path, status); });
}

int lstat(const char* path, struct stat* status) {
    static auto* const call = real<int(const char*, struct stat*)>("lstat");
    return pass("lstat", concerns(path), [&](bool) { return call(path, status); });
}

int mkdir(const char* path, mode_t mode) {
    static auto* const call = real<int(const char*, mode_t)>("mkdir");
    return pass("mkdir", concerns(path), [&](bool) { return call(path, mode); });
}

int unlink(const char* path) {
    static auto* const call = real<int(const char*)>("unlink");
    return pass("unlink", concerns(path), [&](bool) { return call(path); });
}

int rename(const char* from, const char* to) {
    static auto* const call = real<int(const char*, const char*)>("rename");
    return pass("rename", concerns(to), [&](bool) { return call(from, to); });
}

int linkat(int from_folder, const char* from, int to_folder, const char* to, int flags) {
    static auto* const call = real<int(int, const char*, int, const char*, int)>("linkat");
    return pass("linkat", concerns(to),
                [&](bool) { return call(from_folder, from, to_folder, to, flags); });
}

}  // extern "C"
