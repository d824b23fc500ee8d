// What passes between the daemon and its clients: a request frame, then the frame of its reply.
//
// A frame is a header of 32-bit little-endian words followed by the bytes that the header counts.
// Every count has a bound, checked before anything is allocated for it.
#pragma once

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
    kHello = 1,   // asks for the facts
    kCbor = 2,    // `command` and `body`
    kRecord = 3,  // `body`, the answer's `area` and `capacity`
};

struct RequestFrame {
    FrameKind kind = FrameKind::kHello;
    uint32_t level = 0;  // keymaster_security_level_t
    uint32_t command = 0;
    uint32_t capacity = 0;
    Bytes area;
    Bytes body;
};

// The body of the reply to a hello.
struct ServerFacts {
    bool legacy = false;
    uint32_t keymaster_version = 0;
    uint32_t ta_minor_version = 0;
    uint32_t hal_minor_version = 0;
};

void writeRequest(Channel& channel, const RequestFrame& request, Channel::Deadline deadline);
RequestFrame readRequest(Channel& channel, Channel::Deadline deadline);
void writeReply(Channel& channel, const Reply& reply, Channel::Deadline deadline);
Reply readReply(Channel& channel, Channel::Deadline deadline);

Bytes encodeFacts(const ServerFacts& facts);
ServerFacts decodeFacts(ByteView body);  // throws ChannelError

}  // namespace lumo::secureapp
