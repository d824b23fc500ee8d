#include <gtest/gtest.h>

#include <ctime>

#include "AttestationDates.h"
#include "KeyBlobs.h"
#include "LogCapture.h"

namespace {
int calls_until_gmtime_fails = 0;  // 0: it never does
}

// Stands before the C library's, whose own never fails for 32-bit seconds.
extern "C" tm* gmtime(const time_t* time) noexcept {
    static tm broken_down;
    if (calls_until_gmtime_fails > 0 && --calls_until_gmtime_fails == 0) return nullptr;
    return gmtime_r(time, &broken_down);
}

namespace {

using std::string;

constexpr char kNoDate[] = "-1 -1 -1 -1 -1 -1 -1 -1 -1";
constexpr char kNoExpiry[] = "59 59 23 31 12 1969 -1 -1 -1";
constexpr char kField[] = "278:8=1700000000999";  // 2023-11-14 22:13:20 UTC
constexpr char kActive[] = "20 13 22 14 11 2023 -1 -1 -1";

string text(const tztm& date) {
    string result;
    for (int32_t field : {date.tm_sec, date.tm_min, date.tm_hour, date.tm_mday, date.tm_mon,
                          date.tm_year, date.tm_wday, date.tm_yday, date.tm_isdst}) {
        result += (result.empty() ? "" : " ") + std::to_string(field);
    }
    return result;
}

TEST(AttestationDates, AreReadFromTheBlob) {
    const struct {
        const char* name;
        size_t size;
        const char* fields;
        string active, expire;
        int failing_call = 0;
        std::vector<string> lines = {};
    } cases[] = {
        {"394 bytes", 394, kField, kNoDate, kNoDate},
        {"395 bytes; the flag of the active date is not asked", 395, kField, kActive, kNoExpiry},
        {"another magic", 395, "278:8=1700000000999 0:1=0", kNoDate, kNoDate},
        {"another second word", 395, "278:8=1700000000999 7:1=1", kNoDate, kNoDate},
        {"both dates", 395, "295:1=2 296:8=1709210096000", "0 0 0 1 1 1970 -1 -1 -1",
         "56 34 12 29 2 2024 -1 -1 -1"},
        {"seconds above 32 bits are cut", 395,
         "278:8=4294967301000 295:1=1 296:8=0xffffffffffffffff", "5 0 0 1 1 1970 -1 -1 -1",
         "19 45 5 15 4 2010 -1 -1 -1"},
        {"the earliest", 395, "278:8=2147483648000", "52 45 20 13 12 1901 -1 -1 -1", kNoExpiry},
        {"no active date", 395, kField, kNoDate, kNoDate, 1, {"activeDateTime handle is NULL"}},
        {"no expiry", 395, kField, kActive, kNoDate, 2, {"usageExpireDateTime handle is NULL"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        lumo::test::LogCapture log;
        const auto blob = lumo::test::blobOf(c.size, 4, 1, c.fields);
        calls_until_gmtime_fails = c.failing_call;
        const auto dates = keymasterdevice::readAttestationDates({blob.data(), blob.size()});
        calls_until_gmtime_fails = 0;
        EXPECT_EQ(text(dates.active), c.active);
        EXPECT_EQ(text(dates.expire), c.expire);
        EXPECT_EQ(keymasterdevice::hasDate(dates.active), c.active != kNoDate);
        EXPECT_EQ(log.texts(), c.lines);
        for (const auto& line : log.lines()) EXPECT_EQ(line.tag, "KeyMasterHalDevice");
    }
}

}  // namespace
