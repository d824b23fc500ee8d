// What the maker's library promises of the transport to the secure application, and nothing else.
#pragma once

#include <hardware/keymaster_defs.h>

#include <cstddef>
#include <cstdint>

// The word in which the maker's copy counts bytes; in 64 bits it matters which.
#ifndef CONTRACT_COPY_SIZE
#define CONTRACT_COPY_SIZE size_t
#endif

namespace keymasterutils {

class KeymasterUtils {
  public:
    explicit KeymasterUtils(keymaster_security_level_t level);
    virtual ~KeymasterUtils();
    bool isLegacy();
    keymaster_error_t hsm_init();
    keymaster_error_t init(uint32_t cmd_id, keymaster_blob_t* request);
    keymaster_error_t sendCmd(const keymaster_blob_t& request, keymaster_blob_t* response);
    uint32_t getKeymasterVersion();
    uint32_t getKeymasterTaMinorVersion();
    uint32_t getKeymasterHalMinorVersion();
    void* vaultlink_dev_init();
    int32_t send_cmd(void* request, unsigned int request_length, void* response,
                     unsigned int response_capacity);
    CONTRACT_COPY_SIZE km_memscpy(void* dst, CONTRACT_COPY_SIZE dst_size, const void* src,
                                  CONTRACT_COPY_SIZE src_size);
};

}  // namespace keymasterutils
