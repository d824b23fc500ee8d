#include "lumo/Transport.h"

#include <KeymasterUtils.h>

#include "ExchangeLog.h"
#include "Failures.h"
#include "FaultLink.h"
#include "Link.h"
#include "ReplayLink.h"
#include "SimLink.h"
#include "SocketLink.h"
#include "TraceLink.h"
#include "TransportName.h"
#include "secureapp/device/FileState.h"

namespace lumo {
namespace transport {
namespace {

ExchangeReason& latest() {
    static thread_local ExchangeReason reason;
    return reason;
}

ExchangeReason::Cause causeOf(TransportStatus::Kind kind) {
    switch (kind) {
        case TransportStatus::ok:
            return ExchangeReason::none;
        case TransportStatus::usage:
            return ExchangeReason::usage;
        case TransportStatus::transport:
            return ExchangeReason::transport;
        case TransportStatus::state:
            return ExchangeReason::storage;
    }
    return ExchangeReason::transport;
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
        return noteFailure(TransportStatus::usage, KM_ERROR_SECURE_HW_COMMUNICATION_FAILED,
                           message_);
    }

    std::string message_;
};

}  // namespace

keymaster_error_t noteFailure(TransportStatus::Kind kind, keymaster_error_t code,
                              std::string message) {
    latest() = {code, causeOf(kind), std::move(message)};
    return code;
}

void noteAnswer(keymaster_error_t code, secureapp::Cause cause, std::string_view reason) {
    ExchangeReason& noted = latest();
    noted.code = code;
    noted.cause = code == KM_ERROR_OK                   ? ExchangeReason::none
                  : cause == secureapp::Cause::kStorage ? ExchangeReason::storage
                                                        : ExchangeReason::refusal;
    noted.text = reason;
}

void noteFault(std::string what) {
    latest().cause = ExchangeReason::fault;
    latest().text = std::move(what);
}

KeptReason::~KeptReason() {
    latest() = std::move(kept_);
}

keymaster_error_t recordExchangeResult(keymaster_error_t error, secureapp::ByteView answer) {
    return answer.empty() ? error : KM_ERROR_OK;
}

namespace {

std::unique_ptr<Link> makeBaseLink(keymaster_security_level_t level, const TransportName& name) {
    if (name.kind == TransportName::Kind::kSim) {
        return std::make_unique<SimLink>(level, *name.profile);
    }
    if (name.replay) return std::make_unique<ReplayLink>(level, name.path);
    return std::make_unique<SocketLink>(level, name.path, SocketLink::AfterRestart::kSend);
}

}  // namespace

std::unique_ptr<Link> makeLink(keymaster_security_level_t level) {
    try {
        const TransportName name = chosenTransport();
        std::unique_ptr<Link> link = makeBaseLink(level, name);
        if (!name.faults.empty()) {
            link = std::make_unique<FaultLink>(std::move(link), FaultPlan(name.faults, name.seed));
        }
        auto trace = inspect::traceFileOfEnvironment();
        if (trace == nullptr) return link;
        return std::make_unique<TraceLink>(level, std::move(link), std::move(trace));
    } catch (const UsageError& error) {
        return std::make_unique<RefusedLink>(error.what());
    } catch (const inspect::TraceError& error) {
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

TransportFacts TransportCheck::facts() const {
    const secureapp::ServerFacts known = opened_->link->facts();
    TransportFacts facts;
    facts.records = known.legacy;
    facts.keymaster_version = known.keymaster_version;
    facts.ta_minor_version = known.ta_minor_version;
    facts.hal_minor_version = known.hal_minor_version;
    const bool own = transport::chosenTransport().kind == transport::TransportName::Kind::kSim;
    if (own) facts.state_directory = secureapp::defaultStateDirectory();
    if (facts.records) {
        facts.largest_request = keymasterutils::KeymasterUtils::kSharedBufferBytes;
        facts.largest_response = facts.largest_request;
    } else {
        facts.largest_request = transport::kRequestCapacity;
        facts.largest_response = own ? 0 : secureapp::kMaxBodyBytes;
    }
    return facts;
}

TransportStatus checkTransport(keymaster_security_level_t level) {
    return TransportCheck(level).status();
}

std::string newStateDirectory() {
    return transport::SimLink::newStateDirectory();
}

void logExchanges(bool wanted) {
    transport::setExchangeLog(wanted);
}

const ExchangeReason& lastExchangeReason() {
    return transport::latest();
}

TransportStatus lastTransportFailure() {
    const ExchangeReason& reason = lastExchangeReason();
    switch (reason.cause) {
        case ExchangeReason::none:
        case ExchangeReason::refusal:
        case ExchangeReason::fault:
            break;
        case ExchangeReason::usage:
            return {TransportStatus::usage, reason.text};
        case ExchangeReason::transport:
            return {TransportStatus::transport, reason.text};
        case ExchangeReason::storage:
            return {TransportStatus::state, reason.text};
    }
    return {};
}

}  // namespace lumo
