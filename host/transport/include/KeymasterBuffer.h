// The builder of a fixed-layout request over the shared buffer.
//
// A request has a main region, written front to back, and may open an indirect region further on,
// which is filled with variable-length data while the main region catches up with its start. On a
// device this class comes from the maker's library.
#pragma once

#include <hardware/keymaster_defs.h>

#include <cstdint>

namespace keymasterdevice {

class KeymasterBuffer {
  public:
    // Builds over `capacity` bytes at `base`, which stays the caller's and is not cleared.
    KeymasterBuffer(void* base, uint32_t capacity);
    virtual ~KeymasterBuffer() = default;
    KeymasterBuffer(const KeymasterBuffer&) = delete;
    KeymasterBuffer& operator=(const KeymasterBuffer&) = delete;

    // Copies `length` bytes to the write position and moves it past them. `source` may be the write
    // position itself, which reserves the bytes as they stand. KM_ERROR_INSUFFICIENT_BUFFER_SPACE,
    // with nothing copied, when they do not fit.
    keymaster_error_t append_to_buf(const void* source, uint32_t length);

    // Offsets in bytes from the start of the request.
    uint32_t get_offset() const;
    uint32_t get_buf_size_remaining() const;

    // The address of the write position, to fill a record in place after reserving it.
    void* get_curr_addr() const;

    // Opens the indirect region `reserved` bytes past the write position, which does not move; the
    // main region may fill those bytes meanwhile. reset_indirect_buf() closes it and moves the
    // write position past the last indirect byte.
    keymaster_error_t set_indirect_buf(uint32_t reserved);
    keymaster_error_t append_to_indirect_buf(const void* source, uint32_t length);
    uint32_t get_indirect_buf_offset_from_main() const;
    void reset_indirect_buf();

  private:
    uint8_t* base_;
    uint32_t capacity_;
    uint32_t offset_ = 0;
    bool indirect_open_ = false;
    uint32_t indirect_offset_ = 0;
};

}  // namespace keymasterdevice
