// What passes between the daemon and its clients: a request frame, then the frame of its reply.
//
// A frame is a header of 32-bit little-endian words followed by the bytes that the header counts.
// Every count has a bound, checked before anything is allocated for it.
#pragma once

#include <string_view>

#include "secureapp/base/Bytes.h"
#include "secureapp/base/Reply.h"
#include "secureapp/daemon/Channel.h"

namespace lumo::secureapp {

// Above the largest CBOR request that the client's transport can hold, with room for its answer.
constexpr size_t kMaxBodyBytes = 2 << 20;
// What a client may have written at the place of a record's answer.
constexpr size_t kMaxAreaBytes = 64;
constexpr size_t kMaxCapacity = 1 << 20;
constexpr size_t kMaxReasonBytes = 4096;

enum class FrameKind : uint32_t {
    kHello = 1,      // asks for the facts
    kCbor = 2,       // `command` and `body`
    kRecord = 3,     // `body`, the answer's `area` and `capacity`
    kRehearsal = 4,  // a Rehearsal as `command`
    kOtherPart = 5,  // `command`, a RehearsalCommand, and `body`
};

// What a client may ask of a server that takes faults.
enum class Rehearsal : uint32_t {
    kRestart = 1,   // restarts the device, which ends every connection once it is used next
    kFullDisk = 2,  // this client's next request finds the disk full
};

// Nothing in a frame is copied: to send, it refers to the sender's bytes; as received, to the
// channel's, until the next frame comes.
struct RequestFrame {
    FrameKind kind = FrameKind::kHello;
    uint32_t level = 0;  // keymaster_security_level_t; as received, one that there is
    uint32_t command = 0;
    uint32_t capacity = 0;
    ByteView area;
    ByteView body;
};

struct ReplyFrame {
    keymaster_error_t error = KM_ERROR_OK;
    Cause cause = Cause::kNone;
    ByteView body;
    std::string_view reason;
};

// The body of the reply to a hello.
struct ServerFacts {
    bool legacy = false;
    uint32_t keymaster_version = 0;
    uint32_t ta_minor_version = 0;
    uint32_t hal_minor_version = 0;
    // Another number after each start of the server, since a start is a boot.
    uint64_t boot_id = 0;
};

// Both throw ChannelError where the frame does not pass whole within `patience`; for a frame to be
// read that counts from its first byte.
void writeRequest(Channel& channel, const RequestFrame& request,
                  std::chrono::milliseconds patience);
RequestFrame readRequest(Channel& channel, std::chrono::milliseconds patience);
void writeReply(Channel& channel, const Reply& reply, std::chrono::milliseconds patience);
ReplyFrame readReply(Channel& channel, std::chrono::milliseconds patience);

Bytes encodeFacts(const ServerFacts& facts);
ServerFacts decodeFacts(ByteView body);  // throws ChannelError

// Whether the request may carry a key in the clear. Its bytes are wiped once it is answered.
bool bringsKeyMaterial(const RequestFrame& request);

}  // namespace lumo::secureapp
