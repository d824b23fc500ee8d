// Writes the body of a request.
#pragma once

#include <hardware/keymaster_defs.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "CborHelpers.h"
#include "KeymasterRecords.h"
#include "MessageLabels.h"

namespace keymasterdevice {

// One map, whose entries go out in the order of the calls. The first failure (no room left, a
// parameter with an invalid tag) sticks until finish() reports it.
class RequestWriter {
  public:
    // Starts the map in `request->data`, which has room for `request->data_length` bytes. `request`
    // must outlive this object.
    explicit RequestWriter(keymaster_blob_t* request);
    ~RequestWriter() = default;
    RequestWriter(const RequestWriter&) = delete;
    RequestWriter& operator=(const RequestWriter&) = delete;

    void number(MessageLabel label, uint64_t value);
    void flag(MessageLabel label, bool value);
    // An array of the nine fields, in their order in the record.
    void date(MessageLabel label, const tztm& value);

    // A null blob, or one without an array, goes out as an empty string.
    void bytes(MessageLabel label, const keymaster_blob_t* value);
    void bytes(MessageLabel label, const keymaster_key_blob_t* value);
    void bytes(MessageLabel label, const std::vector<uint8_t>& value);
    // No entry where the blob is null, without an array or empty.
    void optionalBytes(MessageLabel label, const keymaster_blob_t* value);

    // Their number under kParamCount, then one entry for each. A null set, or one without an array,
    // has none. The number includes `more` parameters, which the caller adds with param().
    void params(const keymaster_key_param_set_t* set, size_t more = 0);
    // No entry at all where the set is null, without an array or empty.
    void optionalParams(const keymaster_key_param_set_t* set);
    void param(const keymaster_key_param_t& value);

    // Ends the map and sets `request->data_length` to its length in bytes. After a failure
    // KM_ERROR_INVALID_INPUT_LENGTH, with the length unchanged.
    [[nodiscard]] keymaster_error_t finish();

  private:
    void addBytes(MessageLabel label, const uint8_t* data, size_t size);

    keymaster_blob_t* request_;
    QCBOREncodeContext encoder_;
};

}  // namespace keymasterdevice
