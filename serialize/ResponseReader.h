// Reads the body of a response.
#pragma once

#include <KeymasterUtils.h>
#include <hardware/keymaster_defs.h>

#include <cstddef>
#include <cstdint>
#include <optional>

#include "CborHelpers.h"
#include "MessageLabels.h"

namespace keymasterdevice {

// One map, whose entries are read in the order of the calls; nothing is searched. The first failure
// sticks until finish() reports it, and what is read after it is zero, so a run of reads is tested
// once, at its end.
class ResponseReader {
  public:
    // Enters the map in `response`, whose bytes must outlive this object.
    explicit ResponseReader(const keymaster_blob_t& response);
    ~ResponseReader() = default;
    ResponseReader(const ResponseReader&) = delete;
    ResponseReader& operator=(const ResponseReader&) = delete;

    uint32_t number32(MessageLabel label);
    uint64_t number64(MessageLabel label);
    // The bytes stay in the response.
    keymaster_blob_t bytes(MessageLabel label);

    // An entry that may be absent: where the next one is not as wanted, nothing is read, and there
    // is no error afterwards.
    //
    // Kept: that also clears the error of an answer that is no map, so a finish may be answered
    // with no bytes at all.
    std::optional<uint32_t> optionalNumber32(MessageLabel label);
    keymaster_blob_t optionalBytes(MessageLabel label);

    // The first failure, as CborReader says; else QCBOR's code where bytes are left after the map.
    [[nodiscard]] keymaster_error_t finish();

    bool ok() const { return reader_.error == 0; }
    CborReader* reader() { return &reader_; }
    // Bytes of the whole response; no count that it announces can be larger.
    size_t size() const { return size_; }

  private:
    void goBackTo(const QCBORDecodeContext& position);

    size_t size_;
    QCBORDecodeContext decoder_;
    CborReader reader_;
};

// A copy from array new of bytes in a response, for the caller, who releases it with free. Throws
// std::bad_alloc.
[[nodiscard]] keymaster_blob_t copyForCaller(keymasterutils::KeymasterUtils* transport,
                                             const keymaster_blob_t& bytes);

}  // namespace keymasterdevice
