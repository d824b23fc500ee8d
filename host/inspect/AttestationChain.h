// Judges an attestation: the chain of certificates and what the first one says about its key.
#pragma once

#include "inspect/Certificate.h"
#include "inspect/KeyDescription.h"

namespace lumo::inspect {

// What the caller knows beforehand; what is not given is not judged.
struct Expectations {
    uint64_t at_seconds = 0;   // the date of the judgement, since 1970-01-01 UTC
    std::vector<Bytes> roots;  // certificates, one of which has to end the chain
    std::optional<Bytes> challenge;
    std::optional<Bytes> application_id;
    std::optional<Bytes> boot_key;
    std::optional<Bytes> boot_hash;
    std::optional<Bytes> public_key;  // SubjectPublicKeyInfo
    std::optional<uint64_t> level;
    std::optional<uint64_t> version;
    std::optional<uint64_t> boot_state;
    std::optional<uint64_t> locked;
    std::optional<uint64_t> os_patchlevel;  // YYYYMM, at least
};

enum class Outcome {
    holds,
    broken,
    notAsked,    // the caller expects nothing
    notReached,  // what it needs could not be read
};
// "holds", "broken", "not asked", "not reached"
const char* nameOf(Outcome outcome);

struct Judged {
    const Rule* rule;
    Outcome outcome;
};

struct Verdict {
    std::vector<Judged> rules;  // all of them, in the order of the groups
    std::vector<Fault> faults;  // in the order in which they were found
    bool good() const;          // none is broken, and none that was asked could not be reached
};

// `chain`: the certified key's certificate first. A chain that leaves its root out is judged with
// the one of `expected.roots` that issued its last certificate. Signatures are libcrypto's part;
// all else is read here.
Verdict judge(const std::vector<Bytes>& chain, const Expectations& expected);

}  // namespace lumo::inspect
