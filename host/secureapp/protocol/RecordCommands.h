// The commands of the fixed-layout protocol, each the table of its record and the function that
// reads the request and writes the answer. For the Record*.cpp files only.
//
// Each record is a table of word indices. A set of parameters takes two words (offset, count), an
// item two (offset, length), a 64-bit number two (low, high); each is named by its first word. The
// first word of a request is the command, of an answer the status.
#pragma once

#include "secureapp/base/Params.h"
#include "secureapp/keymaster/Keymaster.h"
#include "secureapp/protocol/Profile.h"
#include "secureapp/protocol/RecordReader.h"

namespace lumo::secureapp {

struct RecordCall {
    ByteView request;
    // What the client wrote beforehand at the place of the answer, of which the first words matter,
    // and the size of that place.
    ByteView area;
    size_t capacity = 0;
};

// An answer with only the status of success.
Bytes statusReply();
// The answer of several commands: the new or unchanged key blob.
Bytes blobReply(ByteView blob);
// The binding parameters of a key, as the keymaster expects them.
ParamSet bindingOf(ByteView client_id, ByteView app_data);

// Where the client wants output of no fixed size: the pair (offset, room) at word `offset_word` of
// the area, behind the answer's `header_words`.
struct OutputPlace {
    size_t offset = 0;
    size_t room = 0;
};
OutputPlace readOutputPlace(const RecordCall& call, size_t offset_word, size_t header_words);
// `header` with `output` at that place. KM_ERROR_INSUFFICIENT_BUFFER_SPACE where it does not fit.
Bytes replyWithOutput(RecordWriter header, const OutputPlace& place, ByteView output,
                      size_t offset_word);

namespace records {

// RecordKeys.cpp
Bytes generateKey(Keymaster& keymaster, const RecordCall& call);
Bytes getCharacteristics(Keymaster& keymaster, const RecordCall& call);
Bytes importKey(Keymaster& keymaster, const Profile& profile, const RecordCall& call);
Bytes importWrappedKey(Keymaster& keymaster, const RecordCall& call);
Bytes exportKey(Keymaster& keymaster, const Profile& profile, const RecordCall& call);
Bytes attestKey(Keymaster& keymaster, const RecordCall& call);
Bytes upgradeKey(Keymaster& keymaster, const RecordCall& call);
Bytes deleteKey(Keymaster& keymaster, const RecordCall& call);
Bytes deleteAllKeys(Keymaster& keymaster, const RecordCall& call);

// RecordDevice.cpp
Bytes configure(Keymaster& keymaster, const RecordCall& call);
Bytes destroyDeviceIds(Keymaster& keymaster, const RecordCall& call);
Bytes getSharingParameters(Keymaster& keymaster, const RecordCall& call);
Bytes computeSharedHmac(Keymaster& keymaster, const RecordCall& call);
Bytes verifyAuthorization(Keymaster& keymaster, const RecordCall& call);
Bytes setRootOfTrust(Keymaster& keymaster, const RecordCall& call);
Bytes setBootState(Keymaster& keymaster, const RecordCall& call);
Bytes dateSupport(const Profile& profile, const RecordCall& call);

}  // namespace records

}  // namespace lumo::secureapp
