// The most recent transport failure of the process.
#pragma once

#include "lumo/Transport.h"

namespace lumo::transport {

void noteFailure(TransportStatus::Kind kind, const std::string& message);

}  // namespace lumo::transport
