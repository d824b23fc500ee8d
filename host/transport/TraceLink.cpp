#include "TraceLink.h"

#include <android/log.h>
#include <unistd.h>

#include <atomic>
#include <utility>

#include "Failures.h"
#include "secureapp/protocol/RecordReader.h"

namespace lumo::transport {
namespace {

using secureapp::ByteView;
using secureapp::kWordBytes;
using secureapp::loadWord;

uint64_t nextNumber() {
    static std::atomic<uint64_t> number{0};
    return ++number;
}

}  // namespace

TraceLink::TraceLink(keymaster_security_level_t level, std::unique_ptr<Link> link,
                     std::unique_ptr<inspect::TraceFile> file)
    : level_(level), number_(nextNumber()), link_(std::move(link)), file_(std::move(file)) {}

secureapp::ServerFacts TraceLink::facts() {
    facts_ = link_->facts();
    return *facts_;
}

inspect::Exchange TraceLink::beginning(inspect::Wire wire, uint32_t number,
                                       ByteView request) const {
    inspect::Exchange exchange;
    exchange.time = std::chrono::system_clock::now();
    exchange.source = "client";
    exchange.process = static_cast<uint64_t>(::getpid());
    exchange.link = number_;
    exchange.level = level_;
    exchange.wire = wire;
    exchange.number = number;
    exchange.request = request.copy();
    return exchange;
}

void TraceLink::write(inspect::Exchange exchange, std::chrono::steady_clock::time_point start) {
    exchange.duration = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now() - start);
    exchange.reason = lastExchangeReason().text;
    // Most clients ask before their first exchange. Asking may make a connection, which is no part
    // of the exchange: what is said of that one has been taken already.
    if (!facts_) {
        const KeptReason kept;
        facts_ = link_->facts();
    }
    exchange.boot = facts_->boot_id;
    exchange.protocol = {facts_->legacy, facts_->keymaster_version, facts_->ta_minor_version,
                         facts_->hal_minor_version};
    const bool written = file_->append(std::move(exchange));
    if (!written && !complained_) {
        __android_log_print(ANDROID_LOG_ERROR, "lumo-transport",
                            "the trace %s lacks an exchange: its line could not be written whole; "
                            "is the disk full?",
                            file_->path().c_str());
    }
    complained_ = !written;
}

keymaster_error_t TraceLink::exchangeCbor(uint32_t command, ByteView request, ByteView& response) {
    inspect::Exchange exchange = beginning(inspect::Wire::kCbor, command, request);
    const auto start = std::chrono::steady_clock::now();
    const keymaster_error_t error = link_->exchangeCbor(command, request, response);
    exchange.code = error;
    if (error == KM_ERROR_OK) exchange.response = response.copy();
    write(std::move(exchange), start);
    return error;
}

keymaster_error_t TraceLink::exchangeRecord(ByteView request, uint8_t* response, size_t capacity) {
    const uint32_t number = request.size() < kWordBytes ? 0 : loadWord(request, 0);
    inspect::Exchange exchange = beginning(inspect::Wire::kRecord, number, request);
    exchange.area = inspect::AnswerArea{capacity, {}, {}};
    const auto place = inspect::placeWord(number);
    if (place && capacity >= (*place + 2) * kWordBytes) {
        const ByteView area(response, capacity);
        exchange.area->offset = loadWord(area, *place * kWordBytes);
        exchange.area->room = loadWord(area, (*place + 1) * kWordBytes);
    }
    const auto start = std::chrono::steady_clock::now();
    const keymaster_error_t error = link_->exchangeRecord(request, response, capacity);
    exchange.code = error;
    if (error == KM_ERROR_OK && capacity >= kWordBytes) {
        const ByteView answer(response, capacity);
        exchange.code = static_cast<int32_t>(loadWord(answer, 0));
        // How long the answer is, it says itself.
        exchange.response =
            answer.sub(0, inspect::decodeRecordResponse(number, answer).extent).copy();
    }
    write(std::move(exchange), start);
    return error;
}

}  // namespace lumo::transport
