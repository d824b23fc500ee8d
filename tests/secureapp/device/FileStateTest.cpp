#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <thread>

#include "Folder.h"
#include "secureapp/device/FileState.h"

namespace lumo::secureapp {
namespace {

using test::Folder;
using ::testing::HasSubstr;

std::string failureOf(const std::function<void()>& work) {
    try {
        work();
    } catch (const StateError& error) {
        return error.what();
    }
    return "";
}

void put(State& state, const std::string& name, const std::optional<Bytes>& record) {
    state.update(name, [&](const std::optional<Bytes>&) { return record; });
}

mode_t modeOf(const std::string& path) {
    struct stat status = {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}

TEST(FileState, KeepsRecordsForTheOwnerAlone) {
    const Folder folder;
    const std::string directory = folder / "deep/state";
    const mode_t before = ::umask(0);
    prepareStateDirectory(directory);
    FileState state(directory, "default");
    put(state, "key", Bytes{1, 2, 3});
    ::umask(before);

    EXPECT_EQ(modeOf(directory), 0700U);
    EXPECT_EQ(modeOf(directory + "/default"), 0700U);
    EXPECT_EQ(modeOf(directory + "/default/key"), 0600U);
    EXPECT_EQ(FileState(directory, "default").read("key"), (Bytes{1, 2, 3}));
    EXPECT_EQ(FileState(directory, "strongbox").read("key"), std::nullopt);

    put(state, "key", std::nullopt);
    EXPECT_EQ(state.read("key"), std::nullopt);
    // A change that fails changes nothing and lets go of the lock.
    put(state, "key", Bytes{4});
    EXPECT_THROW(state.update("key",
                              [](const std::optional<Bytes>&) -> std::optional<Bytes> {
                                  throw std::runtime_error("no");
                              }),
                 std::runtime_error);
    EXPECT_EQ(state.read("key"), Bytes{4});
    put(state, "key", Bytes{5});
}

TEST(FileState, RefusesWhatOthersCouldReadOrPlant) {
    const Folder folder;
    const std::string key = folder / "default/key";
    FileState state(folder.path(), "default");
    put(state, "key", Bytes{1});

    ::chmod(key.c_str(), 0640);
    EXPECT_THAT(failureOf([&] { state.read("key"); }), HasSubstr(key + " is open to other users"));
    ::chmod(key.c_str(), 0600);
    ::chmod((folder / "default").c_str(), 0755);
    EXPECT_THAT(failureOf([&] { FileState(folder.path(), "default"); }),
                HasSubstr("open to other users"));
    ::chmod((folder / "default").c_str(), 0700);
    ::chmod(folder.path().c_str(), 0777);
    EXPECT_THAT(failureOf([&] { prepareStateDirectory(folder.path()); }), HasSubstr("chmod"));
    ::chmod(folder.path().c_str(), 0700);

    std::ofstream(folder / "elsewhere") << "secret";
    ::unlink(key.c_str());
    ASSERT_EQ(::symlink((folder / "elsewhere").c_str(), key.c_str()), 0);
    EXPECT_THAT(failureOf([&] { state.read("key"); }), HasSubstr("cannot open"));
    EXPECT_THAT(failureOf([&] { state.read("../elsewhere"); }), HasSubstr("cannot name a record"));
    EXPECT_THAT(failureOf([&] { prepareStateDirectory(folder / "elsewhere"); }),
                HasSubstr("not a directory"));
}

TEST(FileState, WritersTakeTurns) {
    const Folder folder;
    const auto count_up = [&] {
        FileState state(folder.path(), "shared");
        for (int i = 0; i < 20; ++i) {
            state.update("count", [](const std::optional<Bytes>& before) {
                return std::optional<Bytes>(Bytes(before ? before->size() + 1 : 1, 'x'));
            });
        }
    };
    // Forked first: a child would inherit the lock that a thread holds, and keep it.
    const pid_t child = ::fork();
    if (child == 0) {
        count_up();
        ::_exit(0);
    }
    std::thread other(count_up);
    count_up();
    other.join();
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(FileState(folder.path(), "shared").read("count")->size(), 60U);
}

TEST(FileState, ChoosesTheDirectoryByTheEnvironment) {
    const std::pair<std::vector<const char*>, const char*> cases[] = {
        {{"/a", "/b", "/c"}, "/a"},
        {{"", "/b", "/c"}, "/b/lumokeymaster4"},
        {{"", "", "/c"}, "/c/.local/state/lumokeymaster4"},
    };
    for (const auto& [values, expected] : cases) {
        ::setenv("LUMO_STATE_DIR", values[0], 1);
        ::setenv("XDG_STATE_HOME", values[1], 1);
        ::setenv("HOME", values[2], 1);
        EXPECT_EQ(defaultStateDirectory(), expected);
    }
    ::setenv("HOME", "", 1);
    EXPECT_THAT(failureOf([] { defaultStateDirectory(); }), HasSubstr("LUMO_STATE_DIR"));
}

}  // namespace
}  // namespace lumo::secureapp
