#include "Shell.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

namespace lumo::test {

namespace {

std::string contentOf(const std::string& path) {
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
}

}  // namespace

Shell::Shell(const std::string& transport, bool new_attestation_keys)
    : directory_(root_ / "work"), transport_(transport) {
    std::filesystem::create_directory(directory_);
    if (!new_attestation_keys) {
        expectOk(
            "umask 077; mkdir ../state; echo test_attestation_keys = yes >../state/world.conf");
    }
}

Outcome Shell::run(const std::string& command) const {
    const std::string script = "cd " + directory_ + "; export LUMO_TRANSPORT='" + transport_ +
                               "' LUMO_STATE_DIR=" + (root_ / "state") +
                               " PATH=" TOOLS_PATH ":$PATH\n" + command + "\n";
    std::ofstream(root_ / "script") << script;
    const std::string call = "cd " + root_.path() + " && sh script >out 2>err </dev/null";
    const int status = system(call.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, contentOf(root_ / "out"),
            contentOf(root_ / "err")};
}

std::string Shell::expectOk(const std::string& command) const {
    const Outcome outcome = run(command);
    EXPECT_EQ(outcome.status, 0) << command << "\n" << outcome.out << outcome.err;
    return outcome.out;
}

void Shell::write(const std::string& name, const std::string& content) const {
    std::ofstream(path(name), std::ios::binary) << content;
}

std::string Shell::read(const std::string& name) const {
    return contentOf(path(name));
}

std::string Shell::files() const {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory_)) {
        names.insert(entry.path().filename());
    }
    std::string joined;
    for (const std::string& name : names) joined += (joined.empty() ? "" : " ") + name;
    return joined;
}

}  // namespace lumo::test
