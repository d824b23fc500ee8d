// How libFuzzer changes the inputs of a target whose messages it would seldom get right byte by
// byte. The build says where they stand and how they are written:
//   LUMO_INPUT_HEAD     bytes before the first message, changed as libFuzzer likes
//   LUMO_INPUT_FRAMED   whether messages stand one behind the other, each after two bytes of length
//   LUMO_INPUT_CBOR, LUMO_INPUT_WORDS, LUMO_INPUT_DER   which structure they may have
#include <algorithm>

#include "Mutations.h"

namespace {

using lumo::fuzz::below;
using lumo::fuzz::Bytes;
using lumo::fuzz::Random;

constexpr size_t kHead = LUMO_INPUT_HEAD;
constexpr bool kFramed = LUMO_INPUT_FRAMED;

void mutateMessage(Bytes& message, Random& random) {
    std::vector<void (*)(Bytes&, Random&)> mutations;
    if (LUMO_INPUT_CBOR) mutations.push_back(lumo::fuzz::mutateCbor);
    if (LUMO_INPUT_WORDS) mutations.push_back(lumo::fuzz::mutateWords);
    if (LUMO_INPUT_DER) mutations.push_back(lumo::fuzz::mutateDer);
    mutations[below(mutations.size(), random)](message, random);
}

std::vector<Bytes> framesOf(const uint8_t* data, size_t size) {
    std::vector<Bytes> frames;
    while (size >= 2) {
        const size_t length =
            std::min<size_t>(size - 2, static_cast<size_t>(data[0]) << 8 | data[1]);
        frames.emplace_back(data + 2, data + 2 + length);
        data += 2 + length;
        size -= 2 + length;
    }
    return frames;
}

Bytes joined(const std::vector<Bytes>& frames) {
    Bytes all;
    for (const Bytes& frame : frames) {
        const size_t size = std::min<size_t>(frame.size(), UINT16_MAX);
        all.push_back(static_cast<uint8_t>(size >> 8));
        all.push_back(static_cast<uint8_t>(size));
        all.insert(all.end(), frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(size));
    }
    return all;
}

Bytes mutatedFrames(const uint8_t* data, size_t size, Random& random) {
    std::vector<Bytes> frames = framesOf(data, size);
    if (frames.empty()) frames.emplace_back();
    const auto one = frames.begin() + static_cast<std::ptrdiff_t>(below(frames.size(), random));
    switch (random() % 8) {
        case 0:
            frames.push_back(*one);
            break;
        case 1:
            frames.erase(one);
            break;
        case 2:
            std::swap(*one, frames.back());
            break;
        default:
            mutateMessage(*one, random);
    }
    return joined(frames);
}

}  // namespace

size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t max_size, unsigned int seed) {
    Random random(seed);
    const bool as_it_likes = size <= kHead || random() % 4 == 0;
    if (as_it_likes) return LLVMFuzzerMutate(data, size, max_size);
    Bytes message(data + kHead, data + size);
    if (kFramed) {
        message = mutatedFrames(message.data(), message.size(), random);
    } else {
        mutateMessage(message, random);
    }
    const size_t kept = std::min(message.size(), max_size - kHead);
    std::copy_n(message.begin(), kept, data + kHead);
    return kHead + kept;
}
