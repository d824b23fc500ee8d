#include "secureapp/device/FileState.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <thread>

namespace lumo::secureapp {
namespace {

constexpr mode_t kFolderMode = 0700;
constexpr mode_t kFileMode = 0600;
constexpr mode_t kOthersMask = 0077;
constexpr mode_t kOthersWriteMask = 0022;

constexpr auto kLockPatience = std::chrono::seconds(10);
constexpr auto kLockPause = std::chrono::milliseconds(10);
constexpr char kNewSuffix[] = ".new";

[[noreturn]] void failSystem(const std::string& what, const std::string& path, int error) {
    throw StateError("cannot " + what + " " + path + ": " + systemError(error));
}

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

// Any other user who could read or write it would know the secrets.
void requireOwn(const struct stat& status, const std::string& path, mode_t forbidden) {
    if (status.st_uid != ::geteuid()) {
        throw StateError(path +
                         " belongs to another user; give LUMO_STATE_DIR a directory of "
                         "your own");
    }
    if ((status.st_mode & forbidden) != 0) {
        throw StateError(path +
                         " is open to other users; if nobody else has used it, run: "
                         "chmod go-rwx '" +
                         path + "'");
    }
}

FileHandle openFile(const std::string& path, int flags) {
    // O_NONBLOCK: a pipe in place of a file is opened without waiting for its other end, and
    // refused later.
    constexpr int kAlways = O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    return FileHandle(::open(path.c_str(), flags | kAlways, kFileMode));
}

void requirePrivateFile(const FileHandle& file, const std::string& path) {
    struct stat status = {};
    if (::fstat(file.get(), &status) != 0) failSystem("look at", path, errno);
    if (!S_ISREG(status.st_mode) || static_cast<uint64_t>(status.st_size) > kMaxRecordBytes) {
        throw StateError(path + " is not a file that this program has written");
    }
    requireOwn(status, path, kOthersMask);
}

thread_local bool disk_is_full = false;

void writeAll(const FileHandle& file, ByteView content, const std::string& path) {
    if (disk_is_full) failSystem("write", path, ENOSPC);
    while (!content.empty()) {
        const ssize_t written = ::write(file.get(), content.data(), content.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) failSystem("write", path, errno);
        content = content.sub(static_cast<size_t>(written));
    }
}

FileHandle openFolder(const std::string& path) {
    FileHandle folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder) failSystem("open", path, errno);
    return folder;
}

enum class Sync { kFile, kNothing };

// Replaces the file atomically; on failure it is as it was, and nothing else is left.
void replaceFile(const std::string& path, ByteView content, Sync sync) {
    const std::string fresh = path + kNewSuffix;
    // A temporary file that a crash left.
    if (::unlink(fresh.c_str()) != 0 && errno != ENOENT) failSystem("replace", fresh, errno);
    const FileHandle file = openFile(fresh, O_WRONLY | O_CREAT | O_EXCL);
    if (!file) failSystem("make", fresh, errno);
    try {
        writeAll(file, content, fresh);
        if (sync == Sync::kFile && ::fsync(file.get()) != 0) failSystem("write", fresh, errno);
        if (::rename(fresh.c_str(), path.c_str()) != 0) failSystem("replace", path, errno);
    } catch (const StateError&) {
        ::unlink(fresh.c_str());
        throw;
    }
}

// Makes the last change in a folder survive a crash of the system. Where that fails, the change is
// taken back: what is reported as failed has not happened.
template <typename Undo>
void syncFolder(const FileHandle& folder, const std::string& path, Undo undo) {
    if (::fsync(folder.get()) == 0) return;
    const int error = errno;
    if (undo()) failSystem("write", path, error);
    throw StateError("cannot write " + path + ": " + systemError(error) +
                     "; the change could not be taken back and has taken effect");
}

void makeFolder(const std::string& path) {
    struct stat status = {};
    if (::stat(path.c_str(), &status) == 0) return;
    if (::mkdir(path.c_str(), kFolderMode) == 0) return;
    if (errno != EEXIST) failSystem("make", path, errno);
}

void requireOwnFolder(const std::string& path, mode_t forbidden) {
    struct stat status = {};
    if (::stat(path.c_str(), &status) != 0) failSystem("look at", path, errno);
    if (!S_ISDIR(status.st_mode)) throw StateError(path + " is not a directory");
    requireOwn(status, path, forbidden);
}

// Records are named by the secure application, not by clients; no name may lead out of the folder.
void requireName(const std::string& name) {
    const bool plain =
        !name.empty() && name[0] != '.' && std::all_of(name.begin(), name.end(), [](char c) {
            return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                   c == '-' || c == '_' || c == '.';
        });
    if (!plain) throw StateError("'" + name + "' cannot name a record");
}

}  // namespace

std::string defaultStateDirectory() {
    std::string chosen = environment("LUMO_STATE_DIR");
    if (!chosen.empty()) return chosen;
    const std::string state_home = environment("XDG_STATE_HOME");
    if (!state_home.empty()) return state_home + "/lumokeymaster4";
    const std::string home = environment("HOME");
    if (!home.empty()) return home + "/.local/state/lumokeymaster4";
    throw StateError(
        "no place for the state: none of LUMO_STATE_DIR, XDG_STATE_HOME and HOME "
        "is set");
}

