// Changes of inputs by their structure, which byte by byte would seldom come about: the lengths and
// counts around a change stay right. For libFuzzer alone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace lumo::fuzz {

using Bytes = std::vector<uint8_t>;
using Random = std::minstd_rand;

// CBOR: an item is replaced, doubled, dropped or put into a container, a count changed.
void mutateCbor(Bytes& message, Random& random);
// 32-bit words: one becomes an offset or length of interest, or another one's neighbour.
void mutateWords(Bytes& record, Random& random);
// DER: an item at any depth is replaced, doubled, dropped, or its contents or identifier changed.
void mutateDer(Bytes& encoding, Random& random);

// A number below `limit`, which is not 0.
inline size_t below(size_t limit, Random& random) {
    return random() % limit;
}

}  // namespace lumo::fuzz

// libFuzzer's own mutation of at most `max_size` bytes, and its hook for those of a target.
extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t max_size);
extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t max_size,
                                          unsigned int seed);
