#include "Files.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

#include "Failure.h"

namespace lumo::cli {

namespace {

constexpr char kStandard[] = "-";
constexpr size_t kMaxSmallFileBytes = size_t{1} << 20;
constexpr size_t kCopyBytes = size_t{64} << 10;

bool isStandard(const std::string& path) {
    return path == kStandard;
}

FileDescriptor openInput(const std::string& path) {
    if (!isStandard(path)) {
        FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
        if (!file.isOpen()) throw fileFailure("open", path, errno);
        return file;
    }
    static bool taken = false;
    if (std::exchange(taken, true)) {
        throw Failure(Exit::usage,
                      "only one input can be standard input; give the others as files");
    }
    return FileDescriptor(dup(STDIN_FILENO));
}

void writeAll(int fd, const uint8_t* data, size_t size, const std::string& name) {
    while (size > 0) {
        const ssize_t written = ::write(fd, data, size);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) throw fileFailure("write", name, errno);
        data += written;
        size -= static_cast<size_t>(written);
    }
}

std::string directoryOf(const std::string& path) {
    const std::string directory = std::filesystem::path(path).parent_path();
    return directory.empty() ? "." : directory;
}

Failure plantedLink(const std::string& path, const std::string& link) {
    return Failure(Exit::other, "cannot write " + path + ": " + link +
                                    " is another user's link in a folder that is open to all; give "
                                    "the file that is to be written");
}

// Links are followed, so that the file behind them is replaced and not the link, but not one that
// somebody else has put where everybody may: he would choose which file of the user's is replaced.
// The kernel refuses to write through these, too, unless its fs.protected_symlinks is off.
std::string followLinks(const std::string& path) {
    constexpr int kMaxLinks = 40;
    std::string place = path;
    for (int links = 0; links < kMaxLinks; ++links) {
        struct stat link;
        if (lstat(place.c_str(), &link) != 0 || !S_ISLNK(link.st_mode)) return place;
        struct stat folder;
        if (stat(directoryOf(place).c_str(), &folder) != 0) throw fileFailure("open", path, errno);
        const bool open_to_all = (folder.st_mode & S_ISVTX) != 0 && (folder.st_mode & S_IWOTH) != 0;
        if (open_to_all && link.st_uid != geteuid() && link.st_uid != folder.st_uid) {
            throw plantedLink(path, place);
        }
        std::error_code error;
        const auto target = std::filesystem::read_symlink(place, error);
        if (error) throw fileFailure("open", path, error.value());
        place = std::filesystem::path(directoryOf(place)) / target;
    }
    throw fileFailure("open", path, ELOOP);
}

constexpr char kTemporaryEnd[] = ".tmp";

std::string temporaryName(const std::string& path) {
    return path + "." + std::to_string(getpid()) + kTemporaryEnd;
}

bool isTemporaryOf(const std::string& path, const std::string& name) {
    const std::string begin = std::filesystem::path(path).filename().string() + ".";
    const size_t end = strlen(kTemporaryEnd);
    if (name.size() <= begin.size() + end || name.compare(0, begin.size(), begin) != 0 ||
        name.compare(name.size() - end, end, kTemporaryEnd) != 0) {
        return false;
    }
    return std::all_of(name.begin() + static_cast<ptrdiff_t>(begin.size()),
                       name.end() - static_cast<ptrdiff_t>(end),
                       [](char c) { return c >= '0' && c <= '9'; });
}

// What processes that were killed have left beside `path`: a complete key, perhaps.
void removeLeftTemporaries(const std::string& path) {
    std::error_code error;
    std::vector<std::string> left;
    for (std::filesystem::directory_iterator entry(directoryOf(path), error), end;
         !error && entry != end; entry.increment(error)) {
        if (isTemporaryOf(path, entry->path().filename().string())) {
            left.push_back(entry->path().string());
        }
    }
    for (const std::string& file : left) {
        struct stat status;
        const bool own = lstat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
                         status.st_uid == geteuid();
        if (own) unlink(file.c_str());
    }
}

// Opens the folder of `path` and locks it for as long as a temporary file of this process may be
// there. Who has the lock alone knows that what lies there is left. Best effort: without the lock,
// or in a folder that cannot be read, nothing is removed.
FileDescriptor openFolder(const std::string& path) {
    FileDescriptor folder(open(directoryOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder.isOpen()) return folder;
    if (flock(folder.get(), LOCK_EX | LOCK_NB) == 0) removeLeftTemporaries(path);
    flock(folder.get(), LOCK_SH | LOCK_NB);
    return folder;
}

// The named temporary file of this process, for the signals that end it.
char temporary_of_process[PATH_MAX] = "";

void removeTemporary(int signal) {
    if (temporary_of_process[0] != '\0') unlink(temporary_of_process);
    ::signal(signal, SIG_DFL);
    raise(signal);
}

// Has the signals that end the process remove a file first; none if `path` is empty or too long.
void unlinkWhenEnded(const std::string& path) {
    temporary_of_process[0] = '\0';
    if (path.empty() || path.size() >= sizeof(temporary_of_process)) return;
    memcpy(temporary_of_process, path.c_str(), path.size() + 1);
    for (const int ending : {SIGHUP, SIGINT, SIGTERM}) {
        if (::signal(ending, removeTemporary) == SIG_IGN) ::signal(ending, SIG_IGN);
    }
}

mode_t permissionsFor(Output::Kind kind, const struct stat* existing) {
    if (kind == Output::Kind::secret) return 0600;
    return existing == nullptr ? 0666 : existing->st_mode & 0777;
}

}  // namespace

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
}

