// Writes the body of a request.
#pragma once

#include <hardware/keymaster_defs.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "CborHelpers.h"
#include "KeymasterRecords.h"
#include "MessageLabels.h"
#include "Parameters.h"
#include "Presence.h"

namespace keymasterdevice {

inline keymaster_blob_t orEmpty(const keymaster_blob_t* blob) {
    return isPresent(blob) ? *blob : keymaster_blob_t{nullptr, 0};
}

inline keymaster_blob_t orEmpty(const keymaster_key_blob_t* blob) {
    if (blob == nullptr || blob->key_material == nullptr) return {nullptr, 0};
    return {blob->key_material, blob->key_material_size};
}

inline keymaster_blob_t bytesOf(const std::vector<uint8_t>& bytes) {
    return {bytes.data(), bytes.size()};
}

// A request under way: writes the entries of its map in the order of the calls.
class RequestWriter {
  public:
    explicit RequestWriter(keymaster_blob_t* request) : request_(request) {
        // The transport hands its own buffer out as a blob, whose bytes are const.
        QCBOREncode_Init(&encoder_, const_cast<uint8_t*>(request->data), request->data_length);
        CW_MAP_ENTER(&encoder_);
    }

    void number(MessageLabel label, uint64_t value) {
        QCBOREncode_AddUInt64_3(&encoder_, nullptr, static_cast<int64_t>(label), CBOR_TAG_NONE,
                                value);
    }

    void bytes(MessageLabel label, const keymaster_blob_t& value) {
        QCBOREncode_AddBytes_3(&encoder_, nullptr, static_cast<int64_t>(label), CBOR_TAG_NONE,
                               {value.data, value.data_length});
    }

    void optionalBytes(MessageLabel label, const keymaster_blob_t* value) {
        if (isPresent(value)) bytes(label, *value);
    }

    void flag(MessageLabel label, bool value) {
        QCBOREncode_AddSimple_3(&encoder_, nullptr, static_cast<int64_t>(label), CBOR_TAG_NONE,
                                value ? CBOR_SIMPLEV_TRUE : CBOR_SIMPLEV_FALSE);
    }

    void date(MessageLabel label, const tztm& value) {
        CW_ARRAY_LABEL_ENTER(&encoder_, static_cast<int64_t>(label));
        for (int32_t field :
             {value.tm_sec, value.tm_min, value.tm_hour, value.tm_mday, value.tm_mon, value.tm_year,
              value.tm_wday, value.tm_yday, value.tm_isdst}) {
            QCBOREncode_AddInt64_3(&encoder_, nullptr, QCBOR_NO_INT_LABEL, CBOR_TAG_NONE, field);
        }
        QCBOREncode_CloseArray(&encoder_);
    }

    void param(const keymaster_key_param_t& value) { addParam(value, &encoder_); }

    // The count and the parameters; `more` are counted and added by the caller.
    void params(const keymaster_key_param_set_t* set, size_t more = 0) {
        const size_t length = isPresent(set) ? set->length : 0;
        number(MessageLabel::kParamCount, uint64_t{length} + more);
        for (size_t i = 0; i < length; ++i) param(set->params[i]);
    }

    void optionalParams(const keymaster_key_param_set_t* set) {
        if (isPresent(set)) params(set);
    }

    keymaster_error_t finish() {
        QCBOREncode_CloseArray(&encoder_);
        size_t length = 0;
        const int result = QCBOREncode_Finish(&encoder_, &length);
        if (result != QCBOR_SUCCESS) return KM_ERROR_INVALID_INPUT_LENGTH;
        request_->data_length = length;
        return KM_ERROR_OK;
    }

  private:
    keymaster_blob_t* request_;
    QCBOREncodeContext encoder_;
};

}  // namespace keymasterdevice
