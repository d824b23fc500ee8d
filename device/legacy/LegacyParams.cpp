#include "LegacyParams.h"

#include <algorithm>

#include "ByteOrder.h"
#include "KeymasterHalDevice.h"
#include "LegacyRecords.h"

namespace keymasterdevice {
namespace {

enum ParamRecord : uint32_t { kTag, kFirstValue, kSecondValue, kParamWords };
constexpr uint32_t kParamBytes = kParamWords * kWordBytes;
static_assert(kParamBytes == 12, "fixed by the protocol");

// One record, sent once for each parameter.
// Kept: it is filled with 0xFF before the first parameter and not cleared between parameters, so
// words and bytes that a type does not use travel as the previous record had them.
class StagingRecord {
  public:
    StagingRecord() { std::fill_n(bytes_, sizeof(bytes_), uint8_t{0xFF}); }

    void set(ParamRecord word, uint32_t value) { storeLe32(bytes_ + word * kWordBytes, value); }
    void setLowestByte(ParamRecord word, uint8_t value) { bytes_[word * kWordBytes] = value; }
    const uint8_t* data() const { return bytes_; }

  private:
    uint8_t bytes_[kParamBytes];
};

ErrorWord stageBlob(StagingRecord& record, KeymasterBuffer& builder, const keymaster_blob_t& blob) {
    if (blob.data == nullptr && blob.data_length != 0) return KM_ERROR_UNEXPECTED_NULL_POINTER;
    const uint32_t length = narrowLength(blob.data_length);
    record.set(kFirstValue, builder.get_indirect_buf_offset_from_main());
    record.set(kSecondValue, length);
    return errorToWord(builder.append_to_indirect_buf(blob.data, length));
}

void stageLong(StagingRecord& record, uint64_t value) {
    record.set(kFirstValue, static_cast<uint32_t>(value));
    record.set(kSecondValue, static_cast<uint32_t>(value >> 32));
}

ErrorWord stage(StagingRecord& record, KeymasterBuffer& builder,
                const keymaster_key_param_t& param) {
    const keymaster_tag_type_t type = keymaster_tag_get_type(param.tag);
    switch (type) {
        case KM_INVALID:
            return KM_ERROR_INVALID_TAG;
        case KM_ENUM:
        case KM_ENUM_REP:
        case KM_UINT:
        case KM_UINT_REP:
            record.set(kTag, static_cast<uint32_t>(param.tag));
            record.set(kFirstValue, param.integer);
            return KM_ERROR_OK;
        case KM_ULONG:
        case KM_ULONG_REP:
        case KM_DATE:
            record.set(kTag, static_cast<uint32_t>(param.tag));
            stageLong(record, param.long_integer);
            return KM_ERROR_OK;
        case KM_BOOL:
            record.set(kTag, static_cast<uint32_t>(param.tag));
            record.setLowestByte(kFirstValue, param.boolean ? 1 : 0);
            return KM_ERROR_OK;
        case KM_BIGNUM:
        case KM_BYTES:
            record.set(kTag, static_cast<uint32_t>(param.tag));
            return stageBlob(record, builder, param.blob);
    }
    // Kept: a tag of no known type sends the previous record once more, tag included.
    return KM_ERROR_OK;
}

}  // namespace

ErrorWord serializeLegacyParams(KeymasterBuffer& builder, const keymaster_key_param_t* params,
                                uint32_t count) {
    StagingRecord record;
    ErrorWord error =
        errorToWord(builder.set_indirect_buf(narrowLength(uint64_t{count} * kParamBytes)));
    for (uint32_t i = 0; error == KM_ERROR_OK && i < count; ++i) {
        error = stage(record, builder, params[i]);
        if (error != KM_ERROR_OK) break;
        error = errorToWord(builder.append_to_buf(record.data(), kParamBytes));
    }
    if (error == KM_ERROR_OK) builder.reset_indirect_buf();
    return error;
}

keymaster_error_t KeymasterHalDevice::params_serialize(std::unique_ptr<KeymasterBuffer>& builder,
                                                       keymaster_key_param_t* params,
                                                       unsigned int count) {
    if (!builder || (params == nullptr && count != 0)) return KM_ERROR_UNEXPECTED_NULL_POINTER;
    return errorFromWord(serializeLegacyParams(*builder, params, count));
}

}  // namespace keymasterdevice
