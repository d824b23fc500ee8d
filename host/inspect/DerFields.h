// The fields of a SEQUENCE, taken one after the other by those who know what has to come.
#pragma once

#include "inspect/AttestationRules.h"
#include "inspect/Der.h"

namespace lumo::inspect {

// The first field that is missing or of another type breaks the rule for forms, and nothing is
// taken any more: what follows could be anything. What is not DER about a field breaks the rule for
// flaws.
class DerFields {
  public:
    DerFields(const Rule& form, const Rule& flaw, FaultList& faults)
        : form_(form), flaw_(flaw), faults_(faults) {}

    // The next element, by its name in messages.
    std::optional<DerElement> take(DerReader& reader, DerNumber type, const std::string& name);

    // The same of what holds all the others. Where it is cut off, that breaks the rule for forms,
    // and the fields are taken up to the end.
    std::optional<DerElement> takeWhole(DerReader& reader, const std::string& name);

    // Breaks the rule for forms.
    void note(Window where, const std::string& why) { faults_.add(form_, where.offset(), why); }
    // Nothing may be left once all fields are taken.
    void expectEnd(const DerReader& reader, const std::string& last);

    bool broken() const { return broken_; }
    // Notes why, and takes nothing any more.
    void stop(Window where, const std::string& why);

  private:
    const Rule& form_;
    const Rule& flaw_;
    FaultList& faults_;
    bool broken_ = false;
};

}  // namespace lumo::inspect
