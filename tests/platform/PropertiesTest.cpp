#include <android-base/properties.h>
#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <lumo/Properties.h>
#include <stdlib.h>

#include <fstream>
#include <functional>
#include <iostream>

namespace {

using android::base::SetProperty;
using android::base::WaitForPropertyCreation;

std::string get(const char* name, const char* otherwise) {
    char value[PROPERTY_VALUE_MAX];
    const int length = property_get(name, value, otherwise);
    EXPECT_EQ(std::string(value).size(), static_cast<size_t>(length));
    return value;
}

// The file is read once in a process, so each case has a child process of its own.
void inProcess(const std::string& path, const std::string& expectedOnStderr,
               const std::function<bool()>& body) {
    const auto run = [&] {
        setenv("LUMO_PROPERTIES", path.c_str(), 1);
        exit(body() && !testing::Test::HasFailure() ? 0 : 1);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), expectedOnStderr);
}

std::string fileWith(const std::string& text) {
    const std::string path = testing::TempDir() + "platform_test.build.prop";
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

TEST(Properties, ComeFromTheFile) {
    const std::string path = fileWith(
        "# comment = no\n\n name.a = a value \r\nname.b=1=2\nname.empty=\nname.c=old\nname.c=new\n"
        "set.before=file\nlast=unterminated");
    inProcess(path, "", [] {
        SetProperty("set.before", "process");
        return get("name.a", nullptr) == "a value" && get("name.b", "") == "1=2" &&
               get("name.empty", "default") == "default" && get("name.c", "") == "new" &&
               get("set.before", "") == "process" && get("last", "") == "unterminated" &&
               get("# comment", nullptr).empty() && WaitForPropertyCreation("name.empty") &&
               lumo::loadProperties().error.empty() &&
               lumo::missingProperties({"name.x", "name.a", "y"}) ==
                   std::vector<std::string>{"name.x", "y"};
    });
}

TEST(Properties, DefaultFileHasWhatTheServiceWaitsFor) {
    inProcess("", "", [] {
        return get("ro.build.version.release", "") == "11" &&
               get("ro.build.version.security_patch", "") == "2020-12-05" &&
               get("ro.vendor.build.security_patch", "") == "2020-12-05";
    });
}

TEST(Properties, MissingOnesAreReportedAtOnce) {
    inProcess("/dev/null", "property ro.x does not exist: not in /dev/null", [] {
        if (WaitForPropertyCreation("ro.x")) return false;
        SetProperty("ro.x", "1");
        return WaitForPropertyCreation("ro.x", std::chrono::milliseconds(1)) &&
               lumo::missingProperties({"ro.x"}).empty();
    });
}

TEST(Properties, FaultyFilesAreNamed) {
    const std::string malformed = fileWith("good=1\nbad line\n");
    const std::pair<std::string, const char*> cases[] = {
        {"/nonexistent/build.prop", "/nonexistent/build.prop: No such file"},
        {"/dev", "/dev"},  // a directory
        {malformed, "build.prop:2: expected a line name=value"},
    };
    for (const auto& [path, message] : cases) {
        inProcess(path, message, [] { return !WaitForPropertyCreation("good"); });
        inProcess(path, message, [] { return get("good", "unset") == "unset"; });
    }
    for (const char* line : {"=value", "two words=value", "name"}) {
        inProcess(fileWith(line), "", [] { return !lumo::loadProperties().error.empty(); });
    }
}

}  // namespace
