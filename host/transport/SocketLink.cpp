#include "SocketLink.h"

#include <algorithm>

#include "Failures.h"

namespace lumo::transport {
namespace {

using namespace secureapp;

// Making a large RSA key may take long, and other clients come first.
constexpr std::chrono::minutes kReplyPatience{2};

}  // namespace

// Carries out what may break the connection; when it does, the next call makes a new one.
template <typename Work>
keymaster_error_t SocketLink::guarded(Work work) {
    try {
        return work();
    } catch (const ChannelError& error) {
        channel_.reset();
        noteFailure(TransportStatus::transport,
                    std::string(error.what()) +
                        "; is the daemon running? (lumo-secureapp --listen unix:" + path_ + ")");
        return KM_ERROR_SECURE_HW_COMMUNICATION_FAILED;
    }
}

RequestFrame SocketLink::frame(FrameKind kind) const {
    RequestFrame request;
    request.kind = kind;
    request.level = level_;
    return request;
}

Reply SocketLink::call(const RequestFrame& request) {
    writeRequest(*channel_, request, after(kReplyPatience));
    Reply reply = readReply(*channel_, after(kReplyPatience));
    noteCause(reply);
    return reply;
}

// A daemon that went away since the last call is noticed before anything is sent.
void SocketLink::connect() {
    if (channel_ && channel_->quiet()) return;
    channel_.emplace(Channel::connect(path_));
    facts_ = decodeFacts(call(frame(FrameKind::kHello)).body);
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

keymaster_error_t SocketLink::exchangeCbor(uint32_t command, ByteView request, Bytes& response) {
    return guarded([&] {
        connect();
        RequestFrame sent = frame(FrameKind::kCbor);
        sent.command = command;
        sent.body = request.copy();
        Reply reply = call(sent);
        response = std::move(reply.body);
        return reply.error;
    });
}

keymaster_error_t SocketLink::exchangeRecord(ByteView request, uint8_t* response, size_t capacity) {
    return guarded([&] {
        connect();
        RequestFrame sent = frame(FrameKind::kRecord);
        sent.capacity = static_cast<uint32_t>(capacity);
        sent.area = ByteView(response, std::min(capacity, kMaxAreaBytes)).copy();
        sent.body = request.copy();
        const Reply reply = call(sent);
        if (reply.body.size() > capacity) throw ChannelError("the answer is too large");
        std::copy(reply.body.begin(), reply.body.end(), response);
        return recordExchangeResult(reply);
    });
}

}  // namespace lumo::transport
