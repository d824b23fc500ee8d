#include "KeymasterSerialize.h"

#include <KeymasterUtils.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "Limits.h"
#include "MessageLabels.h"
#include "Presence.h"

namespace {

using keymasterdevice::isPresent;
using keymasterdevice::kMaxCertificates;
using keymasterdevice::kMaxInputBytes;
using keymasterdevice::kMaxParams;
using keymasterutils::KeymasterUtils;

using ParamSetHolder = std::unique_ptr<keymaster_key_param_set_t, keymasterKeyParamSetDelete>;
using ChainHolder =
    std::unique_ptr<keymaster_cert_chain_t, keymasterdevice::CertificateChain_Delete>;

keymaster_blob_t orEmpty(const keymaster_blob_t* blob) {
    return isPresent(blob) ? *blob : keymaster_blob_t{nullptr, 0};
}

keymaster_blob_t orEmpty(const keymaster_key_blob_t* blob) {
    if (blob == nullptr || blob->key_material == nullptr) return {nullptr, 0};
    return {blob->key_material, blob->key_material_size};
}

keymaster_blob_t bytesOf(const std::vector<uint8_t>& bytes) {
    return {bytes.data(), bytes.size()};
}

// What a decoder hands out: a copy from array new.
std::unique_ptr<uint8_t[]> copyBytes(KeymasterUtils* transport, const keymaster_blob_t& source) {
    std::unique_ptr<uint8_t[]> copy(new uint8_t[source.data_length]);
    transport->km_memscpy(copy.get(), source.data_length, source.data, source.data_length);
    return copy;
}

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

// The parameter group of begin, update and finish responses, which may be absent.
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

// Moves the array to the caller, who has its length already; without a place it is released.
void storeParams(ParamSetHolder params, keymaster_key_param_set_t* out_params) {
    if (out_params == nullptr || params->length == 0) return;
    out_params->params = params->params;
    *params = {nullptr, 0};
}

// An output of no bytes stays as the caller cleared it.
void storeOutput(KeymasterUtils* transport, const keymaster_blob_t& bytes,
                 keymaster_blob_t* output) {
    if (output == nullptr || bytes.data_length == 0) return;
    *output = {copyBytes(transport, bytes).release(), bytes.data_length};
}

}  // namespace

void KeymasterSerialize::addParams(const keymaster_key_param_t* param,
                                   QCBOREncodeContext* encoder) {
    addParam(*param, encoder);
}

keymaster_error_t KeymasterSerialize::parseParams(CborReader* reader, keymaster_key_param_t* out) {
    return parseParam(reader, transport_, out);
}

// ---- Key management ----

keymaster_error_t KeymasterSerialize::serializeClientParams(const keymaster_key_param_set_t* params,
                                                            keymaster_blob_t* request) {
    RequestWriter writer(request);
    writer.params(params);
    return writer.finish();
}

keymaster_error_t KeymasterSerialize::deserializeClientKeyblob(keymaster_blob_t response,
                                                               keymaster_key_blob_t* key_blob) {
    ResponseReader reader(response);
    const keymaster_blob_t bytes = reader.bytes(MessageLabel::kKeyBlob);
    const keymaster_error_t result = reader.finish();
    if (result != KM_ERROR_OK) return result;
    *key_blob = {copyBytes(transport_, bytes).release(), bytes.data_length};
    return KM_ERROR_OK;
}

keymaster_error_t KeymasterSerialize::serializeClientKeyblob(const keymaster_key_blob_t* key_blob,
                                                             keymaster_blob_t* request) {
    RequestWriter writer(request);
    writer.bytes(MessageLabel::kKeyBlob, orEmpty(key_blob));
    return writer.finish();
}

keymaster_error_t KeymasterSerialize::serializeClientParamsKeyblob(
    const keymaster_key_param_set_t* params, const keymaster_key_blob_t* key_blob,
    keymaster_blob_t* request) {
    RequestWriter writer(request);
    writer.params(params);
    writer.bytes(MessageLabel::kKeyBlob, orEmpty(key_blob));
    return writer.finish();
}

keymaster_error_t KeymasterSerialize::serializeClientImpKey(const keymaster_key_param_set_t* params,
                                                            keymaster_key_format_t format,
                                                            const keymaster_blob_t* key_data,
                                                            keymaster_blob_t* request) {
    RequestWriter writer(request);
    writer.params(params);
    writer.number(MessageLabel::kKeyFormat, format);
    writer.bytes(MessageLabel::kKeyData, orEmpty(key_data));
    return writer.finish();
}

// The vectors come by value so that the key material goes with the encoding.
// NOLINTBEGIN(performance-unnecessary-value-param)
keymaster_error_t KeymasterSerialize::serializeClientSecureImportKey(
    const keymaster_key_param_set_t* params, uint64_t password_sid, uint64_t biometric_sid,
    std::vector<uint8_t> wrapped_key_data, std::vector<uint8_t> wrapping_key_blob,
    std::vector<uint8_t> masking_key, keymaster_blob_t* request) {
    RequestWriter writer(request);
    writer.params(params);
    writer.number(MessageLabel::kPasswordSid, password_sid);
    writer.number(MessageLabel::kBiometricSid, biometric_sid);
    // Kept: these three are not in the order of their labels.
    writer.bytes(MessageLabel::kWrappedKeyData, bytesOf(wrapped_key_data));
    writer.bytes(MessageLabel::kWrappingKeyBlob, bytesOf(wrapping_key_blob));
    writer.bytes(MessageLabel::kMaskingKey, bytesOf(masking_key));
    return writer.finish();
}
// NOLINTEND(performance-unnecessary-value-param)

