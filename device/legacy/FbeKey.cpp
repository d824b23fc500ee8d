#include "FbeKey.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "ByteOrder.h"
#include "Log.h"
#include "Memory.h"

namespace keymasterdevice {
namespace {

constexpr char kDriver[] = "/dev/vaultlink";
// Read and write, type 0x97, number 44, 72 bytes.
constexpr unsigned long kClearKeyRequest = 0xC048972C;

// The request's argument: two halves of the key, each followed by its length in bytes, a 32-bit
// little-endian word.
constexpr size_t kHalfBytes = kFbeKeyBytes / 2;
enum Offset : size_t {
    kFirstHalf = 0,
    kFirstLength = kFirstHalf + kHalfBytes,
    kSecondHalf = kFirstLength + 4,
    kSecondLength = kSecondHalf + kHalfBytes,
    kRecordBytes = kSecondLength + 4,
};
static_assert(kRecordBytes == 72, "the size is part of the request code");

void sendClear(int driver, const uint8_t* key) {
    uint8_t record[kRecordBytes];
    const WipeAtExit wipe_record(record, sizeof(record));
    std::copy_n(key, kHalfBytes, record + kFirstHalf);
    storeLe32(record + kFirstLength, kHalfBytes);
    std::copy_n(key + kHalfBytes, kHalfBytes, record + kSecondHalf);
    storeLe32(record + kSecondLength, kHalfBytes);
    if (ioctl(driver, kClearKeyRequest, record) != 0) {
        KM_LOG_ERROR(kDeviceLogTag, "Couldn't clear FBE key, errno = %d", errno);
    }
}

}  // namespace

void clearFbeKey(const uint8_t* key) {
    const int driver = open(kDriver, O_RDWR);
    if (driver < 0) {
        KM_LOG_ERROR(kDeviceLogTag, "Could not open /dev/vaultlink, errno = %d", errno);
        return;
    }
    sendClear(driver, key);
    close(driver);
}

}  // namespace keymasterdevice
