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

// One caller at a time. The buffers that it hands out stay its own and last as long as it.
class KeymasterUtils {
  public:
    // Size in bytes of the region that vaultlink_dev_init() hands out.
    static constexpr uint32_t kSharedBufferBytes = 40960;

    // `level` says which secure application is meant: StrongBox's, or the trusted environment's for
    // any other value. Throws std::bad_alloc.
    explicit KeymasterUtils(keymaster_security_level_t level);
    virtual ~KeymasterUtils();
    KeymasterUtils(const KeymasterUtils&) = delete;
    KeymasterUtils& operator=(const KeymasterUtils&) = delete;

    // True when the secure application speaks fixed-layout records instead of CBOR.
    bool isLegacy();

    // Brings up the link to the dedicated secure processor; 0 at once when it is up. Else a
    // keymaster error code.
    [[nodiscard]] keymaster_error_t hsm_init();

    // Versions that the secure application and its driver report, without a command: that of its
    // keymaster, such as 4, and the minor ones that tell which records it understands.
    uint32_t getKeymasterVersion();
    uint32_t getKeymasterTaMinorVersion();
    uint32_t getKeymasterHalMinorVersion();

    // ---- CBOR ----

    // Stores `cmd_id` for the next sendCmd() and points `request` at the request buffer, whose
    // size in bytes becomes its length. KM_ERROR_UNEXPECTED_NULL_POINTER for a null `request`,
    // KM_ERROR_MEMORY_ALLOCATION_FAILED without memory for the buffer; `request` is then as it was.
    [[nodiscard]] keymaster_error_t init(uint32_t cmd_id, keymaster_blob_t* request);

    // Sends `request.data_length` bytes and, on success, points `response` at the answer, which
    // stays valid until the next exchange. Else a keymaster error code, of the transport or of the
    // secure application, with `response` as it was; KM_ERROR_UNEXPECTED_NULL_POINTER for a null
    // one, KM_ERROR_INVALID_INPUT_LENGTH for more bytes than the request buffer has.
    [[nodiscard]] keymaster_error_t sendCmd(const keymaster_blob_t& request,
                                            keymaster_blob_t* response);

    // ---- Records ----

    // The shared region of kSharedBufferBytes, or null where there is none. It is not cleared.
    void* vaultlink_dev_init();

    // Sends the `request_length` bytes at `request` and has the answer written to `response`, which
    // has `response_capacity` bytes; both lie in the shared region. 0, or the error code of the
    // transport, such as KM_ERROR_INVALID_ARGUMENT for an address outside. The status of the secure
    // application is the first word of the answer.
    [[nodiscard]] int32_t send_cmd(void* request, uint32_t request_length, void* response,
                                   uint32_t response_capacity);

    // ---- Both ----

    // Copies at most `dst_size` of the `src_size` bytes at `src`; returns the number copied, 0 for
    // a null pointer.
    size_t km_memscpy(void* dst, size_t dst_size, const void* src, size_t src_size);

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace keymasterutils
