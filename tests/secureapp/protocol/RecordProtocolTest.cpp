// Fixed-layout requests that no client of ours sends, and what the client leaves in them.
#include "SecureAppUnderTest.h"

namespace lumo::test {
namespace {

constexpr uint32_t kStale = 0xFFFFFFFF;

// What the words (offset, length) at `index` of an answer point at.
Bytes itemOf(const Bytes& answer, size_t index) {
    return slice(answer, wordAt(answer, index), wordAt(answer, index + 1));
}

uint32_t size32(const Bytes& bytes) {
    return static_cast<uint32_t>(bytes.size());
}

Bytes generateEc() {
    return words({0x108, 12, 2}) + param(0x10000002, 3) + param(0x30000003, 256);
}

Bytes beginRequest(uint32_t purpose, const Bytes& blob, const std::vector<Bytes>& params) {
    Bytes request = words({0x10F, purpose, 24, size32(blob), 24 + size32(blob),
                           static_cast<uint32_t>(params.size())}) +
                    blob;
    for (const Bytes& one : params) request = request + one;
    return request;
}

// The labels of a client that sends finish (16) or update (20): offset and room.
Bytes labels(uint32_t offset, uint32_t room = kAreaBytes - 64) {
    return words({0, 0, offset, room});
}

TEST(RecordProtocol, IgnoresLeftOverWords) {
    App phone("legacy-4");
    phone.configureByRecord();
    // A parameter of unknown type first (nothing was written) and in the middle (the one before
    // once more), a false boolean, and client id and data among the others.
    const uint32_t tail = 12 + 9 * 12;
    const Bytes copied = param(0x20000001, 0);
    const Bytes blob =
        itemOf(phone.sendRecord(words({0x108, 12, 9}) + words({kStale, kStale, kStale}) +
                                param(0x10000002, 32) + param(0x30000003, 128) + copied + copied +
                                param(0x700001F7, 0x01, 0) + param(0x7000025A, 0xFFFFFF00) +
                                param(0x90000259, tail, 2) + param(0x900002BC, tail + 2, 3) +
                                fromHex("6964646174")),
               2);
    const auto characteristics = [&](const Bytes& id, const Bytes& data) {
        const uint32_t behind = 28 + size32(blob);
        return phone.record(words({0x109, 28, size32(blob), behind, size32(id), behind + size32(id),
                                   size32(data)}) +
                            blob + id + data);
    };
    const Bytes answer = characteristics(fromHex("6964"), fromHex("646174"));
    EXPECT_EQ(statusOf(answer), 0);
    EXPECT_EQ(toHex(itemOf(answer, 2)), toHex(blob));
    EXPECT_EQ(blob.at(251), 0) << "a false boolean became exportable";
    EXPECT_EQ(wordAt(blob, 12), 1U) << "purposes";
    EXPECT_EQ(statusOf(characteristics(fromHex("6964"), fromHex("646175"))),
              KM_ERROR_INVALID_KEY_BLOB);
}

TEST(RecordProtocol, OutputGoesWhereTheClientWantsIt) {
    App phone("legacy-4", kStrongBox);
    phone.sendRecord(words({0x116, 12, 2}) + param(0x300002C1, 110000) + param(0x300002C2, 202012));
    const Bytes blob = itemOf(
        phone.sendRecord(words({0x508, 12, 7}) + param(0x10000002, 32) + param(0x30000003, 128) +
                         param(0x20000001, 0) + param(0x20000001, 1) + param(0x20000004, 2) +
                         param(0x20000006, 1) + param(0x700001F7, 1)),
        2);
    Bytes begin = beginRequest(0, blob, {param(0x20000004, 2), param(0x20000006, 1)});
    begin[1] = 0x05;  // 0x50F
    const Bytes begun = phone.sendRecord(begin);
    EXPECT_EQ(wordAt(begun, 4), 32U);
    EXPECT_EQ(wordAt(begun, 9), 16U);
    const auto update = [&](const Bytes& from, const Bytes& input, const Bytes& area) {
        return phone.record(
            words({0x511, wordAt(from, 2), wordAt(from, 3), 0, 0, 28, size32(input)}) + input,
            area);
    };
    const Bytes updated = update(begun, Bytes(32, 'x'), labels(24));
    EXPECT_EQ(statusOf(updated), 0);
    EXPECT_EQ(wordAt(updated, 4), 32U);
    EXPECT_EQ(wordAt(updated, 2), 24U);
    EXPECT_GE(wordAt(updated, 3), 16U);

    // Labels that do not fit are refused before anything happens; output that does not fit ends the
    // operation. What was consumed can be read even then.
    for (const Bytes& bad : {labels(19), labels(kAreaBytes + 1), labels(20, kAreaBytes)}) {
        EXPECT_EQ(statusOf(update(begun, Bytes(16, 'x'), bad)), KM_ERROR_INVALID_ARGUMENT);
    }
    const Bytes too_small = update(begun, Bytes(64, 'x'), labels(20, 8));
    EXPECT_EQ(statusOf(too_small), KM_ERROR_INSUFFICIENT_BUFFER_SPACE);
    EXPECT_EQ(wordAt(too_small, 4), 0U);
    EXPECT_EQ(statusOf(update(begun, Bytes(16, 'x'), labels(20))),
              KM_ERROR_INVALID_OPERATION_HANDLE);
}

// The body lies at byte 60 although the header says 16; what lies between is left over.
TEST(RecordProtocol, TakesTheRootOfTrustAsItIsSent) {
    for (const char* profile : {"cbor", "legacy-3"}) {
        App phone(profile);
        phone.sendRecord(words({0x201, 12, 32}) + Bytes(32, 0x77));
        const Bytes head = words({0x208, 0, 16, 48}) + Bytes(44, 0xEE);
        const Bytes body = words({1, 0x77777777}) + Bytes(28, 0xFF) + words({0, 110000, 202012});
        EXPECT_EQ(statusOf(phone.record(words({0x208, 0, 60, 48}) + Bytes(44, 0xEE) + body)),
                  KM_ERROR_INVALID_ARGUMENT);
        EXPECT_EQ(statusOf(phone.record(head + body + Bytes(4, 0))), KM_ERROR_INVALID_ARGUMENT);
        phone.sendRecord(head + body);
        EXPECT_EQ(phone.app.keymaster().config().verified_boot_key, Bytes(32, 0x77));
        EXPECT_TRUE(phone.app.keymaster().config().device_locked);
        EXPECT_EQ(statusOf(phone.record(words({0x201, 12, 32}) + Bytes(32, 0x78))),
                  KM_ERROR_ROOT_OF_TRUST_ALREADY_SET);
    }
}

TEST(RecordProtocol, AnswersOnlyItsOwnCommands) {
    const Bytes probe = words({0x215, 0, 0});
    EXPECT_EQ(statusOf(App("cbor").record(probe)), 0);
    EXPECT_EQ(statusOf(App("legacy-4", kStrongBox).record(probe)), 0);
    EXPECT_EQ(statusOf(App("legacy-3-encoding").record(probe)), 0);
    EXPECT_EQ(statusOf(App("legacy-3").record(probe)), KM_ERROR_INVALID_TAG);

    const struct {
        const char* profile;
        keymaster_security_level_t level;
        std::vector<uint32_t> unknown;
    } cases[] = {{"cbor", kTee, {0x108, 0x109, 0x116}},
                 {"legacy-4", kTee, {0x508, 0x706, 0x10A, 0x110, 0x2108, 0}},
                 {"legacy-4", kStrongBox, {0x108, 0x20E}}};
    for (const auto& test : cases) {
        for (const uint32_t command : test.unknown) {
            const Bytes request = words({command}) + Bytes(100, 0);
            EXPECT_EQ(statusOf(App(test.profile, test.level).record(request)),
                      KM_ERROR_UNIMPLEMENTED)
                << test.profile << " " << command;
        }
    }
}

TEST(RecordProtocol, RefusesWhatLiesOutside) {
    App phone("legacy-4");
    phone.configureByRecord();
    const Bytes blob(16, 1);
    struct {
        const char* what;
        Bytes request;
    } const cases[] = {
        {"no word at all", fromHex("0801")},
        {"a header cut short", words({0x10D, 12})},
        {"an item behind the end", words({0x10D, 29, 0}) + blob},
        {"an item that ends behind the end", words({0x10D, 13, 16}) + blob},
        {"an item whose end wraps", words({0x10D, 16, 0xFFFFFFF8}) + blob},
        {"an item within the header", words({0x10D, 8, 8}) + blob},
        {"more parameters than bytes", words({0x108, 12, 2}) + param(0x10000002, 3)},
        {"a parameter count that wraps", words({0x108, 12, 0x15555556}) + param(0x10000002, 3)},
        {"a parameter's bytes outside", words({0x108, 12, 1}) + param(0x90000259, 24, 1)},
        {"a tag of type 0", words({0x108, 12, 1}) + param(0x00000001, 0)},
        {"a tag of type 15", words({0x108, 12, 1}) + param(0xF0000001, 0)},
        {"a signature record outside",
         words({0x112, 1, 0, 0, 0, 0, 0, 36, 17}) + words({52, 1, 99, 1}) + fromHex("01")},
    };
    for (const auto& test : cases) {
        const int32_t status = statusOf(phone.record(test.request, labels(16)));
        EXPECT_TRUE(status == KM_ERROR_INVALID_ARGUMENT ||
                    status == KM_ERROR_INVALID_OPERATION_HANDLE)
            << test.what << ": " << status;
    }
    const Bytes area(3);
    const Bytes probe = words({0x215, 0, 0});
    EXPECT_TRUE(phone.app.exchangeRecord(probe, area, area.size()).body.empty());
    EXPECT_EQ(statusOf(phone.record(generateEc(), {}, 100)), KM_ERROR_INSUFFICIENT_BUFFER_SPACE);
    EXPECT_EQ(statusOf(phone.record(probe, {}, 4)), 0);
}

}  // namespace
}  // namespace lumo::test
