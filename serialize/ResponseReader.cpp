#include "ResponseReader.h"

#include <memory>

#include "EnumBits.h"
#include "NextItem.h"

namespace keymasterdevice {

ResponseReader::ResponseReader(const keymaster_blob_t& response) : size_(response.data_length) {
    QCBORDecode_Init(&decoder_, {response.data, response.data_length}, QCBOR_DECODE_MODE_NORMAL);
    reader_.decoder = &decoder_;
    fillWithOnes(&reader_.item);
    reader_.error = 0;
    CR_MAP_ENTER(&reader_);
}

uint32_t ResponseReader::number32(MessageLabel label) {
    uint32_t value = 0;
    CRGetUint32FromMapWithUint64Label(&reader_, static_cast<uint64_t>(label), &value);
    return value;
}

uint64_t ResponseReader::number64(MessageLabel label) {
    uint64_t value = 0;
    CRGetUint64FromMapWithUint64Label(&reader_, static_cast<uint64_t>(label), &value);
    return value;
}

keymaster_blob_t ResponseReader::bytes(MessageLabel label) {
    keymaster_blob_t value = {nullptr, 0};
    CRGetBytesOrStringFromMapWithUint64Label(&reader_, QCBOR_TYPE_BYTE_STRING,
                                             static_cast<uint64_t>(label), &value);
    return value;
}

std::optional<uint32_t> ResponseReader::optionalNumber32(MessageLabel label) {
    const QCBORDecodeContext before = decoder_;
    const uint32_t value = number32(label);
    if (ok()) return value;
    goBackTo(before);
    return std::nullopt;
}

keymaster_blob_t ResponseReader::optionalBytes(MessageLabel label) {
    const QCBORDecodeContext before = decoder_;
    const keymaster_blob_t value = bytes(label);
    if (!ok()) goBackTo(before);
    return value;
}

keymaster_error_t ResponseReader::finish() {
    return errorFromWord(ok() ? QCBORDecode_Finish(&decoder_) : reader_.error);
}

void ResponseReader::goBackTo(const QCBORDecodeContext& position) {
    decoder_ = position;
    reader_.error = 0;
}

keymaster_blob_t copyForCaller(keymasterutils::KeymasterUtils* transport,
                               const keymaster_blob_t& bytes) {
    std::unique_ptr<uint8_t[]> copy(new uint8_t[bytes.data_length]);
    transport->km_memscpy(copy.get(), bytes.data_length, bytes.data, bytes.data_length);
    return {copy.release(), bytes.data_length};
}

}  // namespace keymasterdevice
