#include "Parameters.h"

#include <cstring>
#include <new>
#include <utility>

#include "KeymasterSerialize.h"
#include "Limits.h"
#include "RequestWriter.h"
#include "ResponseReader.h"

namespace keymasterdevice {

using keymasterutils::KeymasterUtils;

void addParam(const keymaster_key_param_t& param, QCBOREncodeContext* encoder) {
    // Kept: the tag is widened as signed, so BIGNUM, BYTES and ULONG_REP tags go out negative; read
    // back that way they are refused, and the secure application sends them as positive numbers.
    const int64_t label = static_cast<int32_t>(param.tag);
    switch (keymaster_tag_get_type(param.tag)) {
        case KM_ENUM:
        case KM_ENUM_REP:
        case KM_UINT:
        case KM_UINT_REP:
            QCBOREncode_AddUInt64_3(encoder, nullptr, label, CBOR_TAG_NONE, param.integer);
            break;
        case KM_ULONG:
        case KM_DATE:
        case KM_ULONG_REP:
            QCBOREncode_AddInt64_3(encoder, nullptr, label, CBOR_TAG_NONE,
                                   static_cast<int64_t>(param.long_integer));
            break;
        case KM_BOOL:
            // Kept: true, whatever the field holds.
            QCBOREncode_AddSimple_3(encoder, nullptr, label, CBOR_TAG_NONE, CBOR_SIMPLEV_TRUE);
            break;
        case KM_BIGNUM:
        case KM_BYTES: {
            const keymaster_blob_t bytes = orEmpty(&param.blob);
            QCBOREncode_AddBytes_3(encoder, nullptr, label, CBOR_TAG_NONE,
                                   {bytes.data, bytes.data_length});
            break;
        }
        case KM_INVALID:
            encoder->uError = QCBOR_ERR_UNSUPPORTED;
            break;
        default:
            // Kept: a tag of an unknown type is counted by its set but not written.
            break;
    }
}

keymaster_error_t parseParam(CborReader* reader, KeymasterUtils* transport,
                             keymaster_key_param_t* out) {
    QCBORItem item;
    std::memset(&item, 0xFF, sizeof(item));
    reader->error = QCBORDecode_GetNext(reader->decoder, &item);
    if (reader->error != QCBOR_SUCCESS) return KM_ERROR_INVALID_TAG;
    const bool integer =
        item.uLabelType == QCBOR_TYPE_INT64 || item.uLabelType == QCBOR_TYPE_UINT64;
    if (!integer || item.label.uint64 > UINT32_MAX) return KM_ERROR_INVALID_TAG;

    *out = {};
    out->tag = static_cast<keymaster_tag_t>(item.label.uint64);
    switch (keymaster_tag_get_type(out->tag)) {
        // Kept: the type of an integer's item is not checked.
        case KM_ENUM:
        case KM_ENUM_REP:
        case KM_UINT:
        case KM_UINT_REP:
            out->integer = static_cast<uint32_t>(item.val.uint64);
            break;
        case KM_ULONG:
        case KM_DATE:
        case KM_ULONG_REP:
            out->long_integer = item.val.uint64;
            break;
        case KM_BOOL:
            out->boolean = true;
            break;
        case KM_BIGNUM:
        case KM_BYTES: {
            if (item.uDataType != QCBOR_TYPE_BYTE_STRING &&
                item.uDataType != QCBOR_TYPE_TEXT_STRING) {
                return KM_ERROR_INVALID_TAG;
            }
            const keymaster_blob_t bytes = {static_cast<const uint8_t*>(item.val.string.ptr),
                                            item.val.string.len};
            out->blob = {copyBytes(transport, bytes).release(), bytes.data_length};
            break;
        }
        case KM_INVALID:
            reader->error = KM_ERROR_UNKNOWN_ERROR;
            return KM_ERROR_INVALID_TAG;
        default:
            break;
    }
    return KM_ERROR_OK;
}

keymaster_error_t readParams(KeymasterUtils* transport, ResponseReader& response,
                             keymaster_key_param_set_t* announced, ParamSetHolder* params) {
    params->reset(new keymaster_key_param_set_t{nullptr, 0});
    uint32_t count = 0;
    const auto readCount = [&] { count = response.number32(MessageLabel::kParamCount); };
    if (!response.optional(readCount)) return KM_ERROR_OK;
    // Kept: the caller sees the announced count even if the parameters turn out to be bad.
    if (announced != nullptr) announced->length = count;
    if (count > kMaxParams) throw std::bad_alloc();
    // More than the response has bytes cannot be there, and a missing one is a bad one.
    if (count > response.size()) return KM_ERROR_INVALID_TAG;
    if (count == 0) return KM_ERROR_OK;

    (*params)->params = new keymaster_key_param_t[count]();
    (*params)->length = count;
    for (uint32_t i = 0; i < count; ++i) {
        const keymaster_error_t result =
            parseParam(response.reader(), transport, &(*params)->params[i]);
        if (result != KM_ERROR_OK) return result;
    }
    return KM_ERROR_OK;
}

void storeParams(ParamSetHolder params, keymaster_key_param_set_t* out_params) {
    if (out_params == nullptr || params->length == 0) return;
    out_params->params = params->params;
    *params = {nullptr, 0};
}

}  // namespace keymasterdevice

void KeymasterSerialize::addParams(const keymaster_key_param_t* param,
                                   QCBOREncodeContext* encoder) {
    keymasterdevice::addParam(*param, encoder);
}

keymaster_error_t KeymasterSerialize::parseParams(CborReader* reader, keymaster_key_param_t* out) {
    return keymasterdevice::parseParam(reader, transport_, out);
}
