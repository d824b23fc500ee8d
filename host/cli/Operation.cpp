#include "Operation.h"

#include <utility>

#include "Failure.h"
#include "Progress.h"
#include "TagOptions.h"

namespace lumo::cli {

namespace {

std::string verbOf(km::V4_0::KeyPurpose purpose) {
    switch (purpose) {
        case km::V4_0::KeyPurpose::ENCRYPT:
            return "encrypt";
        case km::V4_0::KeyPurpose::DECRYPT:
            return "decrypt";
        case km::V4_0::KeyPurpose::SIGN:
            return "sign";
        case km::V4_0::KeyPurpose::VERIFY:
            return "verify";
        default:
            return "use the key";
    }
}

// Tops `pending` up to one update's size.
void fill(Input& input, Bytes& pending) {
    const size_t kept = pending.size();
    pending.resize(Operation::kMaxUpdateBytes);
    pending.resize(kept + input.read(pending.data() + kept, pending.size() - kept));
}

}  // namespace

Operation::Operation(sp<Device> device, OperationRequest request)
    : device_(std::move(device)), request_(std::move(request)), doing_(verbOf(request_.purpose)) {
    ErrorCode error = ErrorCode::UNKNOWN_ERROR;
    require(doing_,
            device_->begin(request_.purpose, request_.key, request_.parameters, request_.token,
                           [&](ErrorCode code, const auto& parameters, uint64_t handle) {
                               error = code;
                               parameters_ = parameters;
                               handle_ = handle;
                           }),
            error);
    live_ = true;
}

Operation::Operation(sp<Device> device, uint64_t handle, const HardwareAuthToken& token,
                     const km::V4_0::VerificationToken& verification_token)
    : device_(std::move(device)), doing_("go on with the operation"), handle_(handle) {
    request_.token = token;
    request_.verification_token = verification_token;
}

Operation::~Operation() {
    if (live_) static_cast<void>(device_->abort(handle_).isOk());
}

void Operation::authenticate(Input& associated_data) {
    Bytes piece(kMaxAssociatedDataBytes);
    for (;;) {
        piece.resize(associated_data.read(piece.data(), piece.size()));
        if (piece.empty()) return;
        update({makeBytes(Tag::ASSOCIATED_DATA, piece)}, {}, [](const Bytes&) {});
    }
}

void Operation::process(Input& input, const Sink& sink) {
    Progress progress(doing_, input.size());
    Bytes pending;
    for (fill(input, pending); !pending.empty(); fill(input, pending)) {
        const size_t consumed = update({}, pending, sink);
        if (consumed == 0 || consumed > pending.size()) {
            throw Failure(Exit::other, "could not " + doing_ + ": the keymaster consumed " +
                                           std::to_string(consumed) + " of " +
                                           std::to_string(pending.size()) + " bytes");
        }
        pending.erase(pending.begin(), pending.begin() + static_cast<ptrdiff_t>(consumed));
        progress.advance(consumed);
    }
    progress.finish();
}

size_t Operation::update(const std::vector<KeyParameter>& parameters, const Bytes& input,
                         const Sink& sink) {
    ErrorCode error = ErrorCode::UNKNOWN_ERROR;
    size_t consumed = 0;
    Bytes output;
    requireStep(
        device_->update(handle_, parameters, input, request_.token, request_.verification_token,
                        [&](ErrorCode code, uint32_t taken, const auto& /*parameters*/,
                            const HidlBytes& bytes) {
                            error = code;
                            consumed = taken;
                            output = bytes;
                        }),
        error);
    sink(output);
    return consumed;
}

void Operation::finish(const std::vector<KeyParameter>& parameters, const Bytes& signature,
                       const Sink& sink, const Bytes& input) {
    ErrorCode error = ErrorCode::UNKNOWN_ERROR;
    Bytes output;
    requireStep(
        device_->finish(handle_, parameters, input, signature, request_.token,
                        request_.verification_token,
                        [&](ErrorCode code, const auto& /*parameters*/, const HidlBytes& bytes) {
                            error = code;
                            output = bytes;
                        }),
        error);
    live_ = false;
    sink(output);
}

void Operation::abort() {
    live_ = false;
    require("abort the operation", device_->abort(handle_));
}

// An error has ended the operation on the other side as well.
void Operation::requireStep(const Return<void>& result, const ErrorCode& error) {
    if (error != ErrorCode::OK) live_ = false;
    require(doing_, result, error);
}

}  // namespace lumo::cli
