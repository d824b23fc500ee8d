#include "Program.h"

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace lumo::test {

ProgramResult run(const std::string& shell_line) {
    FILE* pipe = popen((shell_line + " 2>&1").c_str(), "r");
    if (pipe == nullptr) throw std::runtime_error("cannot start " + shell_line);
    ProgramResult result;
    for (int c = 0; (c = fgetc(pipe)) != EOF;) result.output.push_back(static_cast<char>(c));
    const int status = pclose(pipe);
    if (WIFEXITED(status)) result.status = WEXITSTATUS(status);
    return result;
}

ScratchFolder::ScratchFolder()
    : folder_((std::filesystem::temp_directory_path() / "lumo-test-XXXXXX").string()) {
    if (mkdtemp(folder_.data()) == nullptr) throw std::runtime_error("cannot make " + folder_);
}

ScratchFolder::~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

std::string ScratchFolder::write(const std::string& name, secureapp::ByteView content) const {
    const std::string file = folder_ + "/" + name;
    std::ofstream out(file, std::ios::binary);
    for (const uint8_t byte : content) out.put(static_cast<char>(byte));
    return file;
}

}  // namespace lumo::test
