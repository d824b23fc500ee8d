// What the maker's library promises of the builder of fixed-layout requests, and nothing else.
#pragma once

#include <hardware/keymaster_defs.h>

#include <cstdint>

namespace keymasterdevice {

class KeymasterBuffer {
  public:
    KeymasterBuffer(void* base, uint32_t capacity);
    virtual ~KeymasterBuffer();
    keymaster_error_t append_to_buf(const void* source, unsigned int length);
    uint32_t get_offset();
    uint32_t get_buf_size_remaining();
    keymaster_error_t set_indirect_buf(unsigned int reserved);
    keymaster_error_t append_to_indirect_buf(const void* source, unsigned int length);
    uint32_t get_indirect_buf_offset_from_main();
    void reset_indirect_buf();
    void* get_curr_addr();
};

}  // namespace keymasterdevice