FileDescriptor::~FileDescriptor() {
    if (fd_ >= 0) close(fd_);
}

Input::Input(const std::string& path)
    : name_(isStandard(path) ? "standard input" : path), file_(openInput(path)) {}

size_t Input::read(uint8_t* buffer, size_t size) {
    size_t filled = 0;
    while (filled < size && !at_end_) {
        const ssize_t count = ::read(file_.get(), buffer + filled, size - filled);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw fileFailure("read", name_, errno);
        at_end_ = count == 0;
        filled += static_cast<size_t>(count);
    }
    return filled;
}

std::optional<uint64_t> Input::size() const {
    struct stat status;
    if (fstat(file_.get(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
    return static_cast<uint64_t>(status.st_size);
}

Bytes readSmallFile(const std::string& path) {
    Input input(path);
    // One byte more than there should be, to meet the end. A file of unknown size or one that grows
    // gets the most that there may be.
    const uint64_t expected = std::min<uint64_t>(input.size().value_or(0), kMaxSmallFileBytes);
    Bytes bytes(static_cast<size_t>(expected) + 1);
    size_t filled = input.read(bytes.data(), bytes.size());
    if (filled == bytes.size()) {
        bytes.resize(kMaxSmallFileBytes + 1);
        filled += input.read(bytes.data() + filled, bytes.size() - filled);
    }
    bytes.resize(filled);
    if (bytes.size() > kMaxSmallFileBytes) {
        throw Failure(Exit::usage, input.name() + " is larger than 1 MiB; give the right file");
    }
    return bytes;
}

Output::Output(const std::string& path, Kind kind, Flow flow)
    : kind_(kind), name_(isStandard(path) ? "standard output" : path) {
    if (isStandard(path)) {
        openStream(path, flow);
        return;
    }
    const std::string place = followLinks(path);
    // By the name as given: the kernel knows what is behind /dev/stdout, whose link says
    // "pipe:[7]".
    struct stat status;
    const bool exists = stat(path.c_str(), &status) == 0;
    // What cannot be looked at is not missing: a device would be replaced by a file.
    if (!exists && errno != ENOENT) throw fileFailure("write", name_, errno);
    if (exists && !S_ISREG(status.st_mode)) {
        openStream(path, flow);
        return;
    }
    path_ = place;
    folder_ = openFolder(path_);
    openFile(permissionsFor(kind, exists ? &status : nullptr));
    // The umask has been applied; what the file had before goes over it.
    if (exists) fchmod(file_.get(), permissionsFor(kind, &status));
}

Output::~Output() {
    if (temporary_.empty()) return;
    unlink(temporary_.c_str());
    unlinkWhenEnded("");
}

void Output::openStream(const std::string& path, Flow flow) {
    stream_ = FileDescriptor(isStandard(path) ? dup(STDOUT_FILENO)
                                              : open(path.c_str(), O_WRONLY | O_CLOEXEC));
    if (!stream_.isOpen()) throw fileFailure("open", name_, errno);
    if (flow == Flow::direct) return;
    // In memory: what is held back may be plaintext, which does not belong on a disk.
    file_ = FileDescriptor(memfd_create("lumokm", MFD_CLOEXEC));
    if (!file_.isOpen()) throw fileFailure("hold back the output for", name_, errno);
}

// The file has no name until it is complete, where the file system can do that.
void Output::openFile(mode_t mode) {
    const std::string directory = directoryOf(path_);
    file_ = FileDescriptor(open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, mode));
    if (file_.isOpen()) return;
    const std::string name = temporaryName(path_);
    file_ = FileDescriptor(open(name.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, mode));
    if (!file_.isOpen()) throw fileFailure("write", name_, errno);
    temporary_ = name;
    unlinkWhenEnded(temporary_);
}

void Output::write(const uint8_t* data, size_t size) {
    const bool held = file_.isOpen() && path_.empty();
    writeAll(file_.isOpen() ? file_.get() : stream_.get(), data, size,
             held ? "the output to memory until it is whole; give --out FILE" : name_);
}

void Output::commit() {
    if (!path_.empty()) return publishFile();
    if (file_.isOpen()) copyToStream();
}

void Output::publishFile() {
    // A signature is made again if the system goes down now; a key is not.
    if (kind_ == Kind::secret && fsync(file_.get()) != 0) throw fileFailure("write", name_, errno);
    if (!temporary_.empty() || !link(path_)) {
        if (temporary_.empty()) {
            const std::string name = temporaryName(path_);
            unlink(name.c_str());  // left by a process of the same number
            unlinkWhenEnded(name);
            temporary_ = name;
            if (!link(name)) throw fileFailure("write", name_, EEXIST);
        }
        if (rename(temporary_.c_str(), path_.c_str()) != 0) {
            throw fileFailure("write", name_, errno);
        }
        temporary_.clear();
        unlinkWhenEnded("");
    }
    // An error here is no failure: the file is there, and who is told otherwise would have the
    // keymaster forget the key in it.
    if (kind_ == Kind::secret && folder_.isOpen()) static_cast<void>(fsync(folder_.get()));
}

// Gives the nameless file a name; false where there is a file of that name.
bool Output::link(const std::string& name) const {
    const std::string nameless = "/proc/self/fd/" + std::to_string(file_.get());
    if (linkat(AT_FDCWD, nameless.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0) {
        return true;
    }
    if (errno != EEXIST) throw fileFailure("write", name_, errno);
    return false;
}

void Output::copyToStream() {
    if (lseek(file_.get(), 0, SEEK_SET) != 0) throw fileFailure("write", name_, errno);
    Bytes buffer(kCopyBytes);
    for (;;) {
        const ssize_t count = ::read(file_.get(), buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw fileFailure("write", name_, errno);
        if (count == 0) return;
        writeAll(stream_.get(), buffer.data(), static_cast<size_t>(count), name_);
    }
}

void writeFile(const std::string& path, const Bytes& bytes, Output::Kind kind) {
    Output output(path, kind);
    output.write(bytes);
    output.commit();
}

}  // namespace lumo::cli
