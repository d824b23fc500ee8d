// A link that outlives the secure application behind it.
#pragma once

#include <string>
#include <vector>

#include "SocketLink.h"

namespace lumo::transport {

// After a restart the secure application knows nothing of the service objects that are still there
// and would refuse whatever they send. This link keeps what an object sent at its start (the date
// probe and configure), and sends it to every new boot of the secure application. The object gets
// one KM_ERROR_SECURE_HW_COMMUNICATION_FAILED for each restart: that of the call under way, or else
// that of the first call after it, which is not sent.
//
// Nothing else comes back: running operations, the agreed HMAC key, the end of early boot and the
// device lock are gone, as after a reboot.
class ReplayLink : public Link {
  public:
    ReplayLink(keymaster_security_level_t level, const std::string& path)
        : level_(level), path_(path), socket_(level, path, SocketLink::AfterRestart::kFail) {}

    keymaster_error_t open() override;
    secureapp::ServerFacts facts() override;
    keymaster_error_t exchangeCbor(uint32_t command, secureapp::ByteView request,
                                   secureapp::ByteView& response) override;
    keymaster_error_t exchangeRecord(secureapp::ByteView request, uint8_t* response,
                                     size_t capacity) override;
    keymaster_error_t restart() override;
    keymaster_error_t fillDisk() override;

  private:
    struct Exchange {
        secureapp::FrameKind kind;
        uint32_t command;
        secureapp::Bytes request;
        size_t capacity;  // of a record's answer
    };

    template <typename Work>
    keymaster_error_t around(Work exchange);
    keymaster_error_t replayAll();
    // The exchange's error, else the status of a record's answer, which may be any word.
    int32_t replay(const Exchange& exchange);
    void store(Exchange exchange);

    const keymaster_security_level_t level_;
    const std::string path_;
    SocketLink socket_;
    uint64_t prepared_boot_id_ = 0;   // the boot that has received start_up_
    std::vector<Exchange> start_up_;  // in its order, each command once
};

}  // namespace lumo::transport
