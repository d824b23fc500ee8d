#include "secureapp/protocol/SharingRecords.h"

#include <algorithm>

#include "secureapp/base/Refusal.h"

namespace lumo::secureapp {
namespace {

HmacSharingParameters readRecord(ByteView record) {
    const ByteView seed = record.sub(0, kSharingSeedBytes);
    HmacSharingParameters parameters;
    parameters.nonce = record.sub(kSharingSeedBytes).copy();
    const bool has_seed =
        std::any_of(seed.begin(), seed.end(), [](uint8_t byte) { return byte != 0; });
    if (has_seed) parameters.seed = seed.copy();
    return parameters;
}

}  // namespace

Bytes wireSeed(const HmacSharingParameters& parameters) {
    Bytes seed = parameters.seed;
    seed.resize(kSharingSeedBytes, 0);
    return seed;
}

std::vector<HmacSharingParameters> readSharingRecords(ByteView records) {
    if (records.size() % kSharingRecordBytes != 0) {
        refuse(KM_ERROR_INVALID_ARGUMENT, records.size(),
               " bytes of sharing parameters are not in "
               "records of ",
               kSharingRecordBytes);
    }
    std::vector<HmacSharingParameters> all;
    for (size_t offset = 0; offset < records.size(); offset += kSharingRecordBytes) {
        all.push_back(readRecord(records.sub(offset, kSharingRecordBytes)));
    }
    return all;
}

}  // namespace lumo::secureapp
