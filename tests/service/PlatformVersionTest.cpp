#include <LogCapture.h>
#include <PlatformVersion.h>

#include "ServiceTest.h"

namespace {

using namespace ::lumo::test;
using namespace ::keymaster::V4_0;

constexpr char kNoVersion[] =
    "Platform version string does not match expected format.  Using version 0.";
constexpr char kNoPlatformDate[] =
    "Platform patchlevel string does not match expected format.  Using patchlevel 0";
constexpr char kNoVendorDate[] =
    "Vendor patchlevel string does not match expected format.  Using patchlevel 0";

// Null for no line. A value that is no number of the right form is logged, one out of range is an
// error.
void expectLine(const LogCapture& log, const char* line) {
    ASSERT_EQ(log.lines().size(), line == nullptr ? 0U : 1U);
    if (line == nullptr) return;
    EXPECT_EQ(log.lines()[0].text, line);
    EXPECT_EQ(log.lines()[0].tag, "android.hardware.keymaster@4.0-impl");
    EXPECT_EQ(log.lines()[0].priority, log.lines()[0].text.find("Invalid") == 0 ? 6 : 4);
}

class PlatformVersion : public ServiceTest {};

TEST_F(PlatformVersion, OsVersion) {
    const struct {
        const char* release;
        uint32_t version;
        const char* line;
    } cases[] = {
        {"11", 110000, nullptr},          {"8.1.0", 80100, nullptr}, {"4.4.2", 40402, nullptr},
        {"10.0.1-beta", 100001, nullptr}, {"123", 120000, nullptr},  {"9.1", 90100, nullptr},
        {"99.99.99", 999999, nullptr},    {"R", 0, kNoVersion},      {"", 0, kNoVersion},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.release);
        setProperty("ro.build.version.release", c.release);
        LogCapture log;
        EXPECT_EQ(GetOsVersion(), c.version);
        expectLine(log, c.line);
    }
}

TEST_F(PlatformVersion, PatchLevels) {
    const struct {
        const char* date;
        uint32_t month, day;  // as YYYYMM and as YYYYMMDD
        const char* month_line;
        const char* day_line;
    } cases[] = {
        {"0000-01-01", 1, 101, nullptr, nullptr},
        {"2020-02-31", 202002, 20200231, nullptr, nullptr},
        {"2020-02-00", 202002, 0, nullptr, "Invalid patch date 0"},
        {"2020-02-32", 202002, 0, nullptr, "Invalid patch date 32"},
        {"2020-13-01", 0, 0, "Invalid patch month 13", "Invalid patch month 13"},
        {"2020-2-05", 0, 0, kNoPlatformDate, kNoVendorDate},
        {"2020-02-05 ", 0, 0, kNoPlatformDate, kNoVendorDate},
        {"", 0, 0, kNoPlatformDate, kNoVendorDate},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.date);
        const auto expect = [&](auto get, const char* property, uint32_t level, const char* line) {
            setProperty("ro.build.version.security_patch", "");
            setProperty("ro.vendor.build.security_patch", "");
            setProperty(property, c.date);
            LogCapture log;
            EXPECT_EQ(get(), level);
            expectLine(log, line);
        };
        const auto vendor = [](bool dates) { return [=] { return GetVendorPatchlevel(dates); }; };
        expect(GetOsPatchlevel, "ro.build.version.security_patch", c.month, c.month_line);
        expect(vendor(false), "ro.vendor.build.security_patch", c.month, c.month_line);
        expect(vendor(true), "ro.vendor.build.security_patch", c.day, c.day_line);
    }
}

}  // namespace
