// Makes the n-th memory allocation of a piece of work fail.
#pragma once

namespace lumo::faults {

// From here on this thread's n-th allocation fails, counted from 1, and none after it.
void failAllocation(long n);

// No allocation fails any more; whether one has.
bool allocationFailed();

}  // namespace lumo::faults
