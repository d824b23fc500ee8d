// Input and output files. The path "-" is standard input or output.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

#include "Bytes.h"

namespace lumo::cli {

// A file descriptor that is closed with its owner.
class FileDescriptor {
  public:
    explicit FileDescriptor(int fd = -1) : fd_(fd) {}
    FileDescriptor(FileDescriptor&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
    FileDescriptor& operator=(FileDescriptor&& other) noexcept;
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor();

    int get() const { return fd_; }
    bool isOpen() const { return fd_ >= 0; }

  private:
    int fd_;
};

// Reads a file from its start to its end. Every call throws Failure where the file cannot be read.
class Input {
  public:
    // Standard input can be opened once in a process.
    explicit Input(const std::string& path);

    const std::string& name() const { return name_; }

    // Fills `buffer` up to `size` bytes; fewer only at the end.
    size_t read(uint8_t* buffer, size_t size);

    // Bytes in the file; nullopt where that is not known beforehand.
    std::optional<uint64_t> size() const;

  private:
    std::string name_;
    FileDescriptor file_;
    bool at_end_ = false;  // a terminal would wait for a second end of input
};

// The whole of a small file: a key, a signature, a token. Throws Failure where it is larger than
// any of these can be.
Bytes readSmallFile(const std::string& path);

// Writes a file so that it appears whole or not at all. Without commit() nothing of it remains. A
// kill may leave a temporary file FILE.PID.tmp, which the next writer of FILE removes. What goes to
// standard output, a pipe or a device is written at once, unless it is to be held back. Every call
// throws Failure where the file cannot be written.
class Output {
  public:
    enum class Kind {
        data,    // the user's usual permissions
        secret,  // readable by the owner alone, and on the disk when commit() returns
    };
    enum class Flow {
        direct,  // what cannot be replaced whole is written as it comes
        held,    // nothing is seen before commit()
    };

    explicit Output(const std::string& path, Kind kind = Kind::data, Flow flow = Flow::direct);
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    void write(const uint8_t* data, size_t size);
    void write(const Bytes& bytes) { write(bytes.data(), bytes.size()); }
    void commit();

  private:
    void openStream(const std::string& path, Flow flow);
    void openFile(mode_t mode);
    void publishFile();
    bool link(const std::string& name) const;
    void copyToStream();

    const Kind kind_;
    std::string path_;       // of the regular file that commit() makes; empty for a stream
    std::string name_;       // for messages
    std::string temporary_;  // a named file to be removed; empty where it has no name
    FileDescriptor folder_;  // of path_, locked
    FileDescriptor stream_;  // the output of a stream
    FileDescriptor file_;    // the file written to, unless that is the stream itself
};

// Writes one whole text or record.
void writeFile(const std::string& path, const Bytes& bytes, Output::Kind kind = Output::Kind::data);

}  // namespace lumo::cli
