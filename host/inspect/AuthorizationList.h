// Reads the DER structure AuthorizationList: a SEQUENCE of elements under EXPLICIT context tags.
#pragma once

#include "inspect/AttestationRules.h"
#include "inspect/AuthorizationSchema.h"
#include "inspect/Der.h"

namespace lumo::inspect {

// A number and where it stands; without a value it could not be read.
struct Number {
    Window where;
    std::optional<uint64_t> value;

    bool is(uint64_t wanted) const { return value == wanted; }
};

// What the boot loader found. States: 0 verified, 1 self-signed, 2 unverified, 3 failed.
struct RootOfTrust {
    Window where;
    Window key;
    Number locked;  // 0 or 1
    Number state;
    Window hash;
    bool whole = false;  // four fields of the right types
};

struct Authorization {
    uint32_t number = 0;
    const SchemaField* field = nullptr;  // null for a tag that is not known
    Window where;
    std::vector<uint64_t> integers;
    Window bytes;
    RootOfTrust root;
};

struct AuthorizationList {
    Window where;
    std::vector<Authorization> entries;  // as they stand

    // The first one of that number; null where there is none.
    const Authorization* find(uint32_t number) const;
    // Its first integer.
    std::optional<uint64_t> integer(uint32_t number) const;
    bool has(uint32_t number, uint64_t value) const;
};

// Which fields the list may have.
enum class ListUse { software, hardware, wrapped };

// `level` 0 says that software attests: then every field is software's. For wrapped keys level and
// version mean nothing. What can be read is returned whatever is wrong with it.
struct ListRules {
    ListUse use = ListUse::wrapped;
    uint32_t version = 4;
    uint32_t level = 1;
};
AuthorizationList readAuthorizationList(Window content, const ListRules& rules, FaultList& faults);

// Notes what is not DER about an element's header.
void noteFlaw(const DerElement& element, FaultList& faults,
              std::optional<uint32_t> tag = std::nullopt);
// An unsigned INTEGER or ENUMERATED; what is wrong with it breaks the rule.
Number readUnsigned(const DerElement& element, const Rule& broken, FaultList& faults,
                    std::optional<uint32_t> tag = std::nullopt);

Item describe(const AuthorizationList& list, const std::string& name);

const char* bootStateName(uint64_t state);  // "unknown" for others

}  // namespace lumo::inspect
