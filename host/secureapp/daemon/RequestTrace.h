// What the daemon adds to a trace: a line for each request of its clients.
#pragma once

#include <chrono>
#include <memory>

#include "inspect/TraceFile.h"
#include "secureapp/daemon/Frame.h"
#include "secureapp/daemon/Log.h"
#include "secureapp/protocol/Profile.h"

namespace lumo::secureapp {

class RequestTrace {
  public:
    // Without a file nothing is written. All three outlive the trace.
    RequestTrace(std::unique_ptr<inspect::TraceFile> file, const Profile& profile, const Log& log)
        : file_(std::move(file)), profile_(profile), log_(log) {}

    // A request that came in at `start` and has this reply. From any thread.
    void note(const RequestFrame& request, uint64_t client, uint64_t boot_id, const Reply& reply,
              std::chrono::steady_clock::time_point start) const;

  private:
    const std::unique_ptr<inspect::TraceFile> file_;
    const Profile& profile_;
    const Log& log_;
};

}  // namespace lumo::secureapp
