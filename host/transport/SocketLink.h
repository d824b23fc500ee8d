// To a daemon that plays the secure application.
#pragma once

#include <optional>

#include "Link.h"

namespace lumo::transport {

// One connection, made when it is first needed and made again by the next call after it broke. A
// call that was under way when it broke fails: whether it was carried out is not known.
class SocketLink : public Link {
  public:
    SocketLink(keymaster_security_level_t level, std::string path)
        : level_(level), path_(std::move(path)) {}

    keymaster_error_t open() override;
    secureapp::ServerFacts facts() override;
    keymaster_error_t exchangeCbor(uint32_t command, secureapp::ByteView request,
                                   secureapp::Bytes& response) override;
    keymaster_error_t exchangeRecord(secureapp::ByteView request, uint8_t* response,
                                     size_t capacity) override;

  private:
    secureapp::Reply call(const secureapp::RequestFrame& request);
    secureapp::RequestFrame frame(secureapp::FrameKind kind) const;
    void connect();
    template <typename Work>
    keymaster_error_t guarded(Work work);

    const keymaster_security_level_t level_;
    const std::string path_;
    std::optional<secureapp::Channel> channel_;
    secureapp::ServerFacts facts_;
};

}  // namespace lumo::transport
