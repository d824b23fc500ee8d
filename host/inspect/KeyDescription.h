// The extension of a certificate that describes the certified key.
#pragma once

#include "inspect/AuthorizationList.h"

namespace lumo::inspect {

inline constexpr char kKeyDescriptionOid[] = "1.3.6.1.4.1.11129.2.1.17";

struct KeyDescription {
    Window where;
    Number version;
    Number level;  // of the attestation
    Number keymaster_version;
    Number keymaster_level;
    Window challenge;
    Window unique_id;
    AuthorizationList software;
    AuthorizationList hardware;
    bool whole = false;  // eight fields of the right types

    // Whichever list has it, the hardware's first; null where none has.
    const Authorization* find(uint32_t number) const;
    std::optional<uint64_t> integer(uint32_t number) const;
};

// Reads the extension's content as far as it goes; what breaks a rule goes to `faults`.
KeyDescription readKeyDescription(Window der, FaultList& faults);

Item describe(const KeyDescription& description);

}  // namespace lumo::inspect
