#include "lumo/Transport.h"

#include <mutex>

#include "Failures.h"
#include "Link.h"
#include "ReplayLink.h"
#include "SimLink.h"
#include "SocketLink.h"
#include "TransportName.h"

namespace lumo {
namespace transport {
namespace {

// The one record of the process.
struct FailureRecord {
    std::mutex mutex;
    TransportStatus last;
};

FailureRecord& failureRecord() {
    static FailureRecord record;
    return record;
}

// Stands for a transport that could not be understood.
class RefusedLink : public Link {
  public:
    explicit RefusedLink(std::string message) : message_(std::move(message)) {}

    keymaster_error_t open() override { return refuse(); }
    secureapp::ServerFacts facts() override { return {}; }
    keymaster_error_t exchangeCbor(uint32_t, secureapp::ByteView, secureapp::ByteView&) override {
        return refuse();
    }
    keymaster_error_t exchangeRecord(secureapp::ByteView, uint8_t*, size_t) override {
        return refuse();
    }

  private:
    keymaster_error_t refuse() const {
        noteFailure(TransportStatus::usage, message_);
        return KM_ERROR_SECURE_HW_COMMUNICATION_FAILED;
    }

    std::string message_;
};

}  // namespace

void noteFailure(TransportStatus::Kind kind, const std::string& message) {
    const std::lock_guard<std::mutex> lock(failureRecord().mutex);
    failureRecord().last = {kind, message};
}

void noteCause(secureapp::Cause cause, std::string_view reason) {
    if (cause == secureapp::Cause::kStorage) {
        noteFailure(TransportStatus::state, std::string(reason));
    }
}

keymaster_error_t recordExchangeResult(keymaster_error_t error, secureapp::ByteView answer) {
    return answer.empty() ? error : KM_ERROR_OK;
}

std::unique_ptr<Link> makeLink(keymaster_security_level_t level) {
    try {
        const TransportName name = chosenTransport();
        if (name.kind == TransportName::Kind::kUnix) {
            if (name.replay) return std::make_unique<ReplayLink>(level, name.path);
            return std::make_unique<SocketLink>(level, name.path, SocketLink::AfterRestart::kSend);
        }
        return std::make_unique<SimLink>(level, *name.profile);
    } catch (const UsageError& error) {
        return std::make_unique<RefusedLink>(error.what());
    }
}

}  // namespace transport

struct TransportCheck::Opened {
    std::unique_ptr<transport::Link> link;
};

TransportCheck::TransportCheck(keymaster_security_level_t level)
    : opened_(std::make_unique<Opened>()) {
    opened_->link = transport::makeLink(level);
    if (opened_->link->open() != KM_ERROR_OK) status_ = lastTransportFailure();
}

TransportCheck::~TransportCheck() = default;

TransportStatus checkTransport(keymaster_security_level_t level) {
    return TransportCheck(level).status();
}

TransportStatus lastTransportFailure() {
    const std::lock_guard<std::mutex> lock(transport::failureRecord().mutex);
    return transport::failureRecord().last;
}

}  // namespace lumo
