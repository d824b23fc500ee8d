// The CBOR protocol in front of a keymaster.
#pragma once

#include "secureapp/base/Bytes.h"
#include "secureapp/keymaster/Keymaster.h"
#include "secureapp/protocol/Profile.h"

namespace lumo::secureapp {

class CborProtocol {
  public:
    CborProtocol(Keymaster& keymaster, const Profile& profile)
        : keymaster_(keymaster), legacy_(profile.legacy) {}

    // The body of the answer. Throws what the keymaster throws, KM_ERROR_UNIMPLEMENTED for a
    // command that this level and protocol do not have, and KM_ERROR_INVALID_ARGUMENT for a
    // request that differs from the command's message in any way.
    Bytes handle(uint32_t command, ByteView request);

  private:
    Keymaster& keymaster_;
    bool legacy_;
};

}  // namespace lumo::secureapp
