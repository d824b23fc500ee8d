// The fields of the DER structure AuthorizationList, which attestations and wrapped keys share.
#pragma once

#include <cstdint>

namespace lumo::inspect {

// What stands under a field's context tag.
enum class Content {
    integer,       // INTEGER, at most 32 bits
    longInteger,   // INTEGER, at most 64 bits
    integers,      // SET OF INTEGER in DER order
    integerOrSet,  // both are in use
    flag,          // NULL; a false one is left out
    bytes,         // OCTET STRING
    rootOfTrust,   // SEQUENCE
};

// Which of an attestation's lists has the field, where the secure world keeps the key.
enum class Place {
    hardware,
    software,
    either,  // whoever enforces it
    none,    // not attested; a wrapped key may have it
};

struct SchemaField {
    uint32_t number;
    const char* name;
    Content content;
    Place place;
    uint32_t since;  // the first attestation version that has the field
    uint32_t tag;    // the published tag, with its type
};

// Null where the number belongs to no field.
const SchemaField* schemaField(uint32_t number);

}  // namespace lumo::inspect
