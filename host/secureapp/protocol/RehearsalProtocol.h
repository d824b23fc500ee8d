// The commands of rehearsals in front of a keymaster.
#pragma once

#include "secureapp/protocol/RecordProtocol.h"
#include "secureapp/protocol/Rehearsal.h"

namespace lumo::secureapp {

class RehearsalProtocol {
  public:
    RehearsalProtocol(Keymaster& keymaster, const RecordProtocol& records)
        : keymaster_(keymaster), records_(records) {}

    // Throws what the keymaster throws, KM_ERROR_UNIMPLEMENTED for a command that there is not, and
    // KM_ERROR_INVALID_ARGUMENT for a request of another form.
    Bytes handle(RehearsalCommand command, ByteView request);

  private:
    Bytes mintAuthToken(ByteView request);
    Bytes mintVerificationToken(ByteView request);
    Bytes keepOperation(ByteView request);
    uint64_t timeOf(uint64_t timestamp);

    Keymaster& keymaster_;
    const RecordProtocol& records_;
};

}  // namespace lumo::secureapp
