#include "secureapp/daemon/Frame.h"

#include <algorithm>
#include <array>

#include "secureapp/protocol/Commands.h"
#include "secureapp/protocol/RecordReader.h"

namespace lumo::secureapp {
namespace {

constexpr uint32_t kRequestMagic = 0x514D554C;  // "LUMQ"
constexpr uint32_t kReplyMagic = 0x524D554C;    // "LUMR"
constexpr uint32_t kProtocolVersion = 4;

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
    kBootId,  // two words
    kFactWords = kBootId + 2,
};

// A frame's header on the stack.
template <size_t kWords>
struct Header {
    void word(size_t index, uint32_t value) {
        storeLittle(bytes.data() + index * kWordBytes, value, kWordBytes);
    }
    ByteView view() const { return {bytes.data(), bytes.size()}; }

    std::array<uint8_t, kWords* kWordBytes> bytes = {};
};

size_t bounded(uint32_t size, size_t limit) {
    if (size > limit) throw ChannelError("a frame is too large");
    return size;
}

}  // namespace

void writeRequest(Channel& channel, const RequestFrame& request,
                  std::chrono::milliseconds patience) {
    Header<kRequestWords> header;
    header.word(kRequestMagicWord, kRequestMagic);
    header.word(kKind, static_cast<uint32_t>(request.kind));
    header.word(kLevel, request.level);
    header.word(kCommand, request.command);
    header.word(kCapacity, request.capacity);
    header.word(kAreaLength, static_cast<uint32_t>(request.area.size()));
    header.word(kRequestBodyLength, static_cast<uint32_t>(request.body.size()));
    channel.send({header.view(), request.area, request.body}, after(patience));
}

RequestFrame readRequest(Channel& channel, std::chrono::milliseconds patience) {
    constexpr size_t kHeaderBytes = kRequestWords * kWordBytes;
    channel.awaitMessage();
    const Channel::Deadline deadline = after(patience);
    const RecordReader header(channel.receive(kHeaderBytes, deadline), kRequestWords);
    if (header.word(kRequestMagicWord) != kRequestMagic) {
        throw ChannelError("what came is no request");
    }
    RequestFrame request;
    request.kind = static_cast<FrameKind>(header.word(kKind));
    request.level = header.word(kLevel);
    if (request.level > KM_SECURITY_LEVEL_STRONGBOX) {
        throw ChannelError("there is no such security level");
    }
    request.command = header.word(kCommand);
    request.capacity = static_cast<uint32_t>(bounded(header.word(kCapacity), kMaxCapacity));
    const size_t area = bounded(header.word(kAreaLength), kMaxAreaBytes);
    const size_t body = bounded(header.word(kRequestBodyLength), kMaxBodyBytes);
    const ByteView frame = channel.receive(kHeaderBytes + area + body, deadline);
    request.area = frame.sub(kHeaderBytes, area);
    request.body = frame.sub(kHeaderBytes + area);
    return request;
}

void writeReply(Channel& channel, const Reply& reply, std::chrono::milliseconds patience) {
    const size_t reason = std::min(reply.reason.size(), kMaxReasonBytes);
    Header<kReplyWords> header;
    header.word(kReplyMagicWord, kReplyMagic);
    header.word(kError, static_cast<uint32_t>(reply.error));
    header.word(kCause, static_cast<uint32_t>(reply.cause));
    header.word(kReplyBodyLength, static_cast<uint32_t>(reply.body.size()));
    header.word(kReasonLength, static_cast<uint32_t>(reason));
    const ByteView text(reinterpret_cast<const uint8_t*>(reply.reason.data()), reason);
    channel.send({header.view(), reply.body, text}, after(patience));
}

ReplyFrame readReply(Channel& channel, std::chrono::milliseconds patience) {
    constexpr size_t kHeaderBytes = kReplyWords * kWordBytes;
    const Channel::Deadline deadline = after(patience);
    channel.awaitMessage();
    const RecordReader header(channel.receive(kHeaderBytes, deadline), kReplyWords);
    if (header.word(kReplyMagicWord) != kReplyMagic) throw ChannelError("what came is no reply");
    const auto error = static_cast<int32_t>(header.word(kError));
    const uint32_t cause = header.word(kCause);
    // The secure application answers with published codes only.
    if (error > KM_ERROR_OK || error < KM_ERROR_UNKNOWN_ERROR ||
        cause > static_cast<uint32_t>(Cause::kStorage)) {
        throw ChannelError("what came is no reply");
    }
    const size_t body = bounded(header.word(kReplyBodyLength), kMaxBodyBytes);
    const size_t reason = bounded(header.word(kReasonLength), kMaxReasonBytes);
    const ByteView frame = channel.receive(kHeaderBytes + body + reason, deadline);
    const ByteView text = frame.sub(kHeaderBytes + body);
    ReplyFrame reply;
    reply.error = static_cast<keymaster_error_t>(error);
    reply.cause = static_cast<Cause>(cause);
    reply.body = frame.sub(kHeaderBytes, body);
    reply.reason = {reinterpret_cast<const char*>(text.data()), text.size()};
    return reply;
}

Bytes encodeFacts(const ServerFacts& facts) {
    RecordWriter body(kFactWords);
    body.word(kVersion, kProtocolVersion);
    body.word(kLegacy, facts.legacy ? 1 : 0);
    body.word(kKeymasterVersion, facts.keymaster_version);
    body.word(kTaMinorVersion, facts.ta_minor_version);
    body.word(kHalMinorVersion, facts.hal_minor_version);
    body.longWord(kBootId, facts.boot_id);
    return body.finish();
}

ServerFacts decodeFacts(ByteView body) {
    if (body.size() != kFactWords * kWordBytes) throw ChannelError("what came is no reply");
    const RecordReader words(body, kFactWords);
    if (words.word(kVersion) != kProtocolVersion) {
        throw ChannelError("the secure application is of another version");
    }
    return {words.word(kLegacy) != 0, words.word(kKeymasterVersion), words.word(kTaMinorVersion),
            words.word(kHalMinorVersion), words.longWord(kBootId)};
}

bool bringsKeyMaterial(const RequestFrame& request) {
    if (request.kind != FrameKind::kCbor && request.kind != FrameKind::kRecord) return false;
    const auto level = static_cast<keymaster_security_level_t>(request.level);
    std::optional<Command> command;
    if (request.kind == FrameKind::kCbor) {
        command = findCborCommand(request.command, level, false);
    } else if (request.body.size() >= kWordBytes) {
        command = findRecordCommand(loadWord(request.body, 0), level, true);
    }
    return command == Command::kImportKey || command == Command::kImportWrappedKey;
}

}  // namespace lumo::secureapp
