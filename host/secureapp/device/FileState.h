// Persistent records as files: one folder for each instance below the state directory.
//
// Folders have mode 0700 and files 0600, and belong to the user; wider permissions are refused. A
// record is replaced by writing a new file and renaming it, so that a crash at any moment leaves
// the old or the new one. A change that is reported as failed has not happened: where the system
// cannot say that it lasts, it is taken back. Writers of one folder, in this and other processes,
// take turns.
#pragma once

#include <string>

#include "secureapp/base/Environment.h"
#include "secureapp/base/Posix.h"

namespace lumo::secureapp {

// LUMO_STATE_DIR; else lumokeymaster4 in XDG_STATE_HOME; else in ~/.local/state.
std::string defaultStateDirectory();

// Creates `path` and its parents where they are missing, for the owner alone. Throws StateError
// when it is not a directory of the user's own that nobody else can write to.
void prepareStateDirectory(const std::string& path);

class FileState : public State {
  public:
    // Opens the folder `instance` in `directory`, which prepareStateDirectory() has checked.
    FileState(const std::string& directory, const std::string& instance);

    std::optional<Bytes> read(const std::string& name) override;
    // Waits at most ten seconds for other writers. `change` must not call update() of this folder.
    void update(
        const std::string& name,
        const std::function<std::optional<Bytes>(const std::optional<Bytes>&)>& change) override;
    void remove(const std::string& name) override;
    std::optional<Bytes> stamp(const std::string& name) override;

  private:
    std::string path(const std::string& name) const;
    void removeFile(const std::string& file);

    std::string folder_;
};

// Locks the file `path`, creating it when missing, until the handle closes; an empty handle when
// another holds it.
FileHandle tryLockFile(const std::string& path);
// Waits at most ten seconds for it and then throws StateError.
FileHandle lockFile(const std::string& path);

// The lock file of a folder's writers.
constexpr char kLockName[] = ".lock";

// The whole file, or nullopt when there is none. Throws StateError for a file that is not the
// user's own and private.
std::optional<Bytes> readPrivateFile(const std::string& path);
// Replaces the file atomically. A crash of the system soon after may leave it empty or missing.
void writePrivateFile(const std::string& path, ByteView content);

// A rehearsal: while it lives, no file takes a byte that its thread writes, as on a full disk.
class FullDisk {
  public:
    FullDisk();
    ~FullDisk();
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;
};

}  // namespace lumo::secureapp
