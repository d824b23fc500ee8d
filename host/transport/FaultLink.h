// A link on which exchanges go wrong by a plan, as a rehearsal.
#pragma once

#include "FaultPlan.h"
#include "Link.h"

namespace lumo::transport {

// Wraps the link that carries out what is not to fail. What an object does on its own below it,
// such as the replay after a restart of the daemon, meets no fault. Every fault is logged.
class FaultLink : public Link {
  public:
    FaultLink(std::unique_ptr<Link> base, FaultPlan plan)
        : base_(std::move(base)), plan_(std::move(plan)) {}

    keymaster_error_t open() override;
    secureapp::ServerFacts facts() override { return base_->facts(); }
    keymaster_error_t exchangeCbor(uint32_t command, secureapp::ByteView request,
                                   secureapp::ByteView& response) override;
    keymaster_error_t exchangeRecord(secureapp::ByteView request, uint8_t* response,
                                     size_t capacity) override;

  private:
    template <typename Exchange, typename Damage>
    keymaster_error_t meet(const FaultRule& rule, Exchange exchange, Damage damage);
    keymaster_error_t fail(const FaultRule& rule, keymaster_error_t code,
                           const std::string& what) const;
    secureapp::Bytes noise(size_t size);
    // Damages `reply` as the rule says; it may get longer or shorter.
    void damage(const FaultRule& rule, secureapp::Bytes& reply);

    const std::unique_ptr<Link> base_;
    FaultPlan plan_;
    secureapp::Bytes reply_;
};

}  // namespace lumo::transport