void prepareStateDirectory(const std::string& path) {
    const std::filesystem::path whole = std::filesystem::absolute(path).lexically_normal();
    std::filesystem::path part;
    for (const std::filesystem::path& step : whole) {
        part /= step;
        makeFolder(part.string());
    }
    requireOwnFolder(path, kOthersWriteMask);
}

FileHandle tryLockFile(const std::string& path) {
    FileHandle file = openFile(path, O_RDWR | O_CREAT);
    if (!file) failSystem("open", path, errno);
    requirePrivateFile(file, path);
    if (::flock(file.get(), LOCK_EX | LOCK_NB) == 0) return file;
    if (errno != EWOULDBLOCK) failSystem("lock", path, errno);
    return {};
}

FileHandle lockFile(const std::string& path) {
    const auto deadline = std::chrono::steady_clock::now() + kLockPatience;
    for (;;) {
        if (FileHandle held = tryLockFile(path)) return held;
        if (std::chrono::steady_clock::now() >= deadline) {
            throw StateError(
                path + " is locked by another process; wait for it or end it, then try again");
        }
        std::this_thread::sleep_for(kLockPause);
    }
}

std::optional<Bytes> readPrivateFile(const std::string& path) {
    const FileHandle file = openFile(path, O_RDONLY);
    if (!file && errno == ENOENT) return std::nullopt;
    if (!file) failSystem("open", path, errno);
    requirePrivateFile(file, path);
    Bytes content;
    uint8_t chunk[4096];
    for (;;) {
        const ssize_t got = ::read(file.get(), chunk, sizeof(chunk));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) failSystem("read", path, errno);
        if (got == 0) return content;
        content.insert(content.end(), chunk, chunk + got);
    }
}

void writePrivateFile(const std::string& path, ByteView content) {
    replaceFile(path, content, Sync::kNothing);
}

FullDisk::FullDisk() {
    disk_is_full = true;
}

FullDisk::~FullDisk() {
    disk_is_full = false;
}

FileState::FileState(const std::string& directory, const std::string& instance)
    : folder_(directory + "/" + instance) {
    requireName(instance);
    makeFolder(folder_);
    requireOwnFolder(folder_, kOthersMask);
}

std::string FileState::path(const std::string& name) const {
    requireName(name);
    return folder_ + "/" + name;
}

std::optional<Bytes> FileState::read(const std::string& name) {
    return readPrivateFile(path(name));
}

void FileState::update(
    const std::string& name,
    const std::function<std::optional<Bytes>(const std::optional<Bytes>&)>& change) {
    const std::string file = path(name);
    const FileHandle held = lockFile(folder_ + "/" + kLockName);
    const std::optional<Bytes> before = readPrivateFile(file);
    const std::optional<Bytes> after = change(before);
    if (after == before) return;
    if (!after) return removeFile(file);
    const FileHandle folder = openFolder(folder_);
    replaceFile(file, *after, Sync::kFile);
    syncFolder(folder, folder_, [&] {
        if (!before) return ::unlink(file.c_str()) == 0;
        try {
            replaceFile(file, *before, Sync::kNothing);
            return true;
        } catch (const StateError&) {
            return false;
        }
    });
}

void FileState::remove(const std::string& name) {
    const std::string file = path(name);
    const FileHandle held = lockFile(folder_ + "/" + kLockName);
    removeFile(file);
}

void FileState::removeFile(const std::string& file) {
    const FileHandle folder = openFolder(folder_);
    // Put aside until that is sure to last: whatever the file holds, it can be put back.
    const std::string aside = file + kNewSuffix;
    if (::rename(file.c_str(), aside.c_str()) != 0) {
        if (errno == ENOENT) return;
        failSystem("remove", file, errno);
    }
    syncFolder(folder, folder_, [&] { return ::rename(aside.c_str(), file.c_str()) == 0; });
    ::unlink(aside.c_str());  // else the next writer removes it
}

// Every change creates a new file. File times are coarse and inode numbers are reused, so two files
// that follow each other within one clock tick could look the same.
std::optional<Bytes> FileState::stamp(const std::string& name) {
    constexpr std::time_t kSettledSeconds = 2;
    struct stat status = {};
    timespec now = {};
    if (::stat(path(name).c_str(), &status) != 0 || ::clock_gettime(CLOCK_REALTIME, &now) != 0 ||
        now.tv_sec - status.st_ctim.tv_sec < kSettledSeconds) {
        return std::nullopt;
    }
    Bytes stamp;
    appendLittle(stamp, static_cast<uint64_t>(status.st_ino), sizeof(uint64_t));
    appendLittle(stamp, static_cast<uint64_t>(status.st_size), sizeof(uint64_t));
    appendLittle(stamp, static_cast<uint64_t>(status.st_ctim.tv_sec), sizeof(uint64_t));
    appendLittle(stamp, static_cast<uint64_t>(status.st_ctim.tv_nsec), sizeof(uint64_t));
    return stamp;
}

}  // namespace lumo::secureapp
