// Running operations on keys that a test makes up.
#pragma once

#include <gtest/gtest.h>

#include "Hex.h"
#include "TestEnvironment.h"
#include "secureapp/base/Refusal.h"
#include "secureapp/keys/OpenedKey.h"
#include "secureapp/operations/Operation.h"

namespace lumo::test {

using namespace secureapp;  // NOLINT: these helpers belong to its tests

constexpr auto kTee = KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT;
constexpr uint32_t kEncrypt = KM_PURPOSE_ENCRYPT;
constexpr uint32_t kDecrypt = KM_PURPOSE_DECRYPT;
constexpr uint32_t kSign = KM_PURPOSE_SIGN;
constexpr uint32_t kVerify = KM_PURPOSE_VERIFY;

constexpr auto padding = [](uint64_t value) { return intParam(KM_TAG_PADDING, value); };
constexpr auto digest = [](uint64_t value) { return intParam(KM_TAG_DIGEST, value); };
constexpr auto mode = [](uint64_t value) { return intParam(KM_TAG_BLOCK_MODE, value); };
constexpr auto macLength = [](uint64_t bits) { return intParam(KM_TAG_MAC_LENGTH, bits); };
constexpr auto minMac = [](uint64_t bits) { return intParam(KM_TAG_MIN_MAC_LENGTH, bits); };
constexpr auto nonce = [](ByteView value) { return bytesParam(KM_TAG_NONCE, value); };

// The same bytes for the same count, and different ones for another.
constexpr auto pattern = [](size_t count) { return CountingRandom(count).bytes(count); };
constexpr auto text = [](const std::string& ascii) { return Bytes(ascii.begin(), ascii.end()); };

inline Bytes joined(Bytes first, ByteView second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}
inline Bytes flipped(Bytes bytes, size_t at) {
    bytes[at] = static_cast<uint8_t>(bytes[at] ^ 1);
    return bytes;
}

inline OpenedKey testKey(uint32_t algorithm, Bytes material, ParamSet authorizations) {
    OpenedKey key;
    key.material = Secret(std::move(material));
    key.authorizations = std::move(authorizations);
    key.authorizations.add(intParam(KM_TAG_ALGORITHM, algorithm));
    return key;
}

inline std::unique_ptr<Operation> begin(uint32_t purpose, const OpenedKey& key,
                                        const ParamSet& params,
                                        keymaster_security_level_t level = kTee) {
    static CountingRandom random;
    static const Bytes shared_key =
        fromHex("6b0ba12a57af2ab16b25eee340457782bfd2de8b006ec62e93919449fa50a54c");
    return startOperation(purpose, key, params, level, random, shared_key);
}

// The whole operation, its input in steps of `step` bytes: all but the last one as updates.
inline Bytes run(uint32_t purpose, const OpenedKey& key, const ParamSet& params, ByteView input,
                 ByteView signature = {}, size_t step = SIZE_MAX) {
    const auto operation = begin(purpose, key, params);
    Bytes out;
    for (; input.size() > step; input = input.sub(step)) {
        out = joined(std::move(out), operation->update({}, input.sub(0, step)));
    }
    return joined(std::move(out), operation->finish({}, input, signature));
}

// What a call is refused with.
template <typename Call>
keymaster_error_t errorOf(Call call) {
    try {
        call();
    } catch (const Refusal& error) {
        return error.code();
    }
    return KM_ERROR_OK;
}

inline keymaster_error_t runError(uint32_t purpose, const OpenedKey& key, const ParamSet& params,
                                  ByteView input, ByteView signature = {}, size_t step = SIZE_MAX) {
    return errorOf([&] { run(purpose, key, params, input, signature, step); });
}

}  // namespace lumo::test
