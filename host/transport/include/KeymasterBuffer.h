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
    // Builds over `capacity` bytes at `base`, which must not be null, stays the caller's, outlives
    // this object and is not cleared. Offsets and lengths are bytes; offsets count from `base`.
    KeymasterBuffer(void* base, uint32_t capacity);
    virtual ~KeymasterBuffer() = default;
    KeymasterBuffer(const KeymasterBuffer&) = delete;
    KeymasterBuffer& operator=(const KeymasterBuffer&) = delete;

    // ---- Main region ----

    // Copies `length` bytes to the write position and moves it past them. `source` may be the write
    // position itself, which reserves the bytes as they are, and may be null where `length` is 0.
    // KM_ERROR_INSUFFICIENT_BUFFER_SPACE, with nothing copied, when they do not fit.
    [[nodiscard]] keymaster_error_t append_to_buf(const void* source, uint32_t length);

    // The write position, which is the length of the request so far.
    uint32_t get_offset() const;
    // The bytes between the write position and the end of the buffer.
    uint32_t get_buf_size_remaining() const;
    // The address of the write position, to fill a record in place after reserving it.
    void* get_curr_addr() const;

    // ---- Indirect region ----

    // Opens the region `reserved` bytes past the write position, which does not move; the main
    // region may fill those bytes meanwhile. KM_ERROR_INSUFFICIENT_BUFFER_SPACE, with nothing
    // opened, when fewer bytes remain.
    [[nodiscard]] keymaster_error_t set_indirect_buf(uint32_t reserved);
    // As append_to_buf(), behind what the region holds. KM_ERROR_INVALID_ARGUMENT while no region
    // is open.
    [[nodiscard]] keymaster_error_t append_to_indirect_buf(const void* source, uint32_t length);
    // Where the next indirect byte goes; after closing, where the last region ended.
    uint32_t get_indirect_buf_offset_from_main() const;
    // Closes the region and moves the write position behind its last byte. Nothing while none is
    // open.
    void reset_indirect_buf();

  private:
    uint8_t* base_;
    uint32_t capacity_;
    uint32_t offset_ = 0;
    bool indirect_open_ = false;
    uint32_t indirect_offset_ = 0;
};

}  // namespace keymasterdevice
