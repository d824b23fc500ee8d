// One request and response of the fixed-layout protocol.
//
// A request is written at the start of the shared buffer: a header of 32-bit little-endian words,
// then variable data, of which the header gives offset and length. The secure application answers
// straight behind the request. Offsets in a request count from the start of the request, those in a
// response from the start of the response. A command names the words of its records in an
// enumeration and reads as that record.
#pragma once

#include <KeymasterBuffer.h>
#include <hardware/keymaster_defs.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "Channel.h"
#include "Commands.h"
#include "Log.h"
#include "Memory.h"
#include "Presence.h"

namespace keymasterutils {
class KeymasterUtils;
}

namespace keymasterdevice {

constexpr uint32_t kWordBytes = 4;

uint32_t loadWord(const uint8_t* bytes);
void storeWord(uint8_t* bytes, uint32_t value);

// A length as the records carry it. One that needs more than 32 bits becomes the largest value,
// which no builder accepts.
uint32_t narrowLength(uint64_t length);

// Bytes that belong to someone else.
struct ByteSpan {
    uint8_t* data;
    uint32_t length;
};

// Words of a record in the request, which the builder has made room for.
class LegacyRecord {
  public:
    LegacyRecord() = default;
    explicit LegacyRecord(uint8_t* start) : start_(start) {}

    // Without a place, which follows an earlier failure, nothing is written.
    void setWord(uint32_t index, uint32_t value);
    // 64 bits over two words, the low one first.
    void setWords64(uint32_t index, uint64_t value);

  private:
    uint8_t* start_ = nullptr;
};

// A response, or a record inside it: from its start to the end of the shared buffer. What the
// secure application says is trusted within those bounds. A read outside them gives zeros or an
// empty span and leaves ok() false from then on.
class LegacyResponse {
  public:
    LegacyResponse() = default;
    LegacyResponse(uint8_t* start, uint32_t size) : start_(start), size_(size) {}

    uint32_t word(uint32_t index);
    uint64_t words64(uint32_t index);
    ByteSpan bytes(uint32_t offset, uint32_t length);
    // The bytes whose offset and length stand in the two words at `index`.
    ByteSpan item(uint32_t index);
    // The record that begins at `offset`; offsets in it count from its own start.
    LegacyResponse record(uint32_t offset);

    bool ok() const { return ok_; }
    uint32_t size() const { return size_; }

  private:
    uint8_t* start_ = nullptr;
    uint32_t size_ = 0;
    bool ok_ = true;
};

// Builds a request, sends it and gives access to the response. The first failure sticks: what
// follows it does nothing, and error() and send() return it. The builder is released with the
// object; the shared buffer stays the transport's.
class LegacyExchange {
  public:
    // Takes the shared buffer, reserves a header of `header_words` and writes the command
    // identifier into its first word. The header is not cleared: a word that a command does not
    // write keeps what the buffer held. With `append_through` everything is appended, and every
    // offset taken, through the builder of that exchange, which must live longer.
    LegacyExchange(const Channel& channel, const Command& command, uint32_t header_words,
                   LegacyExchange* append_through = nullptr);

    void setWord(uint32_t index, uint32_t value);
    void setWords64(uint32_t index, uint64_t value);

    // Append, and write the pair of header words at `index`: offset and length, or number of
    // parameters. An absent optional item is (0, 0).
    void addItem(uint32_t index, const void* data, size_t length);
    void addOptionalItem(uint32_t index, const keymaster_blob_t* blob);
    void addOptionalParams(uint32_t index, const keymaster_key_param_set_t* set);

    // Append without writing any header word.
    void append(const void* data, size_t length);
    // Reserves a record of `words` and opens the indirect region behind it, which takes data until
    // it is closed. appendIndirect() writes nothing of the record.
    LegacyRecord openRecord(uint32_t words);
    void appendIndirect(const void* data, size_t length);
    uint32_t indirectOffset() const;
    void closeIndirect();

    // Bytes so far, and what they leave of the shared buffer.
    uint32_t offset() const;
    uint32_t remaining() const;

    // Tells the secure application where in the response its output goes and how much room it has:
    // `header_bytes` into word `index`, the rest of the buffer less that into the next. Words that
    // do not fit into the buffer are left out.
    void labelResponse(uint32_t index, uint32_t header_bytes);

    keymaster_error_t error() const { return error_; }

    // Sends, and returns the first of: an earlier failure, the transport's result, the status of
    // the response, KM_ERROR_UNKNOWN_ERROR where that lies outside the shared buffer. A transport
    // result or a status is logged.
    [[nodiscard]] keymaster_error_t send();

    // The two halves of send(), for a command that takes one status for an answer. transmit()
    // returns an earlier failure only.
    [[nodiscard]] keymaster_error_t transmit();
    [[nodiscard]] keymaster_error_t judge() const;
    bool answered(keymaster_error_t status) const;

    LegacyResponse& response() { return response_; }

  private:
    void keep(keymaster_error_t error);

    keymasterutils::KeymasterUtils& transport_;
    const Command& command_;
    keymaster_error_t error_ = KM_ERROR_OK;
    uint8_t* buffer_ = nullptr;
    std::unique_ptr<KeymasterBuffer> builder_;
    KeymasterBuffer* writer_ = nullptr;  // builder_, or that of another exchange
    LegacyRecord header_;
    LegacyResponse response_;
    int32_t send_result_ = 0;
    int32_t status_ = 0;
    bool status_readable_ = false;
};

// Brings up the link to the secure processor; a failure is logged under the method's name.
[[nodiscard]] keymaster_error_t bringUpLink(const Channel& channel, const Command& command);

// Copies with the transport's bounded copy; returns the number of bytes copied.
size_t copyOut(keymasterutils::KeymasterUtils& transport, uint8_t* out, const ByteSpan& bytes);
// The same into fresh memory; null when there is none.
MallocedBytes copyToHeap(keymasterutils::KeymasterUtils& transport, const ByteSpan& bytes);

}  // namespace keymasterdevice
