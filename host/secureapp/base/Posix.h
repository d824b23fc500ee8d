// Owners and wording for the operating system's calls.
#pragma once

#include <string>

namespace lumo::secureapp {

// A file descriptor, closed with its owner; -1 is none.
class FileHandle {
  public:
    FileHandle() = default;
    explicit FileHandle(int fd) : fd_(fd) {}
    ~FileHandle() { reset(); }
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;
    FileHandle(FileHandle&& other) noexcept : fd_(other.release()) {}
    FileHandle& operator=(FileHandle&& other) noexcept {
        reset(other.release());
        return *this;
    }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    int release();
    void reset(int fd = -1);

  private:
    int fd_ = -1;
};

// The text of `errno`.
std::string systemError(int error);

}  // namespace lumo::secureapp
