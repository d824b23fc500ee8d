#include "ReplayLink.h"

#include <android/log.h>

#include <utility>

#include "Failures.h"
#include "secureapp/protocol/Commands.h"
#include "secureapp/protocol/RecordReader.h"

namespace lumo::transport {
namespace {

using namespace secureapp;

constexpr char kLogTag[] = "lumo-transport";

bool isStartUp(std::optional<Command> command) {
    return command == Command::kConfigure || command == Command::kDateSupport;
}

// The status of a record's answer.
int32_t statusOf(const uint8_t* answer, size_t capacity) {
    if (capacity < kWordBytes) return KM_ERROR_UNKNOWN_ERROR;
    return static_cast<int32_t>(loadWord(ByteView(answer, capacity), 0));
}

}  // namespace

// A failed exchange may have met a new boot, too: that is prepared for the next call.
template <typename Work>
keymaster_error_t ReplayLink::around(Work exchange) {
    if (const keymaster_error_t error = open(); error != KM_ERROR_OK) return error;
    const keymaster_error_t error = exchange();
    if (socket_.bootId() != prepared_boot_id_) {
        const KeptReason kept;
        static_cast<void>(open());
    }
    return error;
}

keymaster_error_t ReplayLink::open() {
    if (const keymaster_error_t error = socket_.open(); error != KM_ERROR_OK) return error;
    if (socket_.bootId() == prepared_boot_id_) return KM_ERROR_OK;
    return replayAll();
}

keymaster_error_t ReplayLink::replayAll() {
    const uint64_t boot_id = socket_.bootId();
    if (prepared_boot_id_ != 0) {
        __android_log_print(ANDROID_LOG_WARN, kLogTag,
                            "%s: the secure application has restarted; running operations, the "
                            "agreed HMAC key, early boot and the device lock are as after a boot",
                            path_.c_str());
    }
    for (const Exchange& exchange : start_up_) {
        const int32_t error = replay(exchange);
        // It went away once more: the next call begins anew.
        if (error == KM_ERROR_SECURE_HW_COMMUNICATION_FAILED) {
            return KM_ERROR_SECURE_HW_COMMUNICATION_FAILED;
        }
        __android_log_print(ANDROID_LOG_WARN, kLogTag, "%s: sent command 0x%x again: %d",
                            path_.c_str(), exchange.command, error);
    }
    prepared_boot_id_ = boot_id;
    return KM_ERROR_OK;
}

int32_t ReplayLink::replay(const Exchange& exchange) {
    if (exchange.kind == FrameKind::kCbor) {
        ByteView response;
        return socket_.exchangeCbor(exchange.command, exchange.request, response);
    }
    Bytes response(exchange.capacity);
    const keymaster_error_t error =
        socket_.exchangeRecord(exchange.request, response.data(), response.size());
    if (error != KM_ERROR_OK) return error;
    return statusOf(response.data(), response.size());
}

void ReplayLink::store(Exchange exchange) {
    for (Exchange& known : start_up_) {
        if (known.command != exchange.command) continue;
        known = std::move(exchange);
        return;
    }
    start_up_.push_back(std::move(exchange));
}

keymaster_error_t ReplayLink::restart() {
    if (const keymaster_error_t error = open(); error != KM_ERROR_OK) return error;
    return socket_.restart();
}

keymaster_error_t ReplayLink::fillDisk() {
    if (const keymaster_error_t error = open(); error != KM_ERROR_OK) return error;
    return socket_.fillDisk();
}

ServerFacts ReplayLink::facts() {
    static_cast<void>(open());
    return socket_.facts();
}

keymaster_error_t ReplayLink::exchangeCbor(uint32_t command, ByteView request, ByteView& response) {
    return around([&] {
        const keymaster_error_t error = socket_.exchangeCbor(command, request, response);
        if (error == KM_ERROR_OK && isStartUp(findCborCommand(command, level_, false))) {
            store({FrameKind::kCbor, command, request.copy(), 0});
        }
        return error;
    });
}

keymaster_error_t ReplayLink::exchangeRecord(ByteView request, uint8_t* response, size_t capacity) {
    return around([&] {
        const keymaster_error_t error = socket_.exchangeRecord(request, response, capacity);
        if (error != KM_ERROR_OK || request.size() < kWordBytes) return error;
        const uint32_t command = loadWord(request, 0);
        const std::optional<Command> meant = findRecordCommand(command, level_, true);
        const bool accepted =
            statusOf(response, capacity) == KM_ERROR_OK || meant == Command::kDateSupport;
        if (accepted && isStartUp(meant)) {
            store({FrameKind::kRecord, command, request.copy(), capacity});
        }
        return error;
    });
}

}  // namespace lumo::transport
