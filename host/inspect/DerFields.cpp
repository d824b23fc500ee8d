#include "inspect/DerFields.h"

namespace lumo::inspect {

std::optional<DerElement> DerFields::take(DerReader& reader, DerNumber type,
                                          const std::string& name) {
    if (broken_) return std::nullopt;
    const Window here = reader.rest();
    const auto element = reader.next();
    if (!element) {
        const char* why = reader.error();
        stop(here, why == nullptr ? name + " is missing" : name + ": " + why);
    } else if (!element->is(type)) {
        stop(here, name + " is " + element->typeText());
    } else {
        if (element->flaw != nullptr) {
            faults_.add(flaw_, here.offset(), name + ": " + element->flaw);
        }
        return element;
    }
    return std::nullopt;
}

std::optional<DerElement> DerFields::takeWhole(DerReader& reader, const std::string& name) {
    DerReader ahead = reader;
    const auto element = ahead.nextOrCut();
    if (!element || element->missing == 0 || !element->is(kDerSequence)) {
        return take(reader, kDerSequence, name);
    }
    note(element->whole, name + " is cut off: by its length it ends at byte " +
                             std::to_string(ahead.rest().offset() + element->missing) +
                             ", the bytes end at " + std::to_string(ahead.rest().offset()));
    reader = ahead;
    return element;
}

void DerFields::expectEnd(const DerReader& reader, const std::string& last) {
    if (!broken_ && !reader.atEnd()) note(reader.rest(), "something stands after " + last);
}

void DerFields::stop(Window where, const std::string& why) {
    broken_ = true;
    note(where, why);
}

}  // namespace lumo::inspect
