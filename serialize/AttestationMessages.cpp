// The messages of attestation and of the device identifiers that it may certify.

#include <algorithm>
#include <memory>
#include <new>

#include "KeymasterSerialize.h"
#include "Limits.h"
#include "Outputs.h"
#include "RequestWriter.h"
#include "ResponseReader.h"

using keymasterdevice::copyForCaller;
using keymasterdevice::kMaxCertificates;
using keymasterdevice::RequestWriter;
using keymasterdevice::ResponseReader;

// ---- attest_key ----

// Request:
//   kParamCount, the parameters
//   kKeyBlob
//   kActiveDate
//   kExpireDate
keymaster_error_t KeymasterSerialize::serializeClientAttestKey(
    const keymaster_key_param_set_t* params, const keymaster_key_blob_t* key_blob, tztm active,
    tztm expire, keymaster_blob_t* request) {
    RequestWriter writer(request);
    writer.params(params);
    writer.bytes(MessageLabel::kKeyBlob, key_blob);
    writer.date(MessageLabel::kActiveDate, active);
    writer.date(MessageLabel::kExpireDate, expire);
    return writer.finish();
}

// Answer:
//   kCertCount
//   kCert, once for each certificate
keymaster_error_t KeymasterSerialize::deserializeClientAttestKey(
    keymaster_blob_t response, keymaster_cert_chain_t* cert_chain) {
    ResponseReader reader(response);
    const uint32_t count = reader.number32(MessageLabel::kCertCount);
    if (count > kMaxCertificates) throw std::bad_alloc();

    std::unique_ptr<keymaster_cert_chain_t, keymasterdevice::CertificateChain_Delete> chain(
        new keymaster_cert_chain_t{nullptr, 0});
    // More than the response has bytes cannot be there: the reader stops at a missing one.
    const size_t room = std::min<size_t>(count, reader.size());
    chain->entries = new keymaster_blob_t[room]();
    chain->entry_count = room;
    for (size_t i = 0; i < room && reader.ok(); ++i) {
        chain->entries[i] = copyForCaller(transport_, reader.bytes(MessageLabel::kCert));
    }
    const keymaster_error_t result = reader.finish();
    if (result != KM_ERROR_OK) return result;
    *cert_chain = *chain;
    *chain = {nullptr, 0};
    return KM_ERROR_OK;
}

// ---- destroy_device_ids ----

//   kDestroyDeviceIds
keymaster_error_t KeymasterSerialize::serializeClientDestroyDeviceIds(bool flag,
                                                                      keymaster_blob_t* request) {
    RequestWriter writer(request);
    writer.flag(MessageLabel::kDestroyDeviceIds, flag);
    return writer.finish();
}
