#include "inspect/TraceFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace lumo::inspect {
namespace {

constexpr mode_t kOwnerOnly = 0600;
constexpr mode_t kOthers = 0077;
// Operations that are never finished: an application has few slots, so this is never reached in
// earnest.
constexpr size_t kMaxOperations = 1024;

[[noreturn]] void fail(const std::string& path, const std::string& why) {
    throw TraceError("cannot write the trace " + path + ": " + why);
}

}  // namespace

TraceFile::TraceFile(const std::string& path, bool unredacted)
    : path_(path), unredacted_(unredacted) {
    // Reading is for the file's last byte. Not to wait for the reader of a named pipe.
    fd_ = ::open(path.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK,
                 kOwnerOnly);
    if (fd_ < 0)
        fail(path,
             errno == ELOOP ? "it is a symbolic link; name the file itself" : std::strerror(errno));
    struct stat status = {};
    std::string why;
    if (::fstat(fd_, &status) != 0) {
        why = std::strerror(errno);
    } else if (!S_ISREG(status.st_mode)) {
        why = "it is no regular file";
    } else if (status.st_uid != ::geteuid()) {
        why = "it belongs to another user";
    } else if ((status.st_mode & kOthers) != 0) {
        why = "other users can open it; chmod 600 it, or name a new file";
    }
    if (!why.empty()) {
        ::close(fd_);
        fail(path, why);
    }
    // A process that was killed while it wrote may have left a part of a line.
    char last = '\n';
    line_is_open_ =
        status.st_size > 0 && ::pread(fd_, &last, 1, status.st_size - 1) == 1 && last != '\n';
}

TraceFile::~TraceFile() {
    ::close(fd_);
}

std::optional<uint32_t> TraceFile::purposeOf(const Exchange& exchange) {
    const CommandInfo* command = findCommand(exchange.wire, exchange.number);
    if (command == nullptr) return std::nullopt;
    const bool begins = command->id == CommandId::kBegin;
    const bool uses = command->id == CommandId::kUpdate || command->id == CommandId::kFinish ||
                      command->id == CommandId::kAbort;
    if (!begins && !uses) return std::nullopt;
    const Message request = exchange.decodedRequest();
    if (begins) {
        const Message response = exchange.decodedResponse();
        const Field* handle = response.find(Meaning::kHandle);
        if (handle == nullptr || exchange.code != KM_ERROR_OK) return std::nullopt;
        // Over CBOR the purpose is the last parameter, behind the caller's own.
        std::optional<uint32_t> purpose;
        for (const Field& field : request.fields) {
            const bool named =
                field.name == "purpose" || (request.wire == Wire::kCbor && field.name == "PURPOSE");
            if (named) purpose = static_cast<uint32_t>(field.number);
        }
        if (purposes_.size() >= kMaxOperations) purposes_.clear();
        if (purpose) purposes_[{exchange.link, handle->number}] = *purpose;
        return purpose;
    }
    const Field* handle = request.find(Meaning::kHandle);
    if (handle == nullptr) return std::nullopt;
    const auto found = purposes_.find({exchange.link, handle->number});
    if (found == purposes_.end()) return std::nullopt;
    const uint32_t purpose = found->second;
    if (command->id != CommandId::kUpdate || exchange.code != KM_ERROR_OK) purposes_.erase(found);
    return purpose;
}

bool TraceFile::append(Exchange exchange) {
    const std::lock_guard<std::mutex> lock(mutex_);
    exchange.unredacted = unredacted_;
    if (!unredacted_) redact(exchange, purposeOf(exchange));
    const std::string line = (line_is_open_ ? "\n" : "") + toLine(exchange) + "\n";
    size_t done = 0;
    while (done < line.size()) {
        const ssize_t written = ::write(fd_, line.data() + done, line.size() - done);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) break;
        done += static_cast<size_t>(written);
    }
    if (done != 0) line_is_open_ = done != line.size();
    return done == line.size();
}

std::unique_ptr<TraceFile> traceFileOfEnvironment() {
    const char* path = std::getenv(kTraceVariable);
    if (path == nullptr || *path == 0) return nullptr;
    const char* variable = std::getenv(kUnredactedVariable);
    const std::string unredacted = variable == nullptr ? "" : variable;
    if (!unredacted.empty() && unredacted != "0" && unredacted != "1") {
        fail(path, std::string(kUnredactedVariable) + "='" + unredacted +
                       "' is neither 1, which lets the trace have keys, plaintext and tokens, nor "
                       "0; unset it");
    }
    return std::make_unique<TraceFile>(path, unredacted == "1");
}

}  // namespace lumo::inspect
