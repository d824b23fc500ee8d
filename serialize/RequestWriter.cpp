#include "RequestWriter.h"

#include "Parameters.h"
#include "Presence.h"

namespace keymasterdevice {

RequestWriter::RequestWriter(keymaster_blob_t* request) : request_(request) {
    // The transport hands its own buffer out as a blob, whose bytes are const.
    QCBOREncode_Init(&encoder_, const_cast<uint8_t*>(request->data), request->data_length);
    CW_MAP_ENTER(&encoder_);
}

void RequestWriter::number(MessageLabel label, uint64_t value) {
    QCBOREncode_AddUInt64_3(&encoder_, nullptr, static_cast<int64_t>(label), CBOR_TAG_NONE, value);
}

void RequestWriter::flag(MessageLabel label, bool value) {
    QCBOREncode_AddSimple_3(&encoder_, nullptr, static_cast<int64_t>(label), CBOR_TAG_NONE,
                            value ? CBOR_SIMPLEV_TRUE : CBOR_SIMPLEV_FALSE);
}

void RequestWriter::date(MessageLabel label, const tztm& value) {
    CW_ARRAY_LABEL_ENTER(&encoder_, static_cast<int64_t>(label));
    for (int32_t field : {value.tm_sec, value.tm_min, value.tm_hour, value.tm_mday, value.tm_mon,
                          value.tm_year, value.tm_wday, value.tm_yday, value.tm_isdst}) {
        QCBOREncode_AddInt64_3(&encoder_, nullptr, QCBOR_NO_INT_LABEL, CBOR_TAG_NONE, field);
    }
    QCBOREncode_CloseArray(&encoder_);
}

void RequestWriter::bytes(MessageLabel label, const keymaster_blob_t* value) {
    if (!isPresent(value)) return addBytes(label, nullptr, 0);
    addBytes(label, value->data, value->data_length);
}

void RequestWriter::bytes(MessageLabel label, const keymaster_key_blob_t* value) {
    if (!isPresent(value)) return addBytes(label, nullptr, 0);
    addBytes(label, value->key_material, value->key_material_size);
}

void RequestWriter::bytes(MessageLabel label, const std::vector<uint8_t>& value) {
    addBytes(label, value.data(), value.size());
}

void RequestWriter::optionalBytes(MessageLabel label, const keymaster_blob_t* value) {
    if (isPresent(value)) bytes(label, value);
}

void RequestWriter::params(const keymaster_key_param_set_t* set, size_t more) {
    const size_t length = isPresent(set) ? set->length : 0;
    number(MessageLabel::kParamCount, uint64_t{length} + more);
    if (length != 0) addParams(set->params, length, &encoder_);
}

void RequestWriter::optionalParams(const keymaster_key_param_set_t* set) {
    if (isPresent(set)) params(set);
}

void RequestWriter::param(const keymaster_key_param_t& value) {
    addParams(&value, 1, &encoder_);
}

keymaster_error_t RequestWriter::finish() {
    QCBOREncode_CloseArray(&encoder_);
    size_t length = 0;
    if (QCBOREncode_Finish(&encoder_, &length) != QCBOR_SUCCESS) {
        return KM_ERROR_INVALID_INPUT_LENGTH;
    }
    request_->data_length = length;
    return KM_ERROR_OK;
}

void RequestWriter::addBytes(MessageLabel label, const uint8_t* data, size_t size) {
    QCBOREncode_AddBytes_3(&encoder_, nullptr, static_cast<int64_t>(label), CBOR_TAG_NONE,
                           {data, size});
}

}  // namespace keymasterdevice
