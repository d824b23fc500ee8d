// Attestation over records: of keys, and the identifiers of the device that go into certificates.

#include <new>

#include "AttestationDates.h"
#include "KeymasterHalDevice.h"
#include "LegacyExchange.h"
#include "Limits.h"
#include "Outputs.h"
#include "Presence.h"

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

namespace destroy_ids_request {
enum Word : uint32_t { kCommand, kZero, kWords };
static_assert(kWords * kWordBytes == 8, "fixed by the protocol");
}  // namespace destroy_ids_request

using CertificateChain = std::unique_ptr<keymaster_cert_chain_t, CertificateChain_Delete>;

// Kept: for an absent date the words stay as the shared buffer held them, and the last three words
// of a date are never written.
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

// Copies what the table of certificates points at, as far as it goes.
void readCertificates(LegacyExchange& exchange, LegacyResponse& table,
                      const CertificateChain& chain) {
    for (uint32_t i = 0; i < chain->entry_count; ++i) {
        const ByteSpan bytes =
            table.item(i * certificate_entry::kWords + certificate_entry::kOffset);
        MallocedBytes copy = exchange.copyToHeap(bytes);
        if (!copy) return;
        chain->entries[i] = {copy.release(), bytes.length};
    }
}

keymaster_error_t readChain(LegacyExchange& exchange, keymaster_cert_chain_t* cert_chain) {
    LegacyResponse& response = exchange.response();
    const uint32_t count = response.word(attest_response::kNumCertificates);
    if (count > kMaxCertificates) return KM_ERROR_MEMORY_ALLOCATION_FAILED;
    // Where there are no certificates, the offset of their table is not read.
    LegacyResponse table =
        count != 0 ? response.record(response.word(attest_response::kTableOffset)) : response;
    // Bounds are checked before the array is allocated, so that its size cannot exceed the order of
    // the shared buffer's.
    table.bytes(0, count * certificate_entry::kWords * kWordBytes);
    if (!exchange.ok()) return exchange.error();

    CertificateChain chain = makeChain(count);
    if (!chain) return KM_ERROR_MEMORY_ALLOCATION_FAILED;
    readCertificates(exchange, table, chain);
    if (!exchange.ok()) return exchange.error();
    *cert_chain = *chain;
    *chain = {nullptr, 0};
    return KM_ERROR_OK;
}

}  // namespace

keymaster_error_t KeymasterHalDevice::legacy_attest_key(const keymaster_key_blob_t* key_blob,
                                                        const keymaster_key_param_set_t* params,
                                                        keymaster_cert_chain_t* cert_chain) {
    if (!isPresent(key_blob) || params == nullptr || cert_chain == nullptr) {
        return KM_ERROR_UNEXPECTED_NULL_POINTER;
    }
    LegacyExchange exchange(channel(), kAttestKey, attest_request::kWords);
    exchange.addItem(attest_request::kBlobOffset, key_blob->key_material,
                     key_blob->key_material_size);
    if (!exchange.ok()) return exchange.error();  // before a date is logged
    const AttestationDates dates = readAttestationDates(*key_blob);
    setDate(exchange, attest_request::kActiveDate, dates.active);
    setDate(exchange, attest_request::kExpireDate, dates.expire);
    exchange.addOptionalParams(attest_request::kParamsOffset, params);
    if (!exchange.ok()) return exchange.error();
    exchange.send();
    if (!exchange.ok()) {
        clearOutput(cert_chain);
        return exchange.error();
    }
    return readChain(exchange, cert_chain);
}

keymaster_error_t KeymasterHalDevice::legacy_destroy_device_ids() {
    LegacyExchange exchange(channel(), kDestroyDeviceIds, destroy_ids_request::kWords);
    exchange.setWord(destroy_ids_request::kZero, 0);
    exchange.send();
    return exchange.error();
}

}  // namespace keymasterdevice
