// Begin, update, finish and abort.
//
// The secure application handles ECDSA signatures as raw r and s. The operation purpose map tells
// finish which operations are of EC keys, whose signatures it must convert from or to DER.

#include <KeymasterUtils.h>

#include <algorithm>

#include "BadAlloc.h"
#include "KeymasterCryptoDevice.h"
#include "KeymasterHalDevice.h"
#include "LegacyExchange.h"
#include "Limits.h"

namespace keymasterdevice {
namespace {

// Input bytes in one request, so that it and its response fit into the shared buffer.
constexpr size_t kMostStrongBoxInputBytes = 18432;

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
        keymaster_free_param_values(param, 1);
        std::free(param);
    }
};
using OwnedParam = std::unique_ptr<keymaster_key_param_t, ParamDeleter>;

// Null where there is no memory. Both the parameter and its bytes come from malloc.
OwnedParam makeNonce(keymasterutils::KeymasterUtils& transport, const ByteSpan& bytes) {
    OwnedParam param(static_cast<keymaster_key_param_t*>(std::malloc(sizeof(*param))));
    if (!param) return nullptr;
    MallocedBytes nonce = copyToHeap(transport, bytes);
    *param = keymaster_param_blob(KM_TAG_NONCE, nonce.get(), bytes.length);
    return nonce.release() != nullptr ? std::move(param) : nullptr;
}

// Takes the nonce of a begun operation, if there is one, for a caller who must have a place for it.
keymaster_error_t takeNonce(keymasterutils::KeymasterUtils& transport, LegacyResponse& response,
                            bool has_place, OwnedParam* nonce) {
    const uint32_t length = response.word(begin_response::kNonceBytes);
    if (!response.ok()) return KM_ERROR_UNKNOWN_ERROR;
    if (length == 0) return KM_ERROR_OK;
    if (!has_place) return KM_ERROR_OUTPUT_PARAMETER_NULL;
    // Kept: the length is not held to the four words before it, only to the shared buffer.
    const ByteSpan bytes = response.bytes(begin_response::kNonce * kWordBytes, length);
    if (!response.ok()) return KM_ERROR_UNKNOWN_ERROR;
    *nonce = makeNonce(transport, bytes);
    return *nonce ? KM_ERROR_OK : KM_ERROR_MEMORY_ALLOCATION_FAILED;
}

void setEmpty(keymaster_key_param_set_t* set) {
    if (set != nullptr) *set = {nullptr, 0};
}

void setEmpty(keymaster_blob_t* blob) {
    if (blob != nullptr) *blob = {nullptr, 0};
}

void addInput(LegacyExchange& exchange, uint32_t index, const keymaster_blob_t* input,
              bool strongbox) {
    keymaster_blob_t capped = input != nullptr ? *input : keymaster_blob_t{};
    capped.data_length =
        std::min(capped.data_length, strongbox ? kMostStrongBoxInputBytes : kMaxInputBytes);
    exchange.addOptionalItem(index, &capped);
}

// Copies the output of an operation to the caller.
keymaster_error_t handOutOutput(keymasterutils::KeymasterUtils& transport, const ByteSpan& bytes,
                                keymaster_key_param_set_t* out_params, keymaster_blob_t* output) {
    output->data_length = bytes.length;  // stays when there is no memory
    MallocedBytes copy = copyToHeap(transport, bytes);
    if (!copy) return KM_ERROR_MEMORY_ALLOCATION_FAILED;
    output->data = copy.release();
    setEmpty(out_params);
    return KM_ERROR_OK;
}

// Appends r and s of a DER signature in place of it.
keymaster_error_t addSignatureRecord(LegacyExchange& exchange, KeymasterCryptoDevice& crypto,
                                     const keymaster_blob_t& der) {
    using namespace signature_record;
    exchange.setWord(finish_request::kSignatureOffset, exchange.offset());
    LegacyRecord record = exchange.openRecord(kWords);
    if (exchange.error() != KM_ERROR_OK) return exchange.error();

    _keymaster_ec_sig_internal_t parts = {};
    const keymaster_error_t error = crypto.ecsig_to_internal(&der, &parts);
    if (error != KM_ERROR_OK) return error;
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
    return exchange.error();
}

// Turns r and s, each half of `raw`, into a DER signature of the caller's. An odd last byte is
// dropped.
keymaster_error_t handOutSignature(KeymasterCryptoDevice& crypto, const ByteSpan& raw,
                                   keymaster_key_param_set_t* out_params,
                                   keymaster_blob_t* output) {
    const uint32_t half = raw.length >> 1;
    _keymaster_ec_sig_internal_t parts = {raw.data, half, raw.data + half, half};
    const keymaster_error_t error = crypto.internal_to_ecsig(&parts, output);
    if (error != KM_ERROR_OK) {
        // Kept: the line names the opposite conversion.
        KM_LOG_ERROR(kDeviceLogTag, "ecsig_to_internal error");
        return error;
    }
    setEmpty(out_params);
    return KM_ERROR_OK;
}

// Takes the operation out of the map if it is there for `purpose`.
bool untrack(std::map<uint64_t, keymaster_purpose_t>& purposes, uint64_t op_handle,
             keymaster_purpose_t purpose) {
    const auto entry = purposes.find(op_handle);
    if (entry == purposes.end() || entry->second != purpose) return false;
    purposes.erase(entry);
    return true;
}

}  // namespace