keymaster_error_t KeymasterSerialize::serializeClientExpKey(keymaster_key_format_t format,
                                                            const keymaster_key_blob_t* key_blob,
                                                            const keymaster_blob_t* client_id,
                                                            const keymaster_blob_t* app_data,
                                                            keymaster_blob_t* request) {
    RequestWriter writer(request);
    writer.number(MessageLabel::kParamCount,
                  (isPresent(client_id) ? 1U : 0U) + (isPresent(app_data) ? 1U : 0U));
    keymaster_key_param_t record = {};  // KM_TAG_INVALID, which no request may carry
    if (isPresent(client_id)) {
        record =
            keymaster_param_blob(KM_TAG_APPLICATION_ID, client_id->data, client_id->data_length);
        writer.param(record);
    }
    // Kept: the application data is never loaded. The client id goes out twice in its place, and a
    // request with application data alone does not encode.
    if (isPresent(app_data)) writer.param(record);
    writer.bytes(MessageLabel::kKeyBlob, orEmpty(key_blob));
    writer.number(MessageLabel::kKeyFormat, format);
    return writer.finish();
}

keymaster_error_t KeymasterSerialize::deserializeClientExpKey(keymaster_blob_t response,
                                                              keymaster_blob_t* export_data) {
    ResponseReader reader(response);
    const keymaster_blob_t bytes = reader.bytes(MessageLabel::kOutput);
    const keymaster_error_t result = reader.finish();
    if (result != KM_ERROR_OK) return result;
    *export_data = {copyBytes(transport_, bytes).release(), bytes.data_length};
    return KM_ERROR_OK;
}

keymaster_error_t KeymasterSerialize::serializeClientAttestKey(
    const keymaster_key_param_set_t* params, const keymaster_key_blob_t* key_blob, tztm active,
    tztm expire, keymaster_blob_t* request) {
    RequestWriter writer(request);
    writer.params(params);
    writer.bytes(MessageLabel::kKeyBlob, orEmpty(key_blob));
    writer.date(MessageLabel::kActiveDate, active);
    writer.date(MessageLabel::kExpireDate, expire);
    return writer.finish();
}

keymaster_error_t KeymasterSerialize::deserializeClientAttestKey(
    keymaster_blob_t response, keymaster_cert_chain_t* cert_chain) {
    ResponseReader reader(response);
    const uint32_t count = reader.number32(MessageLabel::kCertCount);
    if (count > kMaxCertificates) throw std::bad_alloc();

    ChainHolder chain(new keymaster_cert_chain_t{nullptr, 0});
    // More than the response has bytes cannot be there: the reader stops at a missing one.
    const size_t room = std::min<size_t>(count, reader.size());
    chain->entries = new keymaster_blob_t[room]();
    chain->entry_count = room;
    for (size_t i = 0; i < room && reader.ok(); ++i) {
        const keymaster_blob_t bytes = reader.bytes(MessageLabel::kCert);
        chain->entries[i] = {copyBytes(transport_, bytes).release(), bytes.data_length};
    }
    const keymaster_error_t result = reader.finish();
    if (result != KM_ERROR_OK) return result;
    *cert_chain = *chain;
    *chain = {nullptr, 0};
    return KM_ERROR_OK;
}

// ---- Operations ----

keymaster_error_t KeymasterSerialize::serializeClientBegin(keymaster_purpose_t purpose,
                                                           const keymaster_key_param_set_t* params,
                                                           const keymaster_key_blob_t* key_blob,
                                                           keymaster_blob_t* request) {
    RequestWriter writer(request);
    writer.params(params, 1);
    writer.param(keymaster_param_enum(KM_TAG_PURPOSE, purpose));
    writer.bytes(MessageLabel::kKeyBlob, orEmpty(key_blob));
    return writer.finish();
}

keymaster_error_t KeymasterSerialize::deserializeClientBegin(keymaster_blob_t response,
                                                             keymaster_key_param_set_t* out_params,
                                                             uint64_t* op_handle) {
    ResponseReader reader(response);
    ParamSetHolder params;
    keymaster_error_t result = readParams(transport_, reader, out_params, &params);
    if (result != KM_ERROR_OK) return result;
    const uint64_t handle = reader.number64(MessageLabel::kOperationHandle);
    result = reader.finish();
    if (result != KM_ERROR_OK) return result;
    *op_handle = handle;
    storeParams(std::move(params), out_params);
    return KM_ERROR_OK;
}

