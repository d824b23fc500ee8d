// One request and response in fixed-layout records.
//
// A request is written at the start of the shared buffer: a header of words, then variable data, of
// which the header gives offset and length. The secure application answers in the same buffer,
// straight behind the request.
//
// A command reads: fill named words, append items, send, read named words, and error(). The first
// failure sticks: the steps after it do nothing.
#pragma once

#include <KeymasterBuffer.h>
#include <hardware/keymaster_defs.h>

#include <cstddef>
#include <cstdint>
#include <memory>

#include "Channel.h"
#include "Commands.h"
#include "EnumBits.h"
#include "LegacyRecords.h"
#include "Memory.h"

namespace keymasterdevice {

class LegacyExchange {
  public:
    // Brings up the link if the command's row says so, takes the shared buffer, reserves a header
    // of `header_words` and writes the command identifier into its first word. The header is not
    // cleared: a word that a command does not write keeps what the buffer held. With
    // `append_through` everything is appended, and every offset taken, through the builder of that
    // exchange. Transport and `append_through` must outlive the exchange; the shared buffer stays
    // the transport's.
    LegacyExchange(const Channel& channel, const Command& command, uint32_t header_words,
                   LegacyExchange* append_through = nullptr);
    ~LegacyExchange() = default;
    LegacyExchange(const LegacyExchange&) = delete;
    LegacyExchange& operator=(const LegacyExchange&) = delete;

    // ---- Request ----

    void setWord(uint32_t index, uint32_t value) { header_.setWord(index, value); }
    void setWords64(uint32_t index, uint64_t value) { header_.setWords64(index, value); }

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
    // `header_bytes` into word `index` of the response, the rest of the buffer less that into the
    // next. Words that do not fit into the buffer are left out.
    void setResponseOffsets(uint32_t index, uint32_t header_bytes);

    // ---- Sending ----

    // Fails with the transport's result or else the status of the response, either of them logged;
    // without a log line where the status lies outside the shared buffer.
    void send() {
        transmit();
        checkStatus();
    }
    // The two halves of send(), for a command to which one status is an answer.
    void transmit();
    void checkStatus();
    bool statusIs(keymaster_error_t status) const;

    // ---- Response ----

    // May be read after a failure, too; what was not received reads as outside.
    LegacyResponse& response() { return response_; }

    // Copies bytes of the response with the transport's bounded copy; the number of bytes copied.
    size_t copyTo(uint8_t* out, const ByteSpan& bytes);
    // The same into memory from malloc; null after any failure, that of malloc included.
    MallocedBytes copyToHeap(const ByteSpan& bytes);
    // The same into an output of the caller's. Where there is no memory the output keeps its
    // pointer and gets the length.
    void copyToOutput(const ByteSpan& bytes, keymaster_blob_t* output);
    void copyToOutput(const ByteSpan& bytes, keymaster_key_blob_t* output);

    // ---- Failure ----

    bool ok() const { return error_ == KM_ERROR_OK && !read_outside_; }
    // The first failure. KM_ERROR_UNKNOWN_ERROR where that is a read outside the shared buffer.
    [[nodiscard]] keymaster_error_t error() const;
    // For a failure that a command finds itself.
    void storeFirstError(ErrorWord error);

  private:
    keymasterutils::KeymasterUtils& transport_;
    const Command& command_;
    ErrorWord error_ = KM_ERROR_OK;
    bool read_outside_ = false;
    uint8_t* buffer_ = nullptr;
    std::unique_ptr<KeymasterBuffer> builder_;
    KeymasterBuffer* writer_ = nullptr;  // builder_, or that of another exchange
    LegacyRecord header_;
    LegacyResponse response_{ByteReader(), &read_outside_};
    bool sent_ = false;
    int32_t send_result_ = 0;
    int32_t status_ = 0;
};

// Brings up the link to the secure processor; a failure is logged under the method's name.
[[nodiscard]] ErrorWord bringUpLink(const Channel& channel, const Command& command);

}  // namespace keymasterdevice