keymaster_error_t KeymasterHalDevice::legacy_begin_operation(
    keymaster_purpose_t purpose, const keymaster_key_blob_t* key_blob,
    const keymaster_key_param_set_t* params, keymaster_key_param_set_t* out_params,
    uint64_t* op_handle) {
    if (key_blob == nullptr || key_blob->key_material == nullptr) {
        return KM_ERROR_UNEXPECTED_NULL_POINTER;
    }
    if (op_handle == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;
    keymaster_error_t error = bringUpLink(channel(), kBeginOperation);
    if (error != KM_ERROR_OK) return error;

    LegacyExchange exchange(channel(), kBeginOperation, begin_request::kWords);
    exchange.setWord(begin_request::kPurpose, static_cast<uint32_t>(purpose));
    exchange.addItem(begin_request::kBlobOffset, key_blob->key_material,
                     key_blob->key_material_size);
    exchange.addOptionalParams(begin_request::kParamsOffset, params);
    if (exchange.error() != KM_ERROR_OK) return exchange.error();
    error = exchange.send();
    if (error != KM_ERROR_OK) {
        setEmpty(out_params);
        *op_handle = 0;
        return error;
    }

    LegacyResponse& response = exchange.response();
    const uint64_t handle = response.words64(begin_response::kHandleLow);
    if (!response.ok()) return KM_ERROR_UNKNOWN_ERROR;
    OwnedParam nonce;
    error = takeNonce(*transport_, response, out_params != nullptr, &nonce);
    if (error == KM_ERROR_OK && response.word(begin_response::kAlgorithm) == KM_ALGORITHM_EC) {
        error = catchBadAlloc([&] {
            operation_purposes_.emplace(handle, purpose);
            return KM_ERROR_OK;
        });
    }
    if (error != KM_ERROR_OK) {
        abort_operation(handle);
        return error;
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
    keymaster_error_t error = bringUpLink(channel(), kUpdateOperation);
    if (error != KM_ERROR_OK) return error;

    LegacyExchange exchange(channel(), kUpdateOperation, update_request::kWords);
    exchange.setWords64(update_request::kHandleLow, op_handle);
    exchange.addOptionalParams(update_request::kParamsOffset, params);
    addInput(exchange, update_request::kInputOffset, input, channel().strongbox);
    exchange.labelResponse(update_response::kOutputOffset, update_response::kBytes);
    if (exchange.error() != KM_ERROR_OK) return exchange.error();
    error = exchange.send();

    LegacyResponse& response = exchange.response();
    *input_consumed = response.word(update_response::kInputConsumed);  // of a failure too
    const uint32_t offset = response.word(update_response::kOutputOffset);
    const uint32_t length = response.word(update_response::kOutputBytes);
    if (error == KM_ERROR_OK && !response.ok()) return KM_ERROR_UNKNOWN_ERROR;
    if (error != KM_ERROR_OK || offset == 0 || length == 0) {
        setEmpty(output);
        setEmpty(out_params);
        return error;
    }
    if (output == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;
    const ByteSpan bytes = response.bytes(offset, length);
    if (!response.ok()) return KM_ERROR_UNKNOWN_ERROR;
    return handOutOutput(*transport_, bytes, out_params, output);
}

keymaster_error_t KeymasterHalDevice::legacy_finish_operation(
    uint64_t op_handle, const keymaster_key_param_set_t* params, const keymaster_blob_t* input,
    const keymaster_blob_t* signature, keymaster_key_param_set_t* out_params,
    keymaster_blob_t* output) {
    keymaster_error_t error = bringUpLink(channel(), kFinishOperation);
    if (error != KM_ERROR_OK) return error;

    LegacyExchange exchange(channel(), kFinishOperation, finish_request::kWords);
    exchange.setWords64(finish_request::kHandleLow, op_handle);
    exchange.addOptionalParams(finish_request::kParamsOffset, params);
    addInput(exchange, finish_request::kInputOffset, input, channel().strongbox);
    if (exchange.error() != KM_ERROR_OK) return exchange.error();
    if (isPresent(signature) && untrack(operation_purposes_, op_handle, KM_PURPOSE_VERIFY)) {
        error = addSignatureRecord(exchange, *crypto_device_, *signature);
        if (error != KM_ERROR_OK) return error;
    } else {
        exchange.addOptionalItem(finish_request::kSignatureOffset, signature);
    }
    exchange.labelResponse(finish_response::kOutputOffset, finish_response::kBytes);
    if (exchange.error() != KM_ERROR_OK) return exchange.error();
    error = exchange.send();
    if (error != KM_ERROR_OK) operation_purposes_.erase(op_handle);

    LegacyResponse& response = exchange.response();
    const uint32_t offset = response.word(finish_response::kOutputOffset);
    const uint32_t length = response.word(finish_response::kOutputBytes);
    if (error == KM_ERROR_OK && !response.ok()) return KM_ERROR_UNKNOWN_ERROR;
    if (error != KM_ERROR_OK || offset == 0 || length == 0) {
        setEmpty(output);
        setEmpty(out_params);
        return error;
    }
    if (output == nullptr) return KM_ERROR_OUTPUT_PARAMETER_NULL;
    const bool signs = untrack(operation_purposes_, op_handle, KM_PURPOSE_SIGN);
    const ByteSpan bytes = response.bytes(offset, length);
    if (!response.ok()) return KM_ERROR_UNKNOWN_ERROR;
    return signs ? handOutSignature(*crypto_device_, bytes, out_params, output)
                 : handOutOutput(*transport_, bytes, out_params, output);
}

keymaster_error_t KeymasterHalDevice::legacy_abort_operation(uint64_t op_handle) {
    operation_purposes_.erase(op_handle);  // even where the secure application is not reached
    const keymaster_error_t error = bringUpLink(channel(), kAbortOperation);
    if (error != KM_ERROR_OK) return error;
    LegacyExchange exchange(channel(), kAbortOperation, abort_request::kWords);
    exchange.setWords64(abort_request::kHandleLow, op_handle);
    return exchange.send();
}

}  // namespace keymasterdevice
