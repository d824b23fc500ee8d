// A link that writes down what goes through it.
#pragma once

#include "Link.h"
#include "inspect/TraceFile.h"

namespace lumo::transport {

// The outermost of the links: it shows what the client sent and got, whatever lies behind.
class TraceLink : public Link {
  public:
    TraceLink(keymaster_security_level_t level, std::unique_ptr<Link> link,
              std::unique_ptr<inspect::TraceFile> file);

    keymaster_error_t open() override { return link_->open(); }
    secureapp::ServerFacts facts() override;
    keymaster_error_t exchangeCbor(uint32_t command, secureapp::ByteView request,
                                   secureapp::ByteView& response) override;
    keymaster_error_t exchangeRecord(secureapp::ByteView request, uint8_t* response,
                                     size_t capacity) override;

  private:
    inspect::Exchange beginning(inspect::Wire wire, uint32_t number,
                                secureapp::ByteView request) const;
    void write(inspect::Exchange exchange, std::chrono::steady_clock::time_point start);

    const keymaster_security_level_t level_;
    const uint64_t number_;  // of this link in its process
    std::unique_ptr<Link> link_;
    std::unique_ptr<inspect::TraceFile> file_;
    std::optional<secureapp::ServerFacts> facts_;
    bool complained_ = false;
};

}  // namespace lumo::transport
