// Operations over records: begin, update, finish and abort.
//
// The secure application handles ECDSA signatures as raw r and s. The operation purpose map tells
// finish which operations are of EC keys, whose signatures it must convert from or to DER.

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>

#include "BadAlloc.h"
#include "KeymasterCryptoDevice.h"
#include "KeymasterHalDevice.h"
#include "LegacyExchange.h"
#include "Limits.h"
#include "Log.h"
#include "Outputs.h"
#include "Presence.h"

namespace keymasterdevice {
namespace {

// Input bytes in one request, so that it and its response fit into the shared buffer.
constexpr size_t kMaxStrongBoxInputBytes = 18432;

namespace begin_request {
enum Word : uint32_t {
    kCommand,
    kPurpose,
    kBlobOffset,
    kBlobBytes,
    kParamsOffset,
    kNumParams,
    kWords,
};
static_assert(kWords * kWordBytes == 24, "fixed by the protocol");
}  // namespace begin_request

namespace begin_response {
enum Word : uint32_t {
    kStatus,
    kUnread,
    kHandleLow,
    kHandleHigh,
    kAlgorithm,
    kNonce,
    kNonceBytes = kNonce + 4,
};
}  // namespace begin_response

namespace update_request {
enum Word : uint32_t {
    kCommand,
    kHandleLow,
    kHandleHigh,
    kParamsOffset,
    kNumParams,
    kInputOffset,
    kInputBytes,
    kWords,
};
static_assert(kWords * kWordBytes == 28, "fixed by the protocol");
}  // namespace update_request

namespace finish_request {
enum Word : uint32_t {
    kCommand,
    kHandleLow,
    kHandleHigh,
    kParamsOffset,
    kNumParams,
    kInputOffset,
    kInputBytes,
    kSignatureOffset,
    kSignatureBytes,
    kWords,
};
static_assert(kWords * kWordBytes == 36, "fixed by the protocol");
}  // namespace finish_request

// Stands in place of a DER signature; r and s follow it, their offsets count from the request.
namespace signature_record {
enum Word : uint32_t { kROffset, kRBytes, kSOffset, kSBytes, kWords };
constexpr uint32_t kBytes = kWords * kWordBytes;
static_assert(kBytes == 16, "fixed by the protocol");
}  // namespace signature_record

// The output pair is filled in before sending: where the output may go and how long it may be.
namespace update_response {
enum Word : uint32_t { kStatus, kUnread, kOutputOffset, kOutputBytes, kInputConsumed, kWords };
constexpr uint32_t kBytes = kWords * kWordBytes;
static_assert(kBytes == 20, "fixed by the protocol");
}  // namespace update_response

namespace finish_response {
enum Word : uint32_t { kStatus, kUnread, kOutputOffset, kOutputBytes, kWords };
constexpr uint32_t kBytes = kWords * kWordBytes;
static_assert(kBytes == 16, "fixed by the protocol");
}  // namespace finish_response

namespace abort_request {
enum Word : uint32_t { kCommand, kHandleLow, kHandleHigh, kWords };
static_assert(kWords * kWordBytes == 12, "fixed by the protocol");
}  // namespace abort_request

struct ParamDeleter {
    void operator()(keymaster_key_param_t* param) const {
        keymaster_key_param_set_t set = {param, 1};
        releaseOutput(&set);
    }
};
using OwnedParam = std::unique_ptr<keymaster_key_param_t, ParamDeleter>;

// The nonce of a begun operation, for a caller who must have a place for it. Null where there is
// none, and after a failure.
OwnedParam readNonce(LegacyExchange& exchange, bool has_place) {
    LegacyResponse& response = exchange.response();
    const uint32_t length = response.word(begin_response::kNonceBytes);
    if (!exchange.ok() || length == 0) return nullptr;
    if (!has_place) {
        exchange.storeFirstError(KM_ERROR_OUTPUT_PARAMETER_NULL);
        return nullptr;
    }
    // Kept: the length is bounded by the shared buffer only, not by the four words before it.
    const ByteSpan bytes = response.bytes(begin_response::kNonce * kWordBytes, length);
    MallocedBytes nonce = exchange.copyToHeap(bytes);
    if (!nonce) return nullptr;
    void* param = std::malloc(sizeof(keymaster_key_param_t));
    if (param == nullptr) {
        exchange.storeFirstError(KM_ERROR_MEMORY_ALLOCATION_FAILED);
        return nullptr;
    }
    return OwnedParam(new (param) keymaster_key_param_t(
        keymaster_param_blob(KM_TAG_NONCE, nonce.release(), length)));
}

void addInput(LegacyExchange& exchange, uint32_t index, const keymaster_blob_t* input,
              bool strongbox) {
    keymaster_blob_t capped = input != nullptr ? *input : keymaster_blob_t{};
    capped.data_length =
        std::min(capped.data_length, strongbox ? kMaxStrongBoxInputBytes : kMaxInputBytes);
    exchange.addOptionalItem(index, &capped);
}

// Appends r and s of a DER signature in place of it.
void addSignatureRecord(LegacyExchange& exchange, KeymasterCryptoDevice& crypto,
                        const keymaster_blob_t& der) {
    using namespace signature_record;
    exchange.setWord(finish_request::kSignatureOffset, exchange.offset());
    LegacyRecord record = exchange.openRecord(kWords);
    if (!exchange.ok()) return;

    _keymaster_ec_sig_internal_t parts = {};
    exchange.storeFirstError(crypto.ecsig_to_internal(&der, &parts));
    if (!exchange.ok()) return;
    const MallocedBytes r(parts.r);
    const MallocedBytes s(parts.s);

    record.setWord(kROffset, exchange.indirectOffset());
    record.setWord(kRBytes, parts.r_len);
    exchange.appendIndirect(parts.r, parts.r_len);
    record.setWord(kSOffset, exchange.indirectOffset());
    record.setWord(kSBytes, parts.s_len);
    exchange.appendIndirect(parts.s, parts.s_len);
    exchange.closeIndirect();
    exchange.setWord(finish_request::kSignatureBytes, parts.r_len + parts.s_len + kBytes);
}

// Where a response says that the output of an update or finish is.
struct OutputPlace {
    uint32_t offset;
    uint32_t length;
    bool empty() const { return offset == 0 || length == 0; }
};

OutputPlace readOutputPlace(LegacyResponse& response, uint32_t index) {
    const uint32_t offset = response.word(index);
    return {offset, response.word(index + 1)};
}

// Whether a sent update or finish has output to copy, for a caller who must have a place for it.
// Where it has none, or was refused, the outputs are emptied; a response that the shared buffer
// cuts off leaves them as they are.
bool hasOutput(LegacyExchange& exchange, bool succeeded, const OutputPlace& place,
               keymaster_key_param_set_t* out_params, keymaster_blob_t* output) {
    if (succeeded && !exchange.ok()) return false;
    if (!succeeded || place.empty()) {
        clearOutput(output);
        clearOutput(out_params);
        return false;
    }
    if (output == nullptr) exchange.storeFirstError(KM_ERROR_OUTPUT_PARAMETER_NULL);
    return output != nullptr;
}

// Copies the output of an operation to the caller.
keymaster_error_t copyOutput(LegacyExchange& exchange, const OutputPlace& place,
                             keymaster_key_param_set_t* out_params, keymaster_blob_t* output) {
    exchange.copyToOutput(exchange.response().bytes(place.offset, place.length), output);
    if (exchange.ok()) clearOutput(out_params);
    return exchange.error();
}

// Turns r and s, each half of the output of an operation, into a DER signature of the caller's. An
// odd last byte is dropped.
keymaster_error_t copySignature(LegacyExchange& exchange, const OutputPlace& place,
                                KeymasterCryptoDevice& crypto,
                                keymaster_key_param_set_t* out_params, keymaster_blob_t* output) {
    const ByteSpan raw = exchange.response().bytes(place.offset, place.length);
    if (!exchange.ok()) return exchange.error();
    const uint32_t half = place.length >> 1;
    auto* r = const_cast<uint8_t*>(raw.data);  // only read
    _keymaster_ec_sig_internal_t parts = {r, half, r + half, half};
    const keymaster_error_t error = crypto.internal_to_ecsig(&parts, output);
    if (error != KM_ERROR_OK) {
        // Kept: the line names the opposite conversion.
        KM_LOG_ERROR(kDeviceLogTag, "ecsig_to_internal error");
        return error;
    }
    clearOutput(out_params);
    return KM_ERROR_OK;
}

// Takes the operation out of the map if it is there for `purpose`.
bool untrack(std::map<uint64_t, keymaster_purpose_t>& purposes, uint64_t op_handle,
             keymaster_purpose_t purpose) {
    const auto entry = purposes.find(op_handle);
    if (entry == purposes.end() || enumToBits(entry->second) != purpose) return false;
    purposes.erase(entry);
    return true;
}

}  // namespace

keymaster_error_t KeymasterHalDevice::legacy_begin_operation(
    keymaster_purpose_t purpose, const keymaster_key_blob_t* key_blob,
    const keymaster_key_param_set_t* params, keymaster_key_param_set_t* out_params,
    uint64_t* op_handle) {
    // Kept: an empty blob is let through.
    if (!hasArray(key_blob)) return KM_ERROR_UNEXPECTED_NULL_POINTER;
    if (op_handle == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;

    LegacyExchange exchange(channel(), kBeginOperation, begin_request::kWords);
    exchange.setWord(begin_request::kPurpose, enumToBits(purpose));
    exchange.addItem(begin_request::kBlobOffset, key_blob->key_material,
                     key_blob->key_material_size);
    exchange.addOptionalParams(begin_request::kParamsOffset, params);
    if (!exchange.ok()) return exchange.error();
    exchange.send();
    if (!exchange.ok()) {
        clearOutput(out_params);
        clearOutput(op_handle);
        return exchange.error();
    }

    LegacyResponse& response = exchange.response();
    const uint64_t handle = response.words64(begin_response::kHandleLow);
    if (!exchange.ok()) return exchange.error();
    OwnedParam nonce = readNonce(exchange, out_params != nullptr);
    if (exchange.ok() && response.word(begin_response::kAlgorithm) == KM_ALGORITHM_EC) {
        // Kept: an entry that is there already stays.
        exchange.storeFirstError(catchBadAlloc([&] {
            const auto [entry, is_new] = operation_purposes_.try_emplace(handle);
            if (is_new) storeEnum(&entry->second, enumToBits(purpose));
            return KM_ERROR_OK;
        }));
    }
    if (!exchange.ok()) {
        static_cast<void>(abort_operation(handle));  // the earlier failure is returned
        return exchange.error();
    }
    const size_t num_params = nonce ? 1 : 0;
    if (out_params != nullptr) *out_params = {nonce.release(), num_params};
    *op_handle = handle;
    return KM_ERROR_OK;
}

keymaster_error_t KeymasterHalDevice::legacy_update_operation(
    uint64_t op_handle, const keymaster_key_param_set_t* params, const keymaster_blob_t* input,
    uint32_t* input_consumed, keymaster_key_param_set_t* out_params, keymaster_blob_t* output) {
    if (input_consumed == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;

    LegacyExchange exchange(channel(), kUpdateOperation, update_request::kWords);
    exchange.setWords64(update_request::kHandleLow, op_handle);
    exchange.addOptionalParams(update_request::kParamsOffset, params);
    addInput(exchange, update_request::kInputOffset, input, channel().strongbox);
    exchange.setResponseOffsets(update_response::kOutputOffset, update_response::kBytes);
    if (!exchange.ok()) return exchange.error();
    exchange.send();
    const bool succeeded = exchange.ok();

    LegacyResponse& response = exchange.response();
    *input_consumed = response.word(update_response::kInputConsumed);  // of a failure too
    const OutputPlace place = readOutputPlace(response, update_response::kOutputOffset);
    if (!hasOutput(exchange, succeeded, place, out_params, output)) return exchange.error();
    return copyOutput(exchange, place, out_params, output);
}

keymaster_error_t KeymasterHalDevice::legacy_finish_operation(
    uint64_t op_handle, const keymaster_key_param_set_t* params, const keymaster_blob_t* input,
    const keymaster_blob_t* signature, keymaster_key_param_set_t* out_params,
    keymaster_blob_t* output) {
    LegacyExchange exchange(channel(), kFinishOperation, finish_request::kWords);
    exchange.setWords64(finish_request::kHandleLow, op_handle);
    exchange.addOptionalParams(finish_request::kParamsOffset, params);
    addInput(exchange, finish_request::kInputOffset, input, channel().strongbox);
    if (!exchange.ok()) return exchange.error();  // the operation stays tracked
    if (isPresent(signature) && untrack(operation_purposes_, op_handle, KM_PURPOSE_VERIFY)) {
        addSignatureRecord(exchange, *crypto_device_, *signature);
    } else {
        exchange.addOptionalItem(finish_request::kSignatureOffset, signature);
    }
    exchange.setResponseOffsets(finish_response::kOutputOffset, finish_response::kBytes);
    if (!exchange.ok()) return exchange.error();
    exchange.send();
    const bool succeeded = exchange.ok();
    if (!succeeded) operation_purposes_.erase(op_handle);

    LegacyResponse& response = exchange.response();
    const OutputPlace place = readOutputPlace(response, finish_response::kOutputOffset);
    if (!hasOutput(exchange, succeeded, place, out_params, output)) return exchange.error();
    return untrack(operation_purposes_, op_handle, KM_PURPOSE_SIGN)
               ? copySignature(exchange, place, *crypto_device_, out_params, output)
               : copyOutput(exchange, place, out_params, output);
}

keymaster_error_t KeymasterHalDevice::legacy_abort_operation(uint64_t op_handle) {
    operation_purposes_.erase(op_handle);  // even where the secure application is not reached

    LegacyExchange exchange(channel(), kAbortOperation, abort_request::kWords);
    exchange.setWords64(abort_request::kHandleLow, op_handle);
    exchange.send();
    return exchange.error();
}

}  // namespace keymasterdevice