keymaster_error_t KeymasterSerialize::serializeClientUpdate(uint64_t op_handle,
                                                            const keymaster_key_param_set_t* params,
                                                            const keymaster_blob_t* input,
                                                            keymaster_blob_t* request) {
    keymaster_blob_t taken = orEmpty(input);
    taken.data_length = std::min(taken.data_length, kMaxInputBytes);
    RequestWriter writer(request);
    writer.number(MessageLabel::kOperationHandle, op_handle);
    writer.optionalParams(params);
    writer.optionalBytes(MessageLabel::kInput, &taken);
    return writer.finish();
}

keymaster_error_t KeymasterSerialize::deserializeClientUpdate(keymaster_blob_t response,
                                                              keymaster_key_param_set_t* out_params,
                                                              keymaster_blob_t* output,
                                                              uint32_t* input_consumed) {
    ResponseReader reader(response);
    ParamSetHolder params;
    keymaster_error_t result = readParams(transport_, reader, out_params, &params);
    if (result != KM_ERROR_OK) return result;
    const keymaster_blob_t bytes = reader.optionalBytes(MessageLabel::kOutput);
    const uint32_t consumed = reader.number32(MessageLabel::kInputConsumed);
    result = reader.finish();
    if (result != KM_ERROR_OK) return result;
    storeOutput(transport_, bytes, output);
    *input_consumed = consumed;
    storeParams(std::move(params), out_params);
    return KM_ERROR_OK;
}

keymaster_error_t KeymasterSerialize::serializeClientFinish(uint64_t op_handle,
                                                            const keymaster_key_param_set_t* params,
                                                            const keymaster_blob_t* input,
                                                            const keymaster_blob_t* signature,
                                                            keymaster_blob_t* request) {
    RequestWriter writer(request);
    writer.number(MessageLabel::kOperationHandle, op_handle);
    writer.optionalParams(params);
    writer.optionalBytes(MessageLabel::kInput, input);
    writer.optionalBytes(MessageLabel::kSignature, signature);
    return writer.finish();
}

keymaster_error_t KeymasterSerialize::deserializeClientFinish(keymaster_blob_t response,
                                                              keymaster_key_param_set_t* out_params,
                                                              keymaster_blob_t* output) {
    ResponseReader reader(response);
    ParamSetHolder params;
    keymaster_error_t result = readParams(transport_, reader, out_params, &params);
    if (result != KM_ERROR_OK) return result;
    const keymaster_blob_t bytes = reader.optionalBytes(MessageLabel::kOutput);
    result = reader.finish();
    if (result != KM_ERROR_OK) return result;
    storeOutput(transport_, bytes, output);
    storeParams(std::move(params), out_params);
    return KM_ERROR_OK;
}

keymaster_error_t KeymasterSerialize::serializeClientAbort(uint64_t op_handle,
                                                           keymaster_blob_t* request) {
    RequestWriter writer(request);
    writer.number(MessageLabel::kOperationHandle, op_handle);
    return writer.finish();
}

// ---- Device ids, HMAC agreement, device lock ----

keymaster_error_t KeymasterSerialize::serializeClientDestroyDeviceIds(bool flag,
                                                                      keymaster_blob_t* request) {
    RequestWriter writer(request);
    writer.flag(MessageLabel::kDestroyDeviceIds, flag);
    return writer.finish();
}

keymaster_error_t KeymasterSerialize::deserializeClientGetHmacParams(
    keymaster_blob_t response, hmac_sharing_params_t* params) {
    ResponseReader reader(response);
    const keymaster_blob_t seed = reader.bytes(MessageLabel::kHmacSeed);
    const keymaster_blob_t nonce = reader.bytes(MessageLabel::kHmacNonce);
    const keymaster_error_t result = reader.finish();
    if (result != KM_ERROR_OK) return result;
    transport_->km_memscpy(params->seed, sizeof(params->seed), seed.data, seed.data_length);
    transport_->km_memscpy(params->nonce, sizeof(params->nonce), nonce.data, nonce.data_length);
    return KM_ERROR_OK;
}

keymaster_error_t KeymasterSerialize::serializeClientComputeHmacParams(
    std::vector<hmac_sharing_params_t> params, keymaster_blob_t* request) {
    RequestWriter writer(request);
    writer.bytes(MessageLabel::kHmacParams, {reinterpret_cast<const uint8_t*>(params.data()),
                                             params.size() * sizeof(hmac_sharing_params_t)});
    return writer.finish();
}

keymaster_error_t KeymasterSerialize::deserializeClientComputeHmacParams(
    keymaster_blob_t response, std::vector<uint8_t>& sharing_check) {
    ResponseReader reader(response);
    const keymaster_blob_t bytes = reader.bytes(MessageLabel::kHmacCheck);
    const keymaster_error_t result = reader.finish();
    if (result != KM_ERROR_OK) return result;
    sharing_check.insert(sharing_check.end(), bytes.data, bytes.data + bytes.data_length);
    return KM_ERROR_OK;
}

keymaster_error_t KeymasterSerialize::serializeClientSetDeviceLocked(bool flag,
                                                                     keymaster_blob_t* request) {
    RequestWriter writer(request);
    writer.flag(MessageLabel::kDeviceLocked, flag);
    return writer.finish();
}
