#include "SocketLink.h"

#include <algorithm>

#include "Failures.h"

namespace lumo::transport {
namespace {

using namespace secureapp;

// Making a large RSA key may take long, and other clients come first.
constexpr std::chrono::minutes kReplyPatience{2};

constexpr keymaster_error_t kNotReached = KM_ERROR_SECURE_HW_COMMUNICATION_FAILED;

// The connection is good, but not for the call that was to be made.
class CallRefused : public ChannelError {
  public:
    using ChannelError::ChannelError;
};

}  // namespace

// Carries out what may break the connection; when it does, the next call makes a new one.
template <typename Work>
keymaster_error_t SocketLink::guarded(Work work) {
    try {
        return work();
    } catch (const CallRefused& error) {
        return noteFailure(TransportStatus::transport, kNotReached, path_ + ": " + error.what());
    } catch (const ChannelForbidden& error) {
        return noteFailure(TransportStatus::transport, kNotReached, error.what());
    } catch (const ChannelError& error) {
        channel_.reset();
        return noteFailure(TransportStatus::transport, kNotReached,
                           std::string(error.what()) +
                               "; is the daemon running? (lumo-secureapp --listen unix:" + path_ +
                               ")");
    }
}

RequestFrame SocketLink::frame(FrameKind kind) const {
    RequestFrame request;
    request.kind = kind;
    request.level = level_;
    return request;
}

void SocketLink::connect() {
    if (channel_) return;
    Channel channel = Channel::connect(path_, kReplyPatience);
    try {
        writeRequest(channel, frame(FrameKind::kHello), kReplyPatience);
    } catch (const ChannelClosed&) {
        // A daemon that takes no more clients says so without waiting for the hello.
    }
    const ReplyFrame reply = readReply(channel, kReplyPatience);
    if (reply.error != KM_ERROR_OK) throw CallRefused(std::string(reply.reason));
    facts_ = decodeFacts(reply.body);
    channel_ = std::move(channel);
}

void SocketLink::send(const RequestFrame& request) {
    connect();
    try {
        writeRequest(*channel_, request, kReplyPatience);
    } catch (const ChannelClosed&) {
        const uint64_t boot_id = facts_.boot_id;
        channel_.reset();
        connect();
        if (facts_.boot_id != boot_id && after_restart_ == AfterRestart::kFail) {
            throw CallRefused(
                "the secure application has restarted; what it held for this client "
                "is gone");
        }
        writeRequest(*channel_, request, kReplyPatience);
    }
}

ReplyFrame SocketLink::call(const RequestFrame& request) {
    send(request);
    const ReplyFrame reply = readReply(*channel_, kReplyPatience);
    noteAnswer(reply.error, reply.cause, reply.reason);
    return reply;
}

keymaster_error_t SocketLink::open() {
    return guarded([&] {
        connect();
        return KM_ERROR_OK;
    });
}

ServerFacts SocketLink::facts() {
    static_cast<void>(open());
    return facts_;
}

keymaster_error_t SocketLink::restart() {
    const keymaster_error_t error = ask(Rehearsal::kRestart);
    channel_.reset();  // it belongs to the former boot
    return error;
}

keymaster_error_t SocketLink::ask(Rehearsal rehearsal) {
    return guarded([&] {
        RequestFrame sent = frame(FrameKind::kRehearsal);
        sent.command = static_cast<uint32_t>(rehearsal);
        return call(sent).error;
    });
}

keymaster_error_t SocketLink::exchangeCbor(uint32_t command, ByteView request, ByteView& response) {
    return guarded([&] {
        RequestFrame sent = frame(FrameKind::kCbor);
        sent.command = command;
        sent.body = request;
        const ReplyFrame reply = call(sent);
        response = reply.body;
        return reply.error;
    });
}

keymaster_error_t SocketLink::exchangeRecord(ByteView request, uint8_t* response, size_t capacity) {
    return guarded([&] {
        RequestFrame sent = frame(FrameKind::kRecord);
        sent.capacity = static_cast<uint32_t>(capacity);
        sent.area = ByteView(response, std::min(capacity, kMaxAreaBytes));
        sent.body = request;
        const ReplyFrame reply = call(sent);
        if (reply.body.size() > capacity) throw ChannelError("the answer is too large");
        std::copy(reply.body.begin(), reply.body.end(), response);
        return recordExchangeResult(reply.error, reply.body);
    });
}

keymaster_error_t SocketLink::rehearse(RehearsalCommand command, ByteView request, Bytes& answer) {
    return guarded([&] {
        RequestFrame sent = frame(FrameKind::kOtherPart);
        sent.command = static_cast<uint32_t>(command);
        sent.body = request;
        const ReplyFrame reply = call(sent);
        answer = reply.body.copy();
        return reply.error;
    });
}

}  // namespace lumo::transport
