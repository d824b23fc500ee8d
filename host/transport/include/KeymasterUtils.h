// The transport to the secure keymaster application, as the library sees it.
//
// On a device this class comes from the maker's library; the one declared here is the
// workstation's, with the same operations. The implementation hides behind one pointer, so that a
// test can link its own in place of it.
#pragma once

#include <hardware/keymaster_defs.h>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace keymasterutils {

class KeymasterUtils {
  public:
    // Size in bytes of the region that vaultlink_dev_init() hands out.
    static constexpr uint32_t kSharedBufferBytes = 40960;

    // `level` tells which secure application is meant: the trusted environment's or StrongBox's.
    explicit KeymasterUtils(keymaster_security_level_t level);
    virtual ~KeymasterUtils();
    KeymasterUtils(const KeymasterUtils&) = delete;
    KeymasterUtils& operator=(const KeymasterUtils&) = delete;

    // True when the secure application speaks fixed-layout records instead of CBOR.
    bool isLegacy();

    // Brings up the link to the dedicated secure processor. Returns 0 or a keymaster error code.
    keymaster_error_t hsm_init();

    // Versions that the secure application and its driver report.
    uint32_t getKeymasterVersion();
    uint32_t getKeymasterTaMinorVersion();
    uint32_t getKeymasterHalMinorVersion();

    // CBOR exchange. init() records `cmd_id` for the next sendCmd() and points `request` at the
    // transport's request buffer (data and capacity in bytes). sendCmd() sends
    // `request.data_length` bytes and, on success, points `response` at the answer, which stays
    // valid until the next exchange. The transport owns both buffers. Returns 0 or a keymaster
    // error code.
    keymaster_error_t init(uint32_t cmd_id, keymaster_blob_t* request);
    keymaster_error_t sendCmd(const keymaster_blob_t& request, keymaster_blob_t* response);

    // Record exchange. vaultlink_dev_init() returns the shared region of kSharedBufferBytes, or
    // null. send_cmd() sends the request at its start and lets the secure application write the
    // response behind it. Returns 0 or a transport error code; the response's own first word is the
    // secure application's status.
    void* vaultlink_dev_init();
    int32_t send_cmd(void* request, uint32_t request_length, void* response,
                     uint32_t response_capacity);

    // Copies at most `dst_size` of the `src_size` bytes at `src`; returns the number copied.
    size_t km_memscpy(void* dst, size_t dst_size, const void* src, size_t src_size);

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace keymasterutils
