// A directory of the test's own, removed with everything in it.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace lumo::test {

class Folder {
  public:
    Folder() : path_((std::filesystem::temp_directory_path() / "lumo-test-XXXXXX").string()) {
        if (::mkdtemp(path_.data()) == nullptr) throw std::runtime_error("cannot make " + path_);
    }
    ~Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    const std::string& path() const { return path_; }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

    // Writes a file and returns its path.
    std::string write(const std::string& name, const std::vector<uint8_t>& content) const {
        std::ofstream(*this / name, std::ios::binary)
            << std::string(content.begin(), content.end());
        return *this / name;
    }

  private:
    std::string path_;
};

}  // namespace lumo::test
