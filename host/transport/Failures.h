// The most recent transport failure of the process.
#pragma once

#include <string_view>

#include "lumo/Transport.h"
#include "secureapp/base/Reply.h"

namespace lumo::transport {

void noteFailure(TransportStatus::Kind kind, const std::string& message);

// Notes what the reply's sender says of a failed storage.
void noteCause(secureapp::Cause cause, std::string_view reason);

// What the exchange of a record gives: its status stands in the answer, unless there is none.
keymaster_error_t recordExchangeResult(keymaster_error_t error, secureapp::ByteView answer);

}  // namespace lumo::transport
