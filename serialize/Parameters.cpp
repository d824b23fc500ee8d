#include "Parameters.h"

#include <new>
#include <optional>

#include "EnumBits.h"
#include "KeymasterSerialize.h"
#include "Limits.h"
#include "NextItem.h"

namespace keymasterdevice {

using keymasterutils::KeymasterUtils;

namespace {

// The type of a tag as a number from 0 to 15. The types stand in the top four bits; a switch over
// them there becomes a chain of comparisons for each parameter.
constexpr uint32_t typeNumber(keymaster_tag_type_t type) {
    return static_cast<uint32_t>(type) >> 28;
}

// tag type                       value
// ENUM, ENUM_REP, UINT, UINT_REP unsigned integer, 32 bits
// ULONG, ULONG_REP, DATE         integer, 64 bits; written as signed
// BOOL                           true
// BIGNUM, BYTES                  byte string
// INVALID                        none: writing and reading fail
// any other                      none: not written; read with its tag alone

void addParam(const keymaster_key_param_t& param, QCBOREncodeContext* encoder) {
    // Kept: the tag is widened as signed, so BIGNUM, BYTES and ULONG_REP tags go out negative; read
    // back that way they are refused, and the secure application sends them as positive numbers.
    const int64_t label = static_cast<int32_t>(enumToBits(param.tag));
    switch (typeNumber(keymaster_tag_get_type(param.tag))) {
        case typeNumber(KM_ENUM):
        case typeNumber(KM_ENUM_REP):
        case typeNumber(KM_UINT):
        case typeNumber(KM_UINT_REP):
            QCBOREncode_AddUInt64_3(encoder, nullptr, label, CBOR_TAG_NONE, param.integer);
            break;
        case typeNumber(KM_ULONG):
        case typeNumber(KM_DATE):
        case typeNumber(KM_ULONG_REP):
            QCBOREncode_AddInt64_3(encoder, nullptr, label, CBOR_TAG_NONE,
                                   static_cast<int64_t>(param.long_integer));
            break;
        case typeNumber(KM_BOOL):
            // Kept: true, whatever the field holds.
            QCBOREncode_AddSimple_3(encoder, nullptr, label, CBOR_TAG_NONE, CBOR_SIMPLEV_TRUE);
            break;
        case typeNumber(KM_BIGNUM):
        case typeNumber(KM_BYTES): {
            const bool empty = param.blob.data == nullptr;
            QCBOREncode_AddBytes_3(encoder, nullptr, label, CBOR_TAG_NONE,
                                   {param.blob.data, empty ? 0 : param.blob.data_length});
            break;
        }
        case typeNumber(KM_INVALID):
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
    if (!fetchNext(reader, &item)) return KM_ERROR_INVALID_TAG;
    // A label above the signed range, which is no tag either, has a type of its own.
    if (item.uLabelType != QCBOR_TYPE_INT64 || item.label.uint64 > UINT32_MAX) {
        return KM_ERROR_INVALID_TAG;
    }

    *out = {};
    out->tag = enumFromBits<keymaster_tag_t>(static_cast<uint32_t>(item.label.uint64));
    switch (typeNumber(keymaster_tag_get_type(out->tag))) {
        // Kept: the type of an integer's item is not checked.
        case typeNumber(KM_ENUM):
        case typeNumber(KM_ENUM_REP):
        case typeNumber(KM_UINT):
        case typeNumber(KM_UINT_REP):
            out->integer = static_cast<uint32_t>(item.val.uint64);
            break;
        case typeNumber(KM_ULONG):
        case typeNumber(KM_DATE):
        case typeNumber(KM_ULONG_REP):
            out->long_integer = item.val.uint64;
            break;
        case typeNumber(KM_BOOL):
            out->boolean = true;
            break;
        case typeNumber(KM_BIGNUM):
        case typeNumber(KM_BYTES):
            if (item.uDataType != QCBOR_TYPE_BYTE_STRING &&
                item.uDataType != QCBOR_TYPE_TEXT_STRING) {
                return KM_ERROR_INVALID_TAG;
            }
            out->blob = copyForCaller(
                transport, {static_cast<const uint8_t*>(item.val.string.ptr), item.val.string.len});
            break;
        case typeNumber(KM_INVALID):
            reader->error = KM_ERROR_UNKNOWN_ERROR;
            return KM_ERROR_INVALID_TAG;
        default:
            break;
    }
    return KM_ERROR_OK;
}

}  // namespace

void addParams(const keymaster_key_param_t* params, size_t count, QCBOREncodeContext* encoder) {
    for (size_t i = 0; i < count; ++i) addParam(params[i], encoder);
}

keymaster_error_t parseParams(CborReader* reader, KeymasterUtils* transport, size_t count,
                              keymaster_key_param_t* out) {
    for (size_t i = 0; i < count; ++i) {
        const keymaster_error_t result = parseParam(reader, transport, &out[i]);
        if (result != KM_ERROR_OK) return result;
    }
    return KM_ERROR_OK;
}

keymaster_error_t ResponseParams::read(ResponseReader& response, KeymasterUtils* transport,
                                       keymaster_key_param_set_t* announced) {
    const std::optional<uint32_t> count = response.optionalNumber32(MessageLabel::kParamCount);
    if (!count) return KM_ERROR_OK;
    // Kept: the caller sees the announced count even if the parameters turn out to be bad.
    if (announced != nullptr) announced->length = *count;
    if (*count > kMaxParams) throw std::bad_alloc();
    // More than the response has bytes cannot be there, and a missing one is a bad one.
    if (*count > response.size()) return KM_ERROR_INVALID_TAG;
    if (*count == 0) return KM_ERROR_OK;

    set_.params = new keymaster_key_param_t[*count]();
    set_.length = *count;
    return parseParams(response.reader(), transport, set_.length, set_.params);
}

void ResponseParams::moveTo(keymaster_key_param_set_t* out_params) {
    if (out_params == nullptr || set_.length == 0) return;
    out_params->params = set_.params;
    set_ = {nullptr, 0};
}

}  // namespace keymasterdevice

void KeymasterSerialize::addParams(const keymaster_key_param_t* param,
                                   QCBOREncodeContext* encoder) {
    keymasterdevice::addParams(param, 1, encoder);
}

keymaster_error_t KeymasterSerialize::parseParams(CborReader* reader, keymaster_key_param_t* out) {
    return keymasterdevice::parseParams(reader, transport_, 1, out);
}
