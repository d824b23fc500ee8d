#include "secureapp/daemon/Frame.h"

#include "secureapp/protocol/RecordReader.h"

namespace lumo::secureapp {
namespace {

constexpr uint32_t kRequestMagic = 0x514D554C;  // "LUMQ"
constexpr uint32_t kReplyMagic = 0x524D554C;    // "LUMR"
constexpr uint32_t kProtocolVersion = 2;

// Headers, word by word.
enum RequestWord : size_t {
    kRequestMagicWord,
    kKind,
    kLevel,
    kCommand,
    kCapacity,
    kAreaLength,
    kRequestBodyLength,
    kRequestWords,
};
enum ReplyWord : size_t {
    kReplyMagicWord,
    kError,
    kCause,
    kReplyBodyLength,
    kReasonLength,
    kReplyWords,
};
enum FactWord : size_t {
    kVersion,
    kLegacy,
    kKeymasterVersion,
    kTaMinorVersion,
    kHalMinorVersion,
    kFactWords,
};

Bytes readBytes(Channel& channel, size_t size, Channel::Deadline deadline) {
    Bytes bytes(size);
    channel.read(bytes.data(), size, deadline);
    return bytes;
}

size_t bounded(uint32_t size, size_t limit) {
    if (size > limit) throw ChannelError("a frame is too large");
    return size;
}

}  // namespace

void writeRequest(Channel& channel, const RequestFrame& request, Channel::Deadline deadline) {
    RecordWriter header(kRequestWords);
    header.word(kRequestMagicWord, kRequestMagic);
    header.word(kKind, static_cast<uint32_t>(request.kind));
    header.word(kLevel, request.level);
    header.word(kCommand, request.command);
    header.word(kCapacity, request.capacity);
    header.word(kAreaLength, static_cast<uint32_t>(request.area.size()));
    header.word(kRequestBodyLength, static_cast<uint32_t>(request.body.size()));
    Bytes frame = header.finish();
    append(frame, request.area);
    append(frame, request.body);
    channel.write(frame, deadline);
}

RequestFrame readRequest(Channel& channel, Channel::Deadline deadline) {
    const Bytes bytes = readBytes(channel, kRequestWords * kWordBytes, deadline);
    const RecordReader header(bytes, kRequestWords);
    if (header.word(kRequestMagicWord) != kRequestMagic) {
        throw ChannelError("what came is no request");
    }
    RequestFrame request;
    request.kind = static_cast<FrameKind>(header.word(kKind));
    request.level = header.word(kLevel);
    request.command = header.word(kCommand);
    request.capacity = static_cast<uint32_t>(bounded(header.word(kCapacity), kMaxCapacity));
    const size_t area = bounded(header.word(kAreaLength), kMaxAreaBytes);
    const size_t body = bounded(header.word(kRequestBodyLength), kMaxBodyBytes);
    request.area = readBytes(channel, area, deadline);
    request.body = readBytes(channel, body, deadline);
    return request;
}

void writeReply(Channel& channel, const Reply& reply, Channel::Deadline deadline) {
    const std::string reason = reply.reason.substr(0, kMaxReasonBytes);
    RecordWriter header(kReplyWords);
    header.word(kReplyMagicWord, kReplyMagic);
    header.word(kError, static_cast<uint32_t>(reply.error));
    header.word(kCause, static_cast<uint32_t>(reply.cause));
    header.word(kReplyBodyLength, static_cast<uint32_t>(reply.body.size()));
    header.word(kReasonLength, static_cast<uint32_t>(reason.size()));
    Bytes frame = header.finish();
    append(frame, reply.body);
    append(frame, reason);
    channel.write(frame, deadline);
}

Reply readReply(Channel& channel, Channel::Deadline deadline) {
    const Bytes bytes = readBytes(channel, kReplyWords * kWordBytes, deadline);
    const RecordReader header(bytes, kReplyWords);
    if (header.word(kReplyMagicWord) != kReplyMagic) throw ChannelError("what came is no reply");
    Reply reply;
    const auto error = static_cast<int32_t>(header.word(kError));
    const uint32_t cause = header.word(kCause);
    // Beyond its published codes the secure application has no answers.
    if (error > KM_ERROR_OK || error < KM_ERROR_UNKNOWN_ERROR ||
        cause > static_cast<uint32_t>(Cause::kStorage)) {
        throw ChannelError("what came is no reply");
    }
    const size_t body = bounded(header.word(kReplyBodyLength), kMaxBodyBytes);
    const size_t reason = bounded(header.word(kReasonLength), kMaxReasonBytes);
    reply.error = static_cast<keymaster_error_t>(error);
    reply.cause = static_cast<Cause>(cause);
    reply.body = readBytes(channel, body, deadline);
    const Bytes text = readBytes(channel, reason, deadline);
    reply.reason.assign(text.begin(), text.end());
    return reply;
}

Bytes encodeFacts(const ServerFacts& facts) {
    RecordWriter body(kFactWords);
    body.word(kVersion, kProtocolVersion);
    body.word(kLegacy, facts.legacy ? 1 : 0);
    body.word(kKeymasterVersion, facts.keymaster_version);
    body.word(kTaMinorVersion, facts.ta_minor_version);
    body.word(kHalMinorVersion, facts.hal_minor_version);
    return body.finish();
}

ServerFacts decodeFacts(ByteView body) {
    if (body.size() != kFactWords * kWordBytes) throw ChannelError("what came is no reply");
    const RecordReader words(body, kFactWords);
    if (words.word(kVersion) != kProtocolVersion) {
        throw ChannelError("the secure application is of another version");
    }
    return {words.word(kLegacy) != 0, words.word(kKeymasterVersion), words.word(kTaMinorVersion),
            words.word(kHalMinorVersion)};
}

}  // namespace lumo::secureapp
