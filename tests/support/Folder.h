// A directory of the test's own, gone with it.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

namespace lumo::test {

class Folder {
  public:
    Folder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "lumo-XXXXXX").string();
        path_ = ::mkdtemp(pattern.data());
    }
    ~Folder() { std::filesystem::remove_all(path_); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    const std::string& path() const { return path_; }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

  private:
    std::string path_;
};

}  // namespace lumo::test
