#include "secureapp/protocol/Exchange.h"

#include "secureapp/protocol/RecordReader.h"

namespace lumo::secureapp {
namespace {

std::string stateFailure(const SecureApp& app, int32_t status) {
    return status == KM_ERROR_SECURE_HW_ACCESS_DENIED ? app.lastStateFailure() : "";
}

}  // namespace

Answer exchangeCbor(SecureApp& app, uint32_t command, ByteView request, uint64_t client) {
    CborReply reply = app.handleCbor(command, request, client);
    return {reply.error, std::move(reply.body), stateFailure(app, reply.error)};
}

Answer exchangeRecord(SecureApp& app, ByteView request, ByteView area, size_t capacity,
                      uint64_t client) {
    Bytes body = app.answerRecord(request, area, capacity, client);
    if (body.empty()) return {KM_ERROR_INSUFFICIENT_BUFFER_SPACE, {}, {}};
    std::string failure = stateFailure(app, static_cast<int32_t>(loadWord(body, 0)));
    return {KM_ERROR_OK, std::move(body), std::move(failure)};
}

}  // namespace lumo::secureapp
