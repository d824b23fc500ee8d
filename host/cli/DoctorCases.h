// What lumokm doctor tries: a row is a case.
#pragma once

#include "Examination.h"

namespace lumo::cli {

enum class Levels { kBoth, kTrustedEnvironment, kStrongbox };

struct DoctorCase {
    const char* method;
    // What is given: "an EC key on P-256". For what is not tried: why.
    const char* what;
    // The codes of which a refusal is to have one; empty where the call is to be accepted.
    std::vector<ErrorCode> refusals;
    // Null for what is not tried.
    Answer (*call)(Examination& examination);
    Levels levels = Levels::kBoth;
};

// At least one accepted and one refused case of each method of both interfaces, as far as that is
// possible without changing what others depend on.
const std::vector<DoctorCase>& doctorCases();

}  // namespace lumo::cli
