#include "FaultLink.h"

#include <android/log.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "Failures.h"
#include "secureapp/protocol/RecordReader.h"

namespace lumo::transport {
namespace {

using namespace secureapp;

using Kind = FaultRule::Kind;

constexpr char kLogTag[] = "lumo-transport";
constexpr int64_t kLateMillis = 1000;
constexpr int64_t kLongBytes = 16;

void logFault(const FaultRule& rule) {
    __android_log_print(ANDROID_LOG_WARN, kLogTag, "fault on command: %s", rule.text.c_str());
}

void wait(const FaultRule& rule) {
    std::this_thread::sleep_for(std::chrono::milliseconds(rule.number.value_or(kLateMillis)));
}

bool damagesReply(Kind kind) {
    return kind == Kind::kShort || kind == Kind::kLong || kind == Kind::kGarbled;
}

// What became of an exchange that went through all the same.
const char* wordsFor(Kind kind) {
    switch (kind) {
        case Kind::kShort:
            return "the reply was cut short";
        case Kind::kLong:
            return "bytes were added to the reply";
        case Kind::kGarbled:
            return "bits of the reply were flipped";
        case Kind::kLate:
            return "the reply came late";
        default:
            return "the disk was full, and the command did not need it";
    }
}

std::string named(const std::string& what, const FaultRule& rule) {
    return what + " (fault on command: " + rule.text + ")";
}

}  // namespace

keymaster_error_t FaultLink::fail(const FaultRule& rule, keymaster_error_t code,
                                  const std::string& what) const {
    return noteFailure(TransportStatus::transport, code, named(what, rule));
}

keymaster_error_t FaultLink::open() {
    const FaultRule* rule = plan_.next({});
    if (rule == nullptr) return base_->open();
    logFault(*rule);
    if (rule->kind == Kind::kError) {
        const int64_t code = rule->number.value_or(KM_ERROR_SECURE_HW_COMMUNICATION_FAILED);
        return fail(*rule, static_cast<keymaster_error_t>(code), "the link does not come up");
    }
    wait(*rule);
    return base_->open();
}

// Carries out what one rule says; `damage` changes the reply of an exchange that went through.
template <typename Exchange, typename Damage>
keymaster_error_t FaultLink::meet(const FaultRule& rule, Exchange exchange, Damage damage) {
    logFault(rule);
    if (rule.kind == Kind::kError) {
        const int64_t code = rule.number.value_or(KM_ERROR_SECURE_HW_COMMUNICATION_FAILED);
        return fail(rule, static_cast<keymaster_error_t>(code), "nothing was sent");
    }
    if (rule.kind == Kind::kFull) {
        if (const keymaster_error_t error = base_->fillDisk(); error != KM_ERROR_OK) return error;
    }
    const keymaster_error_t error = exchange();
    if (rule.kind == Kind::kLate) wait(rule);
    if (rule.kind == Kind::kRestart) {
        const keymaster_error_t restarted = base_->restart();
        if (restarted != KM_ERROR_OK) return restarted;
        return fail(rule, KM_ERROR_SECURE_HW_COMMUNICATION_FAILED,
                    "the secure application has restarted");
    }
    if (rule.kind == Kind::kLost) {
        return fail(rule, KM_ERROR_SECURE_HW_COMMUNICATION_FAILED, "the reply is lost");
    }
    if (error != KM_ERROR_OK) return error;
    const bool damages = damagesReply(rule.kind);
    if (damages) damage();
    // Why a command was refused says more than that its answer came late.
    if (damages || lastExchangeReason().code == KM_ERROR_OK) {
        noteFault(named(wordsFor(rule.kind), rule));
    }
    return error;
}

Bytes FaultLink::noise(size_t size) {
    Bytes bytes(size);
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(plan_.random(256));
    return bytes;
}

void FaultLink::damage(const FaultRule& rule, Bytes& reply) {
    if (rule.kind == Kind::kLong) {
        append(reply, noise(static_cast<size_t>(rule.number.value_or(kLongBytes))));
        return;
    }
    if (reply.empty()) return;
    if (rule.kind == Kind::kShort) {
        const size_t missing = rule.number ? static_cast<size_t>(*rule.number)
                                           : static_cast<size_t>(plan_.random(reply.size())) + 1;
        reply.resize(reply.size() - std::min(missing, reply.size()));
        return;
    }
    for (int64_t i = 0; i < rule.number.value_or(1); ++i) {
        const uint64_t bit = plan_.random(uint64_t{8} * reply.size());
        reply[static_cast<size_t>(bit / 8)] ^= static_cast<uint8_t>(1U << bit % 8);
    }
}

keymaster_error_t FaultLink::exchangeCbor(uint32_t command, ByteView request, ByteView& response) {
    const FaultRule* rule =
        plan_.next({command, inspect::findCommand(inspect::Wire::kCbor, command)});
    const auto exchange = [&] { return base_->exchangeCbor(command, request, response); };
    if (rule == nullptr) return exchange();
    return meet(*rule, exchange, [&] {
        reply_ = response.copy();
        damage(*rule, reply_);
        response = reply_;
    });
}

keymaster_error_t FaultLink::exchangeRecord(ByteView request, uint8_t* response, size_t capacity) {
    const bool has_command = request.size() >= kWordBytes;
    const uint32_t command = has_command ? loadWord(request, 0) : 0;
    const FaultRule* rule =
        plan_.next({command, inspect::findCommand(inspect::Wire::kRecord, command)});
    const auto exchange = [&] { return base_->exchangeRecord(request, response, capacity); };
    if (rule == nullptr) return exchange();
    const Bytes before(response, response + capacity);
    return meet(*rule, exchange, [&] {
        // The reply has no length of its own: it ends with the last word that it changed.
        size_t end = capacity;
        while (end > kWordBytes && response[end - 1] == before[end - 1]) --end;
        end = std::min(capacity, (end + kWordBytes - 1) / kWordBytes * kWordBytes);
        Bytes reply(response, response + end);
        damage(*rule, reply);
        reply.resize(std::min(reply.size(), capacity));
        // What is missing is as it was before.
        std::copy(before.begin(), before.begin() + static_cast<std::ptrdiff_t>(end), response);
        std::copy(reply.begin(), reply.end(), response);
    });
}

}  // namespace lumo::transport
