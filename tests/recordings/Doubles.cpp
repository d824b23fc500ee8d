#include "Doubles.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <ctime>

#include "Values.h"

namespace lumo::test {
namespace {

SystemScript script;
int driver_descriptor = -1;

}  // namespace

SystemScript& scriptSystem() {
    driver_descriptor = -1;
    return script = SystemScript();
}

SystemScript& systemScript() {
    return script;
}

}  // namespace lumo::test

using lumo::test::driver_descriptor;
using lumo::test::script;

// The C library's own never fails for 32-bit seconds.
extern "C" tm* gmtime(const time_t* time) noexcept {
    static tm broken_down;
    if (script.failing_gmtime > 0 && --script.failing_gmtime == 0) return nullptr;
    return gmtime_r(time, &broken_down);
}

extern "C" int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : mode_t{0};
    va_end(arguments);
    static const auto real =
        reinterpret_cast<int (*)(const char*, int, ...)>(dlsym(RTLD_NEXT, "open"));
    if (std::strcmp(path, "/dev/vaultlink") != 0) return real(path, flags, mode);
    script.driver_calls += (flags & O_ACCMODE) == O_RDWR ? " open" : " open-otherwise";
    errno = script.open_errno;
    if (script.open_errno == 0) driver_descriptor = real("/dev/null", O_RDWR);
    return script.open_errno == 0 ? driver_descriptor : -1;
}

extern "C" int ioctl(int descriptor, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    auto* argument = va_arg(arguments, uint8_t*);
    va_end(arguments);
    static const auto real =
        reinterpret_cast<int (*)(int, unsigned long, ...)>(dlsym(RTLD_NEXT, "ioctl"));
    if (descriptor != driver_descriptor) return real(descriptor, request, argument);
    script.driver_calls += " ioctl(" + lumo::test::hexNumber(request) + " " +
                           lumo::test::showBytes({argument, argument + 72}, 4) + ")";
    errno = script.ioctl_errno;
    return script.ioctl_errno == 0 ? 0 : -1;
}

extern "C" int close(int descriptor) {
    static const auto real = reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, "close"));
    if (descriptor == driver_descriptor && descriptor != -1) {
        script.driver_calls += " close";
        driver_descriptor = -1;
    }
    return real(descriptor);
}
