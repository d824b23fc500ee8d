#include "LegacyExchange.h"

#include <KeymasterUtils.h>

#include <algorithm>
#include <limits>
#include <new>

#include "LegacyParams.h"

namespace keymasterdevice {
namespace {

constexpr uint32_t kStatusWord = 0;  // of every response

void logFailure(const char* what, int32_t send_result, int32_t status) {
    KM_LOG_ERROR(kDeviceLogTag, "%s", what);
    KM_LOG_ERROR(kDeviceLogTag, "ret: %d", send_result);
    KM_LOG_ERROR(kDeviceLogTag, "resp->status: %d", status);
}

}  // namespace

uint32_t loadWord(const uint8_t* bytes) {
    uint32_t value = 0;
    for (unsigned i = 0; i < kWordBytes; ++i) value |= uint32_t{bytes[i]} << (8 * i);
    return value;
}

void storeWord(uint8_t* bytes, uint32_t value) {
    for (unsigned i = 0; i < kWordBytes; ++i) bytes[i] = static_cast<uint8_t>(value >> (8 * i));
}

uint32_t narrowLength(uint64_t length) {
    constexpr uint64_t kMost = std::numeric_limits<uint32_t>::max();
    return static_cast<uint32_t>(std::min(length, kMost));
}

keymaster_error_t bringUpLink(const Channel& channel, const Command& command) {
    const keymaster_error_t error = channel.transport.hsm_init();
    if (error != KM_ERROR_OK) logFailure(command.method, error, 0);
    return error;
}

size_t copyOut(keymasterutils::KeymasterUtils& transport, uint8_t* out, const ByteSpan& bytes) {
    return transport.km_memscpy(out, bytes.length, bytes.data, bytes.length);
}

MallocedBytes copyToHeap(keymasterutils::KeymasterUtils& transport, const ByteSpan& bytes) {
    MallocedBytes copy(static_cast<uint8_t*>(std::malloc(bytes.length)));
    if (copy) copyOut(transport, copy.get(), bytes);
    return copy;
}

void LegacyRecord::setWord(uint32_t index, uint32_t value) {
    if (start_ != nullptr) storeWord(start_ + size_t{index} * kWordBytes, value);
}

void LegacyRecord::setWords64(uint32_t index, uint64_t value) {
    setWord(index, static_cast<uint32_t>(value));
    setWord(index + 1, static_cast<uint32_t>(value >> 32));
}

ByteSpan LegacyResponse::bytes(uint32_t offset, uint32_t length) {
    if (length == 0) return {start_, 0};
    if (offset > size_ || length > size_ - offset) {
        ok_ = false;
        return {start_, 0};
    }
    return {start_ + offset, length};
}

uint32_t LegacyResponse::word(uint32_t index) {
    const ByteSpan word = bytes(narrowLength(uint64_t{index} * kWordBytes), kWordBytes);
    return word.length == 0 ? 0 : loadWord(word.data);
}

uint64_t LegacyResponse::words64(uint32_t index) {
    const uint64_t low = word(index);
    return low | uint64_t{word(index + 1)} << 32;
}

ByteSpan LegacyResponse::item(uint32_t index) {
    const uint32_t offset = word(index);
    return bytes(offset, word(index + 1));
}

LegacyResponse LegacyResponse::record(uint32_t offset) {
    if (offset <= size_) return LegacyResponse(start_ + offset, size_ - offset);
    ok_ = false;
    return LegacyResponse(start_, 0);
}

LegacyExchange::LegacyExchange(const Channel& channel, const Command& command,
                               uint32_t header_words, LegacyExchange* append_through)
    : transport_(channel.transport),
      command_(command),
      buffer_(static_cast<uint8_t*>(channel.transport.vaultlink_dev_init())) {
    if (buffer_ == nullptr) {
        KM_LOG_ERROR(kDeviceLogTag, "%s", command.no_buffer);
        error_ = KM_ERROR_INVALID_ARGUMENT;
        return;
    }
    builder_.reset(new (std::nothrow) KeymasterBuffer(
        buffer_, keymasterutils::KeymasterUtils::kSharedBufferBytes));
    if (!builder_) {
        error_ = KM_ERROR_MEMORY_ALLOCATION_FAILED;
        return;
    }
    writer_ = append_through == nullptr ? builder_.get() : append_through->writer_;
    keep(writer_->append_to_buf(buffer_, header_words * kWordBytes));
    if (error_ != KM_ERROR_OK) return;
    header_ = LegacyRecord(buffer_);
    header_.setWord(0, command.recordId(channel.strongbox));
}

void LegacyExchange::keep(keymaster_error_t error) {
    if (error_ == KM_ERROR_OK) error_ = error;
}

void LegacyExchange::setWord(uint32_t index, uint32_t value) {
    header_.setWord(index, value);
}

void LegacyExchange::setWords64(uint32_t index, uint64_t value) {
    header_.setWords64(index, value);
}

uint32_t LegacyExchange::offset() const {
    return error_ == KM_ERROR_OK ? writer_->get_offset() : 0;
}

uint32_t LegacyExchange::remaining() const {
    return error_ == KM_ERROR_OK ? writer_->get_buf_size_remaining() : 0;
}

void LegacyExchange::append(const void* data, size_t length) {
    if (error_ == KM_ERROR_OK) keep(writer_->append_to_buf(data, narrowLength(length)));
}

void LegacyExchange::addItem(uint32_t index, const void* data, size_t length) {
    setWord(index, offset());
    setWord(index + 1, narrowLength(length));
    append(data, length);
}

void LegacyExchange::addOptionalItem(uint32_t index, const keymaster_blob_t* blob) {
    if (isPresent(blob)) {
        addItem(index, blob->data, blob->data_length);
        return;
    }
    setWord(index, 0);
    setWord(index + 1, 0);
}

void LegacyExchange::addOptionalParams(uint32_t index, const keymaster_key_param_set_t* set) {
    const bool present = set != nullptr && set->params != nullptr && set->length != 0;
    setWord(index, present ? offset() : 0);
    setWord(index + 1, present ? narrowLength(set->length) : 0);
    if (!present || error_ != KM_ERROR_OK) return;
    keep(serializeLegacyParams(*writer_, set->params, narrowLength(set->length)));
}

LegacyRecord LegacyExchange::openRecord(uint32_t words) {
    if (error_ != KM_ERROR_OK) return {};
    auto* place = static_cast<uint8_t*>(writer_->get_curr_addr());
    keep(writer_->set_indirect_buf(words * kWordBytes));
    append(place, words * kWordBytes);
    return error_ == KM_ERROR_OK ? LegacyRecord(place) : LegacyRecord();
}

void LegacyExchange::appendIndirect(const void* data, size_t length) {
    if (error_ == KM_ERROR_OK) keep(writer_->append_to_indirect_buf(data, narrowLength(length)));
}

uint32_t LegacyExchange::indirectOffset() const {
    return error_ == KM_ERROR_OK ? writer_->get_indirect_buf_offset_from_main() : 0;
}

void LegacyExchange::closeIndirect() {
    if (error_ == KM_ERROR_OK) writer_->reset_indirect_buf();
}

void LegacyExchange::labelResponse(uint32_t index, uint32_t header_bytes) {
    if (error_ != KM_ERROR_OK) return;
    LegacyRecord labels(buffer_ + offset());
    const uint32_t room = remaining();
    const uint32_t fitting_words = room / kWordBytes;
    if (index < fitting_words) labels.setWord(index, header_bytes);
    // Kept: a response area smaller than its header is announced as it comes out of the
    // subtraction, as a huge one.
    if (index + 1 < fitting_words) labels.setWord(index + 1, room - header_bytes);
}

keymaster_error_t LegacyExchange::transmit() {
    if (error_ != KM_ERROR_OK) return error_;
    const uint32_t length = offset();
    const uint32_t capacity = remaining();
    response_ = LegacyResponse(buffer_ + length, capacity);
    send_result_ = transport_.send_cmd(buffer_, length, buffer_ + length, capacity);
    status_ = static_cast<int32_t>(response_.word(kStatusWord));
    status_readable_ = response_.ok();
    return KM_ERROR_OK;
}

bool LegacyExchange::answered(keymaster_error_t status) const {
    return send_result_ == 0 && status_readable_ && status_ == status;
}

keymaster_error_t LegacyExchange::judge() const {
    if (answered(KM_ERROR_OK)) return KM_ERROR_OK;
    if (send_result_ == 0 && !status_readable_) return KM_ERROR_UNKNOWN_ERROR;
    logFailure(command_.send_failure != nullptr ? command_.send_failure : command_.method,
               send_result_, status_);
    return static_cast<keymaster_error_t>(send_result_ != 0 ? send_result_ : status_);
}

keymaster_error_t LegacyExchange::send() {
    const keymaster_error_t error = transmit();
    return error != KM_ERROR_OK ? error : judge();
}

}  // namespace keymasterdevice
