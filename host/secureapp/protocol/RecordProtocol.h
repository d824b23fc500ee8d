// The fixed-layout protocol in front of a keymaster.
#pragma once

#include <map>

#include "secureapp/keymaster/Keymaster.h"
#include "secureapp/protocol/SecureApp.h"

namespace lumo::secureapp {

class RecordProtocol {
  public:
    RecordProtocol(Keymaster& keymaster, const Profile& profile)
        : keymaster_(keymaster), profile_(profile) {}

    // The answer, its status 0 included. `area` is what the client wrote beforehand at the place of
    // the answer (of which the first words matter), `capacity` the size of that place. Throws what
    // the keymaster throws, KM_ERROR_UNIMPLEMENTED for a command that this level and protocol do
    // not have, and KM_ERROR_INVALID_ARGUMENT for a request whose words do not fit together.
    Bytes handle(ByteView request, ByteView area, size_t capacity);

    // Forgets operations that ended in another way than by a request.
    void forgetEnded();

    // The answer to a request that was refused: the status, and zeros for the words behind it that
    // a client may read even then.
    static Bytes refusal(keymaster_error_t status);

  private:
    // A running signature or verification with an EC key: the client turns its signatures into
    // bare numbers and back.
    struct EcOperation {
        bool signs = false;
        size_t width = 0;  // bytes of r and of s; only for signing
    };

    // Where the client wants output of no fixed size.
    struct OutputPlace {
        size_t offset = 0;
        size_t room = 0;
    };

    Bytes importKey(ByteView request);
    Bytes exportKey(ByteView request, ByteView area, size_t capacity);
    Bytes begin(ByteView request);
    Bytes update(ByteView request, ByteView area, size_t capacity);
    Bytes finish(ByteView request, ByteView area, size_t capacity);
    Bytes abort(ByteView request);
    Bytes dateSupport(ByteView request);

    void trackEcOperation(const BeginResult& begun, uint32_t purpose, ByteView blob,
                          const ParamSet& params);
    static OutputPlace outputPlace(ByteView area, size_t capacity, size_t offset_word,
                                   size_t header_words);

    Keymaster& keymaster_;
    Profile profile_;
    std::map<uint64_t, EcOperation> ec_operations_;
};

}  // namespace lumo::secureapp
