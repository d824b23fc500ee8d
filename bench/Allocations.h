// Counts the heap allocations of the calling thread. Linking it replaces malloc and its kin by
// counting ones, which operator new ends in, too.
#pragma once

#include <cstdint>

namespace lumo::bench {

uint64_t allocations();

}  // namespace lumo::bench
