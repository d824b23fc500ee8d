// To the secure application in this process.
#pragma once

#include "Link.h"
#include "secureapp/device/Device.h"

namespace lumo::transport {

// All links of a process to one state directory and profile share one device. It boots with the
// first of them and is off when the last is gone.
class SimLink : public Link {
  public:
    SimLink(keymaster_security_level_t level, const secureapp::Profile& profile)
        : level_(level), profile_(profile) {}

    // Where one of them has made a new device; empty where none has.
    static std::string newStateDirectory();

    keymaster_error_t open() override;
    secureapp::ServerFacts facts() override;
    keymaster_error_t exchangeCbor(uint32_t command, secureapp::ByteView request,
                                   secureapp::ByteView& response) override;
    keymaster_error_t exchangeRecord(secureapp::ByteView request, uint8_t* response,
                                     size_t capacity) override;

    keymaster_error_t restart() override;
    keymaster_error_t fillDisk() override;

    // A rehearsal's command; see secureapp/protocol/Rehearsal.h.
    keymaster_error_t rehearse(secureapp::RehearsalCommand command, secureapp::ByteView request,
                               secureapp::Bytes& answer);
    // Another boot of the device, unless other links use it. Returns whether each boot draws the
    // same random numbers.
    bool reboot();

  private:
    template <typename Exchange>
    secureapp::Reply carryOut(Exchange exchange);

    const keymaster_security_level_t level_;
    const secureapp::Profile& profile_;
    std::shared_ptr<secureapp::Device> device_;
    secureapp::SecureApp* app_ = nullptr;
    bool disk_full_ = false;
    secureapp::Bytes response_;
};

}  // namespace lumo::transport
