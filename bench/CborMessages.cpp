#include "CborMessages.h"

#include <cbor.h>

#include <cstring>

#include "Params.h"
#include "Scratch.h"

namespace lumo::bench {
namespace {

constexpr size_t kRoom = 1 << 15;
constexpr uint64_t kParamCount = 22;
constexpr uint64_t kOperationHandle = 34;

// ---- libcbor's streaming encoder, into a buffer that is known to be large enough ----

struct Out {
    uint8_t* at;
    uint8_t* end;

    size_t left() const { return static_cast<size_t>(end - at); }
    void number(uint64_t value) { at += cbor_encode_uint(value, at, left()); }
    void label(int64_t value) {
        if (value >= 0) return number(static_cast<uint64_t>(value));
        at += cbor_encode_negint(~static_cast<uint64_t>(value), at, left());
    }
    void bytes(const keymaster_blob_t& blob) {
        at += cbor_encode_bytestring_start(blob.data_length, at, left());
        std::memcpy(at, blob.data, blob.data_length);
        at += blob.data_length;
    }
};

// `signed_labels`: as the library writes tags; else as the secure application does.
void writeParam(Out& out, const keymaster_key_param_t& param, bool signed_labels) {
    if (signed_labels) {
        out.label(static_cast<int32_t>(param.tag));
    } else {
        out.number(static_cast<uint32_t>(param.tag));
    }
    switch (keymaster_tag_get_type(param.tag)) {
        case KM_BYTES:
        case KM_BIGNUM:
            return out.bytes(param.blob);
        case KM_BOOL:
            out.at += cbor_encode_bool(true, out.at, out.left());
            return;
        case KM_DATE:
        case KM_ULONG:
        case KM_ULONG_REP:
            return out.number(param.long_integer);
        default:
            return out.number(param.integer);
    }
}

void addWithQcbor(QCBOREncodeContext& encoder, const keymaster_key_param_t& param) {
    const int64_t label = static_cast<int32_t>(param.tag);
    switch (keymaster_tag_get_type(param.tag)) {
        case KM_BYTES:
        case KM_BIGNUM:
            return QCBOREncode_AddBytes_3(&encoder, nullptr, label, CBOR_TAG_NONE,
                                          {param.blob.data, param.blob.data_length});
        case KM_BOOL:
            return QCBOREncode_AddSimple_3(&encoder, nullptr, label, CBOR_TAG_NONE,
                                           CBOR_SIMPLEV_TRUE);
        case KM_DATE:
        case KM_ULONG:
        case KM_ULONG_REP:
            return QCBOREncode_AddInt64_3(&encoder, nullptr, label, CBOR_TAG_NONE,
                                          static_cast<int64_t>(param.long_integer));
        default:
            return QCBOREncode_AddUInt64_3(&encoder, nullptr, label, CBOR_TAG_NONE, param.integer);
    }
}

}  // namespace

ParamsRequest::ParamsRequest(size_t count)
    : params_(coreParams(count)),
      set_{params_.data(), params_.size()},
      buffer_(kRoom),
      transport_(KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT) {
    const std::vector<uint8_t> ours(buffer_.begin(), buffer_.begin() + static_cast<int>(encode()));
    const std::vector<uint8_t> libcbors(buffer_.begin(),
                                        buffer_.begin() + static_cast<int>(encodeWithLibcbor()));
    const std::vector<uint8_t> qcbors(buffer_.begin(),
                                      buffer_.begin() + static_cast<int>(encodeWithQcbor()));
    require(encode() > 0 && ours == libcbors && ours == qcbors, "the encodings differ");
}

size_t ParamsRequest::encode() {
    keymaster_blob_t request = {buffer_.data(), buffer_.size()};
    KeymasterSerialize codec(&transport_);
    require(codec.serializeClientParams(&set_, &request) == KM_ERROR_OK, "cannot encode");
    return request.data_length;
}

size_t ParamsRequest::encodeWithLibcbor() {
    Out out = {buffer_.data(), buffer_.data() + buffer_.size()};
    out.at += cbor_encode_map_start(1 + params_.size(), out.at, out.left());
    out.number(kParamCount);
    out.number(params_.size());
    for (const keymaster_key_param_t& param : params_) writeParam(out, param, true);
    return static_cast<size_t>(out.at - buffer_.data());
}

size_t ParamsRequest::encodeWithQcbor() {
    QCBOREncodeContext encoder;
    QCBOREncode_Init(&encoder, buffer_.data(), buffer_.size());
    QCBOREncode_OpenMap(&encoder);
    QCBOREncode_AddUInt64ToMapN(&encoder, kParamCount, params_.size());
    for (const keymaster_key_param_t& param : params_) addWithQcbor(encoder, param);
    QCBOREncode_CloseMap(&encoder);
    size_t size = 0;
    require(QCBOREncode_Finish(&encoder, &size) == QCBOR_SUCCESS, "QCBOR cannot encode");
    return size;
}

ParamsResponse::ParamsResponse(size_t count)
    : message_(kRoom), transport_(KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT) {
    Out out = {message_.data(), message_.data() + message_.size()};
    out.at += cbor_encode_map_start(2 + count, out.at, out.left());
    out.number(kParamCount);
    out.number(count);
    for (const keymaster_key_param_t& param : coreParams(count)) writeParam(out, param, false);
    out.number(kOperationHandle);
    out.number(0x1122334455667788);
    message_.resize(static_cast<size_t>(out.at - message_.data()));
    decode();
}

void ParamsResponse::decode() {
    keymaster_key_param_set_t params = {nullptr, 0};
    uint64_t handle = 0;
    KeymasterSerialize codec(&transport_);
    const keymaster_error_t error =
        codec.deserializeClientBegin({message_.data(), message_.size()}, &params, &handle);
    require(error == KM_ERROR_OK && handle == 0x1122334455667788, "cannot decode");
    for (size_t i = 0; i < params.length; ++i) {
        const keymaster_tag_type_t type = keymaster_tag_get_type(params.params[i].tag);
        if (type == KM_BYTES || type == KM_BIGNUM) delete[] params.params[i].blob.data;
    }
    delete[] params.params;
}

uint64_t ParamsResponse::decodeWithQcbor() {
    QCBORDecodeContext decoder;
    QCBORDecode_Init(&decoder, {message_.data(), message_.size()}, QCBOR_DECODE_MODE_NORMAL);
    QCBORItem item;
    uint64_t sum = 0;
    while (QCBORDecode_GetNext(&decoder, &item) == QCBOR_SUCCESS) {
        const bool string = item.uDataType == QCBOR_TYPE_BYTE_STRING;
        sum += string ? item.val.string.len : item.val.uint64;
    }
    require(QCBORDecode_Finish(&decoder) == QCBOR_SUCCESS, "QCBOR cannot decode");
    return sum;
}

}  // namespace lumo::bench
