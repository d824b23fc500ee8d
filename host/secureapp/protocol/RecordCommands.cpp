#include "secureapp/protocol/RecordCommands.h"

#include "secureapp/base/Refusal.h"

namespace lumo::secureapp {
namespace {

enum StatusReply : size_t { kStatus, kStatusWords };
enum BlobReply : size_t { kReplyBlob = 2, kBlobReplyWords = 4 };

}  // namespace

Bytes statusReply() {
    return RecordWriter(kStatusWords).finish();
}

Bytes blobReply(ByteView blob) {
    RecordWriter reply(kBlobReplyWords);
    reply.append(kReplyBlob, blob);
    return reply.finish();
}

ParamSet bindingOf(ByteView client_id, ByteView app_data) {
    ParamSet binding;
    if (!client_id.empty()) binding.add(bytesParam(KM_TAG_APPLICATION_ID, client_id));
    if (!app_data.empty()) binding.add(bytesParam(KM_TAG_APPLICATION_DATA, app_data));
    return binding;
}

OutputPlace readOutputPlace(const RecordCall& call, size_t offset_word, size_t header_words) {
    const size_t header_bytes = header_words * kWordBytes;
    if (call.capacity < header_bytes) {
        refuse(KM_ERROR_INSUFFICIENT_BUFFER_SPACE, "the answer's header of ", header_bytes,
               " bytes does not fit into ", call.capacity);
    }
    const RecordReader offsets(call.area, header_words);
    const uint32_t offset = offsets.word(offset_word);
    const uint32_t room = offsets.word(offset_word + 1);
    if (offset < header_bytes || offset > call.capacity) {
        refuse(KM_ERROR_INVALID_ARGUMENT, "the output is wanted at offset ", offset,
               ", which is not within bytes ", header_bytes, " to ", call.capacity);
    }
    if (room > call.capacity - offset) {
        refuse(KM_ERROR_INVALID_ARGUMENT, "the room of ", room, " bytes for output at offset ",
               offset, " ends behind the answer's ", call.capacity);
    }
    return {offset, room};
}

Bytes replyWithOutput(RecordWriter header, const OutputPlace& place, ByteView output,
                      size_t offset_word) {
    if (output.size() > place.room) {
        refuse(KM_ERROR_INSUFFICIENT_BUFFER_SPACE, "the output of ", output.size(),
               " bytes does not fit into the room of ", place.room);
    }
    header.word(offset_word, static_cast<uint32_t>(place.offset));
    header.word(offset_word + 1, static_cast<uint32_t>(output.size()));
    Bytes reply = header.finish();
    reply.resize(place.offset, 0);
    append(reply, output);
    return reply;
}

}  // namespace lumo::secureapp
