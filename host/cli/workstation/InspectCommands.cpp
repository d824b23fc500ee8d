// The group of commands that look into what lies on the disk.
#include "InspectCommands.h"

namespace lumo::cli {

Report describe(const std::vector<inspect::Fault>& faults) {
    Report all = Report::array();
    for (const inspect::Fault& fault : faults) {
        Report one;
        if (!fault.rule.empty()) one["rule"] = fault.rule;
        if (fault.certificate) one["certificate"] = *fault.certificate;
        if (fault.byte) one["byte"] = *fault.byte;
        if (fault.tag) one["tag"] = *fault.tag;
        one["why"] = fault.why;
        all.push_back(std::move(one));
    }
    return all;
}

CommandGroup inspectionCommands() {
    return {"Inspection",
            {{"inspect", "Show what a file is, and what does not add up", kInspectNotes,
              declareInspect},
             {"attest-verify", "Judge an attestation, rule by rule", kAttestVerifyNotes,
              declareAttestVerify}}};
}

}  // namespace lumo::cli
