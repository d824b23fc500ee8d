// A transport without a carrier, linked in place of the workstation's: the first time that a CBOR
// command comes, the secure application answers it; every further time the same answer is handed
// out from memory. Start-up, its records and its configuration, always goes to the secure
// application.
#pragma once

#include <cstdint>

namespace lumo::bench {

// Forgets the answers: the next call of each command goes to the secure application again.
void forgetAnswers();

}  // namespace lumo::bench
