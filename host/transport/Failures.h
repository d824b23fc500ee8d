// What is said beside the protocol of the calling thread's latest exchange.
#pragma once

#include <string_view>

#include "lumo/Transport.h"
#include "secureapp/base/Reply.h"

namespace lumo::transport {

// The exchange got no answer and fails with `code`, which is what comes back.
keymaster_error_t noteFailure(TransportStatus::Kind kind, keymaster_error_t code,
                              std::string message);

// The exchange got an answer: the command's outcome, and what the answer's sender says of it.
void noteAnswer(keymaster_error_t code, secureapp::Cause cause, std::string_view reason);

// The exchange got an answer, whose outcome is noted already, and met a fault on command.
void noteFault(std::string what);

// Keeps what is noted as it is while other exchanges than the caller's are made.
class KeptReason {
  public:
    KeptReason() : kept_(lastExchangeReason()) {}
    ~KeptReason();
    KeptReason(const KeptReason&) = delete;
    KeptReason& operator=(const KeptReason&) = delete;

  private:
    ExchangeReason kept_;
};

// What the exchange of a record gives: its status stands in the answer, unless there is none.
keymaster_error_t recordExchangeResult(keymaster_error_t error, secureapp::ByteView answer);

}  // namespace lumo::transport
