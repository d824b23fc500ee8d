// The file that a process appends its exchanges to.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "inspect/TraceLine.h"

namespace lumo::inspect {

// Several processes and threads may append to one file: each line is one write at its end. What an
// application is asked and answers is nobody else's business, even redacted: the file is made
// for its owner alone, and one that others can read is refused.
class TraceFile {
  public:
    // Throws TraceError where the file cannot be used: what, why and what to try.
    TraceFile(const std::string& path, bool unredacted);
    ~TraceFile();
    TraceFile(const TraceFile&) = delete;
    TraceFile& operator=(const TraceFile&) = delete;

    // Appends a line, redacted unless the file is to have everything. False where it could not be
    // written whole: the disk is full, say. The exchange is over either way.
    bool append(Exchange exchange);

    const std::string& path() const { return path_; }

  private:
    using Operation = std::pair<uint64_t, uint64_t>;  // link, handle

    std::optional<uint32_t> purposeOf(const Exchange& exchange);

    const std::string path_;
    const bool unredacted_;
    std::mutex mutex_;
    int fd_ = -1;
    bool line_is_open_ = false;  // the file ends inside a line
    std::map<Operation, uint32_t> purposes_;
};

// The variables that ask for a trace: the file, and "1" for one that is not redacted.
constexpr char kTraceVariable[] = "LUMO_TRACE";
constexpr char kUnredactedVariable[] = "LUMO_TRACE_UNREDACTED";

// The file that the environment names; null where it names none. Throws as TraceFile does.
std::unique_ptr<TraceFile> traceFileOfEnvironment();

}  // namespace lumo::inspect
