// The fixed-layout protocol in front of a keymaster.
#pragma once

#include "secureapp/base/Bytes.h"
#include "secureapp/protocol/RecordCommands.h"
#include "secureapp/protocol/RecordOperations.h"

namespace lumo::secureapp {

class RecordProtocol {
  public:
    RecordProtocol(Keymaster& keymaster, const Profile& profile)
        : keymaster_(keymaster), profile_(profile), operations_(keymaster) {}

    // The answer, its status 0 included. Throws what the keymaster throws, KM_ERROR_UNIMPLEMENTED
    // for a command that this level and protocol do not have, and KM_ERROR_INVALID_ARGUMENT for a
    // request whose words do not fit together.
    Bytes handle(const RecordCall& call);

    // Forgets operations that ended other than by a request.
    void forgetEnded() { operations_.forgetEnded(); }
    // Whether its signature travels as bare numbers.
    bool isEcOperation(uint64_t handle) const { return operations_.isEcOperation(handle); }

  private:
    Keymaster& keymaster_;
    const Profile& profile_;
    RecordOperations operations_;
};

}  // namespace lumo::secureapp
