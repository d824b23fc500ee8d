#include "Scratch.h"

#include <android-base/properties.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>

namespace lumo::bench {
namespace {

struct Folder {
    Folder() {
        std::string name = std::filesystem::temp_directory_path() / "lumo-bench-XXXXXX";
        if (::mkdtemp(name.data()) == nullptr) giveUp("cannot make a folder like " + name);
        path = name;
    }
    ~Folder() {
        // A child that ends must not take the folder away.
        if (::getpid() != maker) return;
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    std::string path;
    pid_t maker = ::getpid();
};

}  // namespace

const std::string& scratchFolder() {
    static const Folder folder;
    return folder.path;
}

void setUpWorld() {
    ::setenv("LUMO_PROPERTIES", "/dev/null", 1);
    ::setenv("LUMO_STATE_DIR", (scratchFolder() + "/state").c_str(), 1);
    ::unsetenv("LUMO_TRANSPORT");
    const std::pair<const char*, const char*> properties[] = {
        {"ro.build.version.release", "11"},
        {"ro.build.version.security_patch", "2020-12-05"},
        {"ro.vendor.build.security_patch", "2020-12-05"},
    };
    for (const auto& [name, value] : properties) {
        require(android::base::SetProperty(name, value), name);
    }
}

void giveUp(const std::string& what) {
    std::fprintf(stderr, "bench: %s\n", what.c_str());
    std::exit(1);
}

}  // namespace lumo::bench
