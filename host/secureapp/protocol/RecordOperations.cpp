#include "secureapp/protocol/RecordOperations.h"

#include "secureapp/base/Refusal.h"
#include "secureapp/keys/OpenedKey.h"
#include "secureapp/protocol/EcConversions.h"

namespace lumo::secureapp {
namespace {

enum BeginRequest : size_t {
    kPurpose = 1,
    kBeginBlob = 2,
    kBeginParams = 4,
    kBeginRequestWords = 6,
};
enum BeginReply : size_t {
    kBeginHandle = 2,
    kBeginAlgorithm = 4,
    kNonce = 5,
    kNonceLength = 9,
    kBeginReplyWords,
};
constexpr size_t kNonceArea = (kNonceLength - kNonce) * kWordBytes;

// Update and finish share the first words; abort has the handle only.
enum OperationRequest : size_t {
    kHandle = 1,
    kAbortRequestWords = 3,
    kOperationParams = 3,
    kInput = 5,
    kUpdateRequestWords = 7,
    kSignature = 7,
    kFinishRequestWords = 9,
};
enum OperationReply : size_t {
    kStatus = 0,
    kOutput = 2,
    kFinishReplyWords = 4,
    kConsumed = 4,
    kUpdateReplyWords,
};
// A signature as its numbers.
enum SignatureRecord : size_t { kSignatureR, kSignatureS = 2, kSignatureRecordWords = 4 };

// The signature of a verification: a record of its two numbers at the signature's place.
Bytes readSignature(const RecordReader& request) {
    const ByteView whole = request.item(kSignature);
    const RecordReader record(whole, kSignatureRecordWords);
    const ByteView r = request.itemAt(record.word(kSignatureR), record.word(kSignatureR + 1));
    const ByteView s = request.itemAt(record.word(kSignatureS), record.word(kSignatureS + 1));
    if (whole.size() != kSignatureRecordWords * kWordBytes + r.size() + s.size()) {
        refuse(KM_ERROR_INVALID_ARGUMENT, "the signature's record has ", whole.size(),
               " bytes, with numbers of ", r.size(), " and ", s.size());
    }
    return ecDerSignature(r, s);
}

uint32_t ecBits(const ParamSet& key) {
    if (const auto curve = key.integer(KM_TAG_EC_CURVE)) {
        return ecCurveBits(static_cast<uint32_t>(*curve));
    }
    return static_cast<uint32_t>(key.integer(KM_TAG_KEY_SIZE).value_or(0));
}

}  // namespace

void RecordOperations::trackEcOperation(const BeginResult& begun, uint32_t purpose, ByteView blob,
                                        const ParamSet& params) {
    if (begun.algorithm != KM_ALGORITHM_EC) return;
    if (purpose == KM_PURPOSE_VERIFY) ec_operations_[begun.handle] = {};
    if (purpose != KM_PURPOSE_SIGN) return;
    try {
        const OpenedKey key = keymaster_.characteristics(blob, params);
        ec_operations_[begun.handle] = {true, ecWidth(ecBits(key.authorizations))};
    } catch (...) {
        keymaster_.abort(begun.handle);
        throw;
    }
}

void RecordOperations::forgetEnded() {
    for (auto each = ec_operations_.begin(); each != ec_operations_.end();) {
        each = keymaster_.isRunning(each->first) ? std::next(each) : ec_operations_.erase(each);
    }
}

Bytes RecordOperations::begin(const RecordCall& call) {
    const RecordReader request(call.request, kBeginRequestWords);
    const uint32_t purpose = request.word(kPurpose);
    const ByteView blob = request.item(kBeginBlob);
    const ParamSet params = request.params(kBeginParams);

    const BeginResult begun = keymaster_.begin(purpose, blob, params);
    const ByteView nonce = begun.out_params.bytes(KM_TAG_NONCE);
    if (nonce.size() > kNonceArea) {
        keymaster_.abort(begun.handle);
        refuse(KM_ERROR_UNKNOWN_ERROR, "a nonce of ", nonce.size(), " bytes fits into no answer");
    }
    trackEcOperation(begun, purpose, blob, params);
    RecordWriter reply(kBeginReplyWords);
    reply.longWord(kBeginHandle, begun.handle);
    reply.word(kBeginAlgorithm, begun.algorithm);
    reply.fill(kNonce, nonce);
    reply.word(kNonceLength, static_cast<uint32_t>(nonce.size()));
    return reply.finish();
}

Bytes RecordOperations::update(const RecordCall& call) {
    const RecordReader request(call.request, kUpdateRequestWords);
    const uint64_t handle = request.longWord(kHandle);
    const ParamSet params = request.params(kOperationParams);
    const ByteView input = request.item(kInput);
    const OutputPlace place = readOutputPlace(call, kOutput, kUpdateReplyWords);

    // A failed update ends the operation.
    auto tracked = ec_operations_.extract(handle);
    Bytes output;
    keymaster_.update(handle, params, input, output);
    if (output.size() > place.room) {
        keymaster_.abort(handle);
        refuse(KM_ERROR_INSUFFICIENT_BUFFER_SPACE, "an update's output of ", output.size(),
               " bytes does not fit into the room of ", place.room);
    }
    ec_operations_.insert(std::move(tracked));
    RecordWriter header(kUpdateReplyWords);
    header.word(kConsumed, static_cast<uint32_t>(input.size()));
    return replyWithOutput(std::move(header), place, output, kOutput);
}

Bytes RecordOperations::finish(const RecordCall& call) {
    const RecordReader request(call.request, kFinishRequestWords);
    const uint64_t handle = request.longWord(kHandle);
    const ParamSet params = request.params(kOperationParams);
    const ByteView input = request.item(kInput);
    const OutputPlace place = readOutputPlace(call, kOutput, kFinishReplyWords);

    const auto tracked = ec_operations_.find(handle);
    const std::optional<EcOperation> ec =
        tracked == ec_operations_.end() ? std::nullopt : std::optional(tracked->second);
    const bool as_numbers = ec && !ec->signs && request.word(kSignature + 1) != 0;
    const Bytes signature = as_numbers ? readSignature(request) : request.item(kSignature).copy();

    if (ec) ec_operations_.erase(tracked);
    Bytes output = keymaster_.finish(handle, params, input, signature);
    if (ec && ec->signs) output = ecRawSignature(output, ec->width);
    return replyWithOutput(RecordWriter(kFinishReplyWords), place, output, kOutput);
}

Bytes RecordOperations::abort(const RecordCall& call) {
    const RecordReader request(call.request, kAbortRequestWords);
    const uint64_t handle = request.longWord(kHandle);
    ec_operations_.erase(handle);
    keymaster_.abort(handle);
    return statusReply();
}

// The client reads what an update consumed even when it failed: the words behind the status are 0.
Bytes RecordOperations::refusalReply(keymaster_error_t status) {
    RecordWriter reply(kUpdateReplyWords);
    reply.word(kStatus, static_cast<uint32_t>(static_cast<int32_t>(status)));
    return reply.finish();
}

}  // namespace lumo::secureapp
