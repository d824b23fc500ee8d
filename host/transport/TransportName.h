// The meaning of LUMO_TRANSPORT.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "FaultPlan.h"
#include "secureapp/protocol/Profile.h"

namespace lumo::transport {

struct TransportName {
    enum class Kind { kSim, kUnix };

    Kind kind = Kind::kSim;
    const secureapp::Profile* profile = nullptr;  // kSim
    std::string path;                             // kUnix
    bool replay = true;                           // kUnix: see ReplayLink.h
    std::vector<FaultRule> faults;                // in their order
    uint64_t seed = 1;                            // of what the faults leave to chance
};

class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// KIND[:key=value,...], see lumo/Transport.h. Throws UsageError for anything unknown.
TransportName parseTransportName(const std::string& text);

// That of the environment.
TransportName chosenTransport();

}  // namespace lumo::transport
