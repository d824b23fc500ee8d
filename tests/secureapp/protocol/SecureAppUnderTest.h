// A secure application with surroundings of its own, and what its requests are written with.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "ScriptedTransport.h"
#include "TestEnvironment.h"
#include "secureapp/protocol/SecureApp.h"

namespace lumo::test {

constexpr auto kTee = KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT;
constexpr auto kStrongBox = KM_SECURITY_LEVEL_STRONGBOX;
constexpr size_t kAreaBytes = 20000;

inline Bytes slice(const Bytes& bytes, size_t offset, size_t size) {
    return secureapp::ByteView(bytes).sub(offset, size).copy();
}

// One entry of a parameter array in a record; the second word is left over where it says nothing.
inline Bytes param(uint32_t tag, uint32_t first, uint32_t second = 0xFFFFFFFF) {
    return words({tag, first, second});
}

struct App {
    MemoryState own, shared;
    FixedClock clock;
    CountingRandom random;
    secureapp::SecureApp app;

    explicit App(const std::string& profile, keymaster_security_level_t level = kTee)
        : app(*secureapp::findProfile(profile), level, {}, own, shared, clock, random) {}

    // The requests are handed over in blocks of exactly their size.
    secureapp::Reply cbor(uint32_t command, const Bytes& request) {
        const auto exact = std::make_unique<uint8_t[]>(request.size());
        std::copy(request.begin(), request.end(), exact.get());
        return app.exchangeCbor(command, {exact.get(), request.size()});
    }

    // The body of a command that must succeed.
    Bytes sendCbor(uint32_t command, const std::string& request) {
        return sendCbor(command, fromHex(request));
    }
    Bytes sendCbor(uint32_t command, const Bytes& request) {
        const secureapp::Reply reply = cbor(command, request);
        EXPECT_EQ(reply.error, KM_ERROR_OK) << toHex(request);
        return reply.body;
    }

    // `labels` go to the start of an area of `capacity` bytes of 0xEE; the area afterwards.
    Bytes record(const Bytes& request, const Bytes& labels = {}, size_t capacity = kAreaBytes) {
        const auto exact = std::make_unique<uint8_t[]>(request.size());
        std::copy(request.begin(), request.end(), exact.get());
        Bytes area = labels;
        area.resize(capacity, 0xEE);
        const Bytes answer =
            app.exchangeRecord({exact.get(), request.size()}, area, area.size()).body;
        EXPECT_FALSE(answer.empty());
        std::copy(answer.begin(), answer.end(), area.begin());
        return area;
    }

    Bytes sendRecord(const Bytes& request, const Bytes& labels = {}) {
        const Bytes answer = record(request, labels);
        EXPECT_EQ(wordAt(answer, 0), 0U) << toHex(request);
        return answer;
    }

    void configureByCbor() {
        sendCbor(0x2116,
                 "a4 16 03 1a300002c1 1a0001adb0 1a300002c2 1a0003151c"
                 " 1a300002ce 1a01343ef5");
    }

    void configureByRecord() {
        sendRecord(words({0x116, 12, 3}) + param(0x300002C1, 110000) + param(0x300002C2, 202012) +
                   param(0x300002CE, 20201205));
    }
};

inline int32_t statusOf(const Bytes& answer) {
    return static_cast<int32_t>(wordAt(answer, 0));
}

}  // namespace lumo::test
