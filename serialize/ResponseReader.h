// Reads the body of a response.
#pragma once

#include <KeymasterUtils.h>
#include <hardware/keymaster_defs.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "CborHelpers.h"
#include "MessageLabels.h"

namespace keymasterdevice {

// What a decoder hands out: a copy from array new.
inline std::unique_ptr<uint8_t[]> copyBytes(keymasterutils::KeymasterUtils* transport,
                                            const keymaster_blob_t& source) {
    std::unique_ptr<uint8_t[]> copy(new uint8_t[source.data_length]);
    transport->km_memscpy(copy.get(), source.data_length, source.data, source.data_length);
    return copy;
}

// An output of no bytes stays as the caller cleared it.
inline void storeOutput(keymasterutils::KeymasterUtils* transport, const keymaster_blob_t& bytes,
                        keymaster_blob_t* output) {
    if (output == nullptr || bytes.data_length == 0) return;
    *output = {copyBytes(transport, bytes).release(), bytes.data_length};
}

// A response under way: reads the entries of its map in the order of the calls. The first failure
// sticks until finish() tells it; values read after it are zero.
class ResponseReader {
  public:
    explicit ResponseReader(const keymaster_blob_t& response) : size_(response.data_length) {
        QCBORDecode_Init(&decoder_, {response.data, response.data_length},
                         QCBOR_DECODE_MODE_NORMAL);
        std::memset(&reader_.item, 0xFF, sizeof(reader_.item));
        CR_MAP_ENTER(&reader_);
    }
    ~ResponseReader() = default;
    ResponseReader(const ResponseReader&) = delete;
    ResponseReader& operator=(const ResponseReader&) = delete;

    uint32_t number32(MessageLabel label) {
        uint32_t value = 0;
        CRGetUint32FromMapWithUint64Label(&reader_, static_cast<uint64_t>(label), &value);
        return value;
    }

    uint64_t number64(MessageLabel label) {
        uint64_t value = 0;
        CRGetUint64FromMapWithUint64Label(&reader_, static_cast<uint64_t>(label), &value);
        return value;
    }

    // The bytes stay in the response.
    keymaster_blob_t bytes(MessageLabel label) {
        keymaster_blob_t value = {nullptr, 0};
        CRGetBytesOrStringFromMapWithUint64Label(&reader_, QCBOR_TYPE_BYTE_STRING,
                                                 static_cast<uint64_t>(label), &value);
        return value;
    }

    // Reads one entry with `read`, or puts the decoder back in front of whatever is there instead.
    // Returns whether the entry was there.
    // Kept: clearing the error also clears that of an answer that is no map, so a finish may be
    // answered with no bytes at all.
    template <typename Read>
    bool optional(Read read) {
        const QCBORDecodeContext saved = decoder_;
        read();
        if (ok()) return true;
        decoder_ = saved;
        reader_.error = 0;
        return false;
    }

    keymaster_blob_t optionalBytes(MessageLabel label) {
        keymaster_blob_t value = {nullptr, 0};
        optional([&] { value = bytes(label); });
        return value;
    }

    keymaster_error_t finish() {
        if (!ok()) return static_cast<keymaster_error_t>(reader_.error);
        return static_cast<keymaster_error_t>(QCBORDecode_Finish(&decoder_));
    }

    bool ok() const { return reader_.error == 0; }
    CborReader* reader() { return &reader_; }
    size_t size() const { return size_; }

  private:
    size_t size_;
    QCBORDecodeContext decoder_;
    CborReader reader_ = {&decoder_, {}, 0};
};

}  // namespace keymasterdevice
