#include "KeymasterBuffer.h"

#include <cstring>

namespace keymasterdevice {
namespace {

// The one place that copies: `source` may overlap the destination when a header is reserved.
keymaster_error_t appendAt(uint8_t* base, uint32_t capacity, uint32_t* offset, const void* source,
                           uint32_t length) {
    if (length > capacity - *offset) return KM_ERROR_INSUFFICIENT_BUFFER_SPACE;
    if (length != 0) std::memmove(base + *offset, source, length);
    *offset += length;
    return KM_ERROR_OK;
}

}  // namespace

KeymasterBuffer::KeymasterBuffer(void* base, uint32_t capacity)
    : base_(static_cast<uint8_t*>(base)), capacity_(capacity) {}

keymaster_error_t KeymasterBuffer::append_to_buf(const void* source, uint32_t length) {
    return appendAt(base_, capacity_, &offset_, source, length);
}

uint32_t KeymasterBuffer::get_offset() const {
    return offset_;
}

uint32_t KeymasterBuffer::get_buf_size_remaining() const {
    return capacity_ - offset_;
}

void* KeymasterBuffer::get_curr_addr() const {
    return base_ + offset_;
}

keymaster_error_t KeymasterBuffer::set_indirect_buf(uint32_t reserved) {
    if (reserved > capacity_ - offset_) return KM_ERROR_INSUFFICIENT_BUFFER_SPACE;
    indirect_open_ = true;
    indirect_offset_ = offset_ + reserved;
    return KM_ERROR_OK;
}

keymaster_error_t KeymasterBuffer::append_to_indirect_buf(const void* source, uint32_t length) {
    if (!indirect_open_) return KM_ERROR_INVALID_ARGUMENT;
    return appendAt(base_, capacity_, &indirect_offset_, source, length);
}

uint32_t KeymasterBuffer::get_indirect_buf_offset_from_main() const {
    return indirect_offset_;
}

void KeymasterBuffer::reset_indirect_buf() {
    if (indirect_open_ && indirect_offset_ > offset_) offset_ = indirect_offset_;
    indirect_open_ = false;
}

}  // namespace keymasterdevice
