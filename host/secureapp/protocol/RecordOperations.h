// The commands of operations in the fixed-layout protocol.
#pragma once

#include <map>

#include "secureapp/base/Params.h"
#include "secureapp/protocol/RecordCommands.h"

namespace lumo::secureapp {

class RecordOperations {
  public:
    explicit RecordOperations(Keymaster& keymaster) : keymaster_(keymaster) {}

    Bytes begin(const RecordCall& call);
    Bytes update(const RecordCall& call);
    Bytes finish(const RecordCall& call);
    Bytes abort(const RecordCall& call);

    // Forgets operations that ended other than by a request.
    void forgetEnded();
    bool isEcOperation(uint64_t handle) const { return ec_operations_.count(handle) != 0; }

    // The answer to a request that was refused: the status, and zeros for the words behind it that
    // a client may read even then.
    static Bytes refusalReply(keymaster_error_t status);

  private:
    // A running signature or verification with an EC key: the client sends and expects
    // signatures as bare numbers.
    struct EcOperation {
        bool signs = false;
        size_t width = 0;  // bytes of r and of s; only for signing
    };

    void trackEcOperation(const BeginResult& begun, uint32_t purpose, ByteView blob,
                          const ParamSet& params);

    Keymaster& keymaster_;
    std::map<uint64_t, EcOperation> ec_operations_;
};

}  // namespace lumo::secureapp
