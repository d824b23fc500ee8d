#include "Program.h"

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>

namespace lumo::test {
namespace {

// In single quotes, so that a shell takes nothing in it for its own.
std::string quoted(const std::string& argument) {
    std::string result = "'";
    for (const char c : argument) result += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return result + "'";
}

}  // namespace

ProgramResult run(const std::vector<std::string>& arguments) {
    std::string line;
    for (const std::string& argument : arguments) line += quoted(argument) + " ";
    FILE* pipe = popen((line + "2>&1").c_str(), "r");
    if (pipe == nullptr) throw std::runtime_error("cannot start " + arguments.front());
    ProgramResult result;
    char part[4096];
    size_t size = 0;
    while ((size = fread(part, 1, sizeof(part), pipe)) > 0) result.output.append(part, size);
    const int status = pclose(pipe);
    if (WIFEXITED(status)) result.status = WEXITSTATUS(status);
    return result;
}

ScratchFolder::ScratchFolder() {
    std::string folder = (std::filesystem::temp_directory_path() / "lumo-test-XXXXXX").string();
    if (mkdtemp(folder.data()) == nullptr) throw std::runtime_error("cannot make " + folder);
    folder_ = folder;
}

ScratchFolder::~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

std::string ScratchFolder::write(const std::string& name, secureapp::ByteView content) const {
    const std::string file = path(name);
    std::ofstream out(file, std::ios::binary);
    for (const uint8_t byte : content) out.put(static_cast<char>(byte));
    return file;
}

}  // namespace lumo::test
