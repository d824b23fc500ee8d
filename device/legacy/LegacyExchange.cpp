#include "LegacyExchange.h"

#include <KeymasterUtils.h>

#include <new>

#include "LegacyParams.h"
#include "Limits.h"
#include "Log.h"
#include "Presence.h"

namespace keymasterdevice {
namespace {

constexpr uint32_t kStatusWord = 0;  // of every response

void logFailure(const char* what, int32_t send_result, int32_t status) {
    KM_LOG_ERROR(kDeviceLogTag, "%s", what);
    KM_LOG_ERROR(kDeviceLogTag, "ret: %d", send_result);
    KM_LOG_ERROR(kDeviceLogTag, "resp->status: %d", status);
}

}  // namespace

ErrorWord bringUpLink(const Channel& channel, const Command& command) {
    const ErrorWord error = errorToWord(channel.transport.hsm_init());
    if (error != KM_ERROR_OK) logFailure(command.method, error, 0);
    return error;
}

LegacyExchange::LegacyExchange(const Channel& channel, const Command& command,
                               uint32_t header_words, LegacyExchange* append_through)
    : transport_(channel.transport), command_(command) {
    if (command.link == kLinkFirst) error_ = bringUpLink(channel, command);
    if (!ok()) return;
    buffer_ = static_cast<uint8_t*>(transport_.vaultlink_dev_init());
    if (buffer_ == nullptr) {
        KM_LOG_ERROR(kDeviceLogTag, "%s", command.no_buffer);
        error_ = KM_ERROR_INVALID_ARGUMENT;
        return;
    }
    builder_.reset(new (std::nothrow) KeymasterBuffer(buffer_, kSharedBufferBytes));
    if (!builder_) {
        error_ = KM_ERROR_MEMORY_ALLOCATION_FAILED;
        return;
    }
    writer_ = append_through == nullptr ? builder_.get() : append_through->writer_;
    append(buffer_, header_words * kWordBytes);
    if (!ok()) return;
    header_ = LegacyRecord(buffer_);
    header_.setWord(0, command.recordId(channel.strongbox));
}

// ---- Request ----

uint32_t LegacyExchange::offset() const {
    return ok() ? writer_->get_offset() : 0;
}

uint32_t LegacyExchange::remaining() const {
    return ok() ? writer_->get_buf_size_remaining() : 0;
}

void LegacyExchange::append(const void* data, size_t length) {
    if (ok()) error_ = errorToWord(writer_->append_to_buf(data, narrowLength(length)));
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
    const bool present = isPresent(set);
    setWord(index, present ? offset() : 0);
    setWord(index + 1, present ? narrowLength(set->length) : 0);
    if (!present || !ok()) return;
    error_ = serializeLegacyParams(*writer_, set->params, narrowLength(set->length));
}

LegacyRecord LegacyExchange::openRecord(uint32_t words) {
    if (!ok()) return {};
    auto* place = static_cast<uint8_t*>(writer_->get_curr_addr());
    error_ = errorToWord(writer_->set_indirect_buf(words * kWordBytes));
    append(place, words * kWordBytes);
    return ok() ? LegacyRecord(place) : LegacyRecord();
}

void LegacyExchange::appendIndirect(const void* data, size_t length) {
    if (ok()) error_ = errorToWord(writer_->append_to_indirect_buf(data, narrowLength(length)));
}

uint32_t LegacyExchange::indirectOffset() const {
    return ok() ? writer_->get_indirect_buf_offset_from_main() : 0;
}

void LegacyExchange::closeIndirect() {
    if (ok()) writer_->reset_indirect_buf();
}

void LegacyExchange::setResponseOffsets(uint32_t index, uint32_t header_bytes) {
    if (!ok()) return;
    LegacyRecord response(buffer_ + offset());
    const uint32_t room = remaining();
    const uint32_t fitting_words = room / kWordBytes;
    if (index < fitting_words) response.setWord(index, header_bytes);
    // Kept: for a response area smaller than its header the subtraction wraps around, and a huge
    // size is announced.
    if (index + 1 < fitting_words) response.setWord(index + 1, room - header_bytes);
}

// ---- Sending ----

void LegacyExchange::transmit() {
    if (!ok()) return;
    const uint32_t length = offset();
    const uint32_t capacity = remaining();
    send_result_ = transport_.send_cmd(buffer_, length, buffer_ + length, capacity);
    sent_ = true;
    response_ = LegacyResponse(ByteReader(buffer_ + length, capacity), &read_outside_);
    status_ = static_cast<int32_t>(response_.word(kStatusWord));
}

bool LegacyExchange::statusIs(keymaster_error_t status) const {
    return sent_ && send_result_ == 0 && ok() && status_ == status;
}

void LegacyExchange::checkStatus() {
    if (!sent_ || (send_result_ == 0 && (read_outside_ || status_ == KM_ERROR_OK))) return;
    logFailure(command_.send_failure != nullptr ? command_.send_failure : command_.method,
               send_result_, status_);
    error_ = send_result_ != 0 ? send_result_ : status_;
}

// ---- Response ----

size_t LegacyExchange::copyTo(uint8_t* out, const ByteSpan& bytes) {
    return transport_.km_memscpy(out, bytes.length, bytes.data, bytes.length);
}

MallocedBytes LegacyExchange::copyToHeap(const ByteSpan& bytes) {
    if (!ok()) return nullptr;
    MallocedBytes copy = mallocBytes(bytes.length);
    if (!copy) {
        error_ = KM_ERROR_MEMORY_ALLOCATION_FAILED;
        return nullptr;
    }
    copyTo(copy.get(), bytes);
    return copy;
}

void LegacyExchange::copyToOutput(const ByteSpan& bytes, keymaster_blob_t* output) {
    if (!ok()) return;
    output->data_length = bytes.length;
    MallocedBytes copy = copyToHeap(bytes);
    if (copy) output->data = copy.release();
}

void LegacyExchange::copyToOutput(const ByteSpan& bytes, keymaster_key_blob_t* output) {
    if (!ok()) return;
    output->key_material_size = bytes.length;
    MallocedBytes copy = copyToHeap(bytes);
    if (copy) output->key_material = copy.release();
}

// ---- Failure ----

keymaster_error_t LegacyExchange::error() const {
    if (error_ != KM_ERROR_OK) return errorFromWord(error_);
    return read_outside_ ? KM_ERROR_UNKNOWN_ERROR : KM_ERROR_OK;
}

void LegacyExchange::storeFirstError(ErrorWord error) {
    if (ok()) error_ = error;
}

}  // namespace keymasterdevice
