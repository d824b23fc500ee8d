#include "secureapp/daemon/RequestTrace.h"

#include <unistd.h>

#include "secureapp/protocol/RecordReader.h"

namespace lumo::secureapp {
namespace {

inspect::AnswerArea areaOf(const RequestFrame& request, uint32_t number) {
    inspect::AnswerArea area{request.capacity, {}, {}};
    const auto place = inspect::placeWord(number);
    if (!place || request.area.size() < (*place + 2) * kWordBytes) return area;
    area.offset = loadWord(request.area, *place * kWordBytes);
    area.room = loadWord(request.area, (*place + 1) * kWordBytes);
    return area;
}

}  // namespace

void RequestTrace::note(const RequestFrame& request, uint64_t client, uint64_t boot_id,
                        const Reply& reply, std::chrono::steady_clock::time_point start) const {
    using std::chrono::duration_cast;
    using std::chrono::microseconds;
    const bool record = request.kind == FrameKind::kRecord;
    if (file_ == nullptr || (!record && request.kind != FrameKind::kCbor)) return;
    inspect::Exchange exchange;
    exchange.duration = duration_cast<microseconds>(std::chrono::steady_clock::now() - start);
    exchange.time = std::chrono::system_clock::now() - exchange.duration;
    exchange.source = "daemon";
    exchange.process = static_cast<uint64_t>(::getpid());
    exchange.link = client;
    exchange.boot = boot_id;
    exchange.level = request.level;
    exchange.protocol = {profile_.legacy, profile_.keymaster_version, profile_.ta_minor_version,
                         profile_.hal_minor_version};
    exchange.number = request.command;
    exchange.request = request.body.copy();
    exchange.code = reply.error;
    exchange.reason = reply.reason;
    if (record) {
        exchange.wire = inspect::Wire::kRecord;
        exchange.number = request.body.size() < kWordBytes ? 0 : loadWord(request.body, 0);
        exchange.area = areaOf(request, exchange.number);
    }
    // A refusal over CBOR has no body, over records its status.
    if (record ? !reply.body.empty() : reply.error == KM_ERROR_OK) exchange.response = reply.body;
    if (!file_->append(std::move(exchange))) {
        log_.line(file_->path() + ": a line could not be written whole; is the disk full?");
    }
}

}  // namespace lumo::secureapp
