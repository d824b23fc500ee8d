// To a daemon that plays the secure application.
#pragma once

#include <optional>

#include "Link.h"
#include "secureapp/protocol/Rehearsal.h"

namespace lumo::transport {

// One connection, made when it is first needed and made again by the next call after it broke. A
// call that was under way when it broke fails: whether it was carried out is not known. Where the
// daemon had gone before anything was sent, the call is made over a new connection.
class SocketLink : public Link {
  public:
    enum class AfterRestart {
        kSend,  // what was meant for the former boot goes to the new one
        kFail,  // that one call, with the link up again
    };

    SocketLink(keymaster_security_level_t level, std::string path, AfterRestart after_restart)
        : level_(level), path_(std::move(path)), after_restart_(after_restart) {}

    keymaster_error_t open() override;
    secureapp::ServerFacts facts() override;
    keymaster_error_t exchangeCbor(uint32_t command, secureapp::ByteView request,
                                   secureapp::ByteView& response) override;
    keymaster_error_t exchangeRecord(secureapp::ByteView request, uint8_t* response,
                                     size_t capacity) override;
    // Both are up to the daemon, which has to be started with --faults.
    keymaster_error_t restart() override;
    keymaster_error_t fillDisk() override { return ask(secureapp::Rehearsal::kFullDisk); }

    // A rehearsal's command; see secureapp/protocol/Rehearsal.h.
    keymaster_error_t rehearse(secureapp::RehearsalCommand command, secureapp::ByteView request,
                               secureapp::Bytes& answer);

    // The boot of the secure application that the last connection reached; 0 before the first.
    uint64_t bootId() const { return facts_.boot_id; }

  private:
    void connect();
    void send(const secureapp::RequestFrame& request);
    secureapp::ReplyFrame call(const secureapp::RequestFrame& request);
    keymaster_error_t ask(secureapp::Rehearsal rehearsal);
    secureapp::RequestFrame frame(secureapp::FrameKind kind) const;
    template <typename Work>
    keymaster_error_t guarded(Work work);

    const keymaster_security_level_t level_;
    const std::string path_;
    const AfterRestart after_restart_;
    std::optional<secureapp::Channel> channel_;
    secureapp::ServerFacts facts_;
};

}  // namespace lumo::transport
