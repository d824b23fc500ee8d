// Attestation of keys.

#include <KeymasterUtils.h>

#include <new>

#include "AttestationDates.h"
#include "KeymasterHalDevice.h"
#include "LegacyExchange.h"
#include "Limits.h"
#include "Outputs.h"

namespace keymasterdevice {
namespace {

namespace date_record {
enum Word : uint32_t {
    kSecond,
    kMinute,
    kHour,
    kDay,
    kMonth,
    kYear,
    kUnwritten1,
    kUnwritten2,
    kUnwritten3,
    kWords,
};
}  // namespace date_record

namespace attest_request {
enum Word : uint32_t {
    kCommand,
    kBlobOffset,
    kBlobBytes,
    kParamsOffset,
    kNumParams,
    kActiveDate,
    kExpireDate = kActiveDate + date_record::kWords,
    kWords = kExpireDate + date_record::kWords,
};
static_assert(kWords * kWordBytes == 92, "fixed by the protocol");
}  // namespace attest_request

namespace attest_response {
enum Word : uint32_t { kStatus, kUnread1, kTableOffset, kUnread3, kNumCertificates };
}  // namespace attest_response

// One for each certificate; the offset counts from the start of the table.
namespace certificate_entry {
enum Word : uint32_t { kOffset, kBytes, kWords };
}  // namespace certificate_entry

using CertificateChain = std::unique_ptr<keymaster_cert_chain_t, CertificateChain_Delete>;

// Kept: a date that is not told leaves the words as the shared buffer held them, and the last three
// words of a date are never written.
void setDate(LegacyExchange& exchange, uint32_t index, const tztm& date) {
    if (!hasDate(date)) return;
    exchange.setWord(index + date_record::kSecond, static_cast<uint32_t>(date.tm_sec));
    exchange.setWord(index + date_record::kMinute, static_cast<uint32_t>(date.tm_min));
    exchange.setWord(index + date_record::kHour, static_cast<uint32_t>(date.tm_hour));
    exchange.setWord(index + date_record::kDay, static_cast<uint32_t>(date.tm_mday));
    exchange.setWord(index + date_record::kMonth, static_cast<uint32_t>(date.tm_mon));
    exchange.setWord(index + date_record::kYear, static_cast<uint32_t>(date.tm_year));
}

// A chain of `count` empty entries, or null. The entries are zeroed, so that the deleter may walk
// all of them at any time.
CertificateChain makeChain(uint32_t count) {
    CertificateChain chain(new (std::nothrow) keymaster_cert_chain_t{nullptr, 0});
    if (!chain) return nullptr;
    chain->entries = new (std::nothrow) keymaster_blob_t[count]();
    if (chain->entries == nullptr) return nullptr;
    chain->entry_count = count;
    return chain;
}

keymaster_error_t takeCertificates(keymasterutils::KeymasterUtils& transport, LegacyResponse& table,
                                   const CertificateChain& chain) {
    for (uint32_t i = 0; i < chain->entry_count; ++i) {
        const ByteSpan bytes =
            table.item(i * certificate_entry::kWords + certificate_entry::kOffset);
        if (!table.ok()) return KM_ERROR_UNKNOWN_ERROR;
        MallocedBytes copy = copyToHeap(transport, bytes);
        if (!copy) return KM_ERROR_MEMORY_ALLOCATION_FAILED;
        chain->entries[i] = {copy.release(), bytes.length};
    }
    return KM_ERROR_OK;
}

keymaster_error_t takeChain(keymasterutils::KeymasterUtils& transport, LegacyResponse& response,
                            keymaster_cert_chain_t* cert_chain) {
    const uint32_t count = response.word(attest_response::kNumCertificates);
    if (count > kMaxCertificates) return KM_ERROR_MEMORY_ALLOCATION_FAILED;
    LegacyResponse table;
    if (count != 0) table = response.record(response.word(attest_response::kTableOffset));
    if (!response.ok()) return KM_ERROR_UNKNOWN_ERROR;
    // Asked before there is an array, so that its size cannot exceed the shared buffer's order.
    table.bytes(0, count * certificate_entry::kWords * kWordBytes);
    if (!table.ok()) return KM_ERROR_UNKNOWN_ERROR;

    CertificateChain chain = makeChain(count);
    if (!chain) return KM_ERROR_MEMORY_ALLOCATION_FAILED;
    const keymaster_error_t error = takeCertificates(transport, table, chain);
    if (error != KM_ERROR_OK) return error;
    *cert_chain = *chain;
    *chain = {nullptr, 0};
    return KM_ERROR_OK;
}

}  // namespace

keymaster_error_t KeymasterHalDevice::legacy_attest_key(const keymaster_key_blob_t* key_blob,
                                                        const keymaster_key_param_set_t* params,
                                                        keymaster_cert_chain_t* cert_chain) {
    if (key_blob == nullptr || key_blob->key_material == nullptr ||
        key_blob->key_material_size == 0 || params == nullptr || cert_chain == nullptr) {
        return KM_ERROR_UNEXPECTED_NULL_POINTER;
    }
    keymaster_error_t error = bringUpLink(channel(), kAttestKey);
    if (error != KM_ERROR_OK) return error;

    LegacyExchange exchange(channel(), kAttestKey, attest_request::kWords);
    exchange.addItem(attest_request::kBlobOffset, key_blob->key_material,
                     key_blob->key_material_size);
    const AttestationDates dates = readAttestationDates(*key_blob);
    setDate(exchange, attest_request::kActiveDate, dates.active);
    setDate(exchange, attest_request::kExpireDate, dates.expire);
    exchange.addOptionalParams(attest_request::kParamsOffset, params);
    if (exchange.error() != KM_ERROR_OK) return exchange.error();
    error = exchange.send();
    if (error != KM_ERROR_OK) {
        *cert_chain = {nullptr, 0};
        return error;
    }
    return takeChain(*transport_, exchange.response(), cert_chain);
}

}  // namespace keymasterdevice
