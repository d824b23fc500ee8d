// Keys of file-based encryption, with the driver's calls taken over.

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>

#include "LegacyDevice.h"

namespace {

// What the process sees of the driver while `active`.
struct FakeDriver {
    bool active = false;
    int open_errno = 0;
    int ioctl_errno = 0;
    int descriptor = -1;
    int flags = 0;
    unsigned long request = 0;
    lumo::test::Bytes record;
};
FakeDriver driver;

}  // namespace

extern "C" int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : mode_t{0};
    va_end(arguments);
    static const auto real =
        reinterpret_cast<int (*)(const char*, int, ...)>(dlsym(RTLD_NEXT, "open"));
    if (!driver.active || std::strcmp(path, "/dev/vaultlink") != 0) return real(path, flags, mode);
    driver.flags = flags;
    errno = driver.open_errno;
    if (driver.open_errno == 0) driver.descriptor = real("/dev/null", O_RDWR);
    return driver.open_errno == 0 ? driver.descriptor : -1;
}

extern "C" int ioctl(int descriptor, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    auto* argument = va_arg(arguments, uint8_t*);
    va_end(arguments);
    static const auto real =
        reinterpret_cast<int (*)(int, unsigned long, ...)>(dlsym(RTLD_NEXT, "ioctl"));
    if (!driver.active || descriptor != driver.descriptor) {
        return real(descriptor, request, argument);
    }
    driver.request = request;
    driver.record.assign(argument, argument + 72);
    errno = driver.ioctl_errno;
    return driver.ioctl_errno == 0 ? 0 : -1;
}

namespace lumo::test {
namespace {

using ::testing::ElementsAre;

class FbeKey : public LegacyDevice {
  protected:
    FbeKey() {
        driver = FakeDriver();
        driver.active = true;
    }
    ~FbeKey() override { driver.active = false; }

    keymaster_error_t deleteKey(const Bytes& blob) {
        const keymaster_key_blob_t key = keyOf(blob);
        return device_.delete_key(&key);
    }
};

TEST_F(FbeKey, GoesToTheDriverInTwoHalvesAndFailuresAreOnlyLogged) {
    for (const int ioctl_errno : {0, EIO}) {
        driver.ioctl_errno = ioctl_errno;
        EXPECT_EQ(deleteKey(fill(32, 0xA1) + fill(32, 0xB2)), KM_ERROR_OK);
        EXPECT_EQ(driver.flags & O_ACCMODE, O_RDWR);
        EXPECT_EQ(driver.request, 0xC048972Cul);
        EXPECT_EQ(driver.record, fill(32, 0xA1) + words({32}) + fill(32, 0xB2) + words({32}));
        EXPECT_EQ(fcntl(driver.descriptor, F_GETFD), -1) << "left open";
    }
    driver.open_errno = ENOENT;
    EXPECT_EQ(deleteKey(fill(64, 1)), KM_ERROR_OK);
    EXPECT_EQ(script().callNames(), "isLegacy isLegacy isLegacy");
    EXPECT_THAT(log_.texts(), ElementsAre("Couldn't clear FBE key, errno = 5",
                                          "Could not open /dev/vaultlink, errno = 2"));
}

TEST_F(FbeKey, OtherSizesGoToTheSecureApplication) {
    for (const size_t size : {63u, 65u}) {
        script().willReply(words({0}));
        EXPECT_EQ(deleteKey(fill(size, 1)), KM_ERROR_OK);
    }
    EXPECT_EQ(script().sentCount(), 2u);
    EXPECT_EQ(driver.record, Bytes());
}

}  // namespace
}  // namespace lumo::test
