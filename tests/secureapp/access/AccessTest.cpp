// What needs a clock that the test moves, and what clients of the service cannot reach.
#include "KeymasterUnderTest.h"

namespace lumo::test {
namespace {

uint64_t beginAes(Device& device, const Bytes& blob) {
    return device->begin(KM_PURPOSE_ENCRYPT, blob, ecb()).handle;
}

// Begins and, where that works, aborts.
keymaster_error_t tryBegin(Device& device, const Bytes& blob) {
    return errorOf([&] { device->abort(beginAes(device, blob)); });
}

Bytes aesWith(Device& device, const ParamSet& more) {
    return device->generateKey(with(aesKey(), more));
}

TEST(RateLimit, RunsFromTheEndOfAnOperation) {
    Device device;
    const Bytes blob = aesWith(device, {intParam(KM_TAG_MIN_SECONDS_BETWEEN_OPS, 5)});
    const uint64_t first = beginAes(device, blob);
    const uint64_t second = beginAes(device, blob);  // while one is running
    device.clock.advance(60000);
    device->finish(first, {}, {}, {});
    EXPECT_EQ(tryBegin(device, blob), KM_ERROR_KEY_RATE_LIMIT_EXCEEDED);
    device.clock.advance(4999);
    EXPECT_EQ(tryBegin(device, blob), KM_ERROR_KEY_RATE_LIMIT_EXCEEDED);
    device.clock.advance(1);
    EXPECT_EQ(tryBegin(device, blob), KM_ERROR_OK);  // aborted: starts anew
    EXPECT_EQ(tryBegin(device, blob), KM_ERROR_KEY_RATE_LIMIT_EXCEEDED);
    device.clock.advance(5000);
    // An operation that fails has ended, too.
    EXPECT_EQ(errorOf([&] { device->finish(second, {}, Bytes(15, 0), {}); }),
              KM_ERROR_INVALID_INPUT_LENGTH);
    EXPECT_EQ(tryBegin(device, blob), KM_ERROR_KEY_RATE_LIMIT_EXCEEDED);
    EXPECT_EQ(tryBegin(device, aesWith(device, {})), KM_ERROR_OK);
}

TEST(Tracking, RefusesKeysThatItHasNoRoomFor) {
    Device device;
    const ParamSet counted = {intParam(KM_TAG_MAX_USES_PER_BOOT, 2)};
    const ParamSet limited = {intParam(KM_TAG_MIN_SECONDS_BETWEEN_OPS, 5)};
    for (const ParamSet& params : {counted, limited}) {
        const Bytes first = aesWith(device, params);
        EXPECT_EQ(tryBegin(device, first), KM_ERROR_OK);
        for (int i = 1; i < 64; ++i) {
            ASSERT_EQ(tryBegin(device, aesWith(device, params)), KM_ERROR_OK) << i;
        }
        EXPECT_EQ(tryBegin(device, aesWith(device, params)), KM_ERROR_TOO_MANY_OPERATIONS);
    }
    // Elapsed intervals make room.
    device.clock.advance(5000);
    EXPECT_EQ(tryBegin(device, aesWith(device, limited)), KM_ERROR_OK);
}

TEST(Dates, AreTheCallersUnlessTheClockIsTrusted) {
    Device device;
    const uint64_t now = device.clock.wall;
    struct Case {
        keymaster_tag_t tag;
        uint64_t date;
        uint32_t purpose;
        keymaster_error_t error;
    };
    const Case cases[] = {
        {KM_TAG_ACTIVE_DATETIME, now, KM_PURPOSE_ENCRYPT, KM_ERROR_OK},
        {KM_TAG_ACTIVE_DATETIME, now + 1, KM_PURPOSE_DECRYPT, KM_ERROR_KEY_NOT_YET_VALID},
        {KM_TAG_ORIGINATION_EXPIRE_DATETIME, now, KM_PURPOSE_ENCRYPT, KM_ERROR_OK},
        {KM_TAG_ORIGINATION_EXPIRE_DATETIME, now - 1, KM_PURPOSE_ENCRYPT, KM_ERROR_KEY_EXPIRED},
        {KM_TAG_ORIGINATION_EXPIRE_DATETIME, now - 1, KM_PURPOSE_DECRYPT, KM_ERROR_OK},
        {KM_TAG_USAGE_EXPIRE_DATETIME, now - 1, KM_PURPOSE_ENCRYPT, KM_ERROR_OK},
        {KM_TAG_USAGE_EXPIRE_DATETIME, now - 1, KM_PURPOSE_DECRYPT, KM_ERROR_KEY_EXPIRED},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(&each - cases);
        for (const bool trusted : {false, true}) {
            device.options.trusted_clock = trusted;
            device.boot();
            const Bytes blob = aesWith(device, {intParam(each.tag, each.date)});
            EXPECT_EQ(errorOf([&] { device->begin(each.purpose, blob, ecb()); }),
                      trusted ? each.error : KM_ERROR_OK);
        }
    }
}

TEST(Presence, IsProvenBetweenBeginAndFirstUse) {
    Device device;
    device.config.user_presence = true;
    device.boot();
    const ParamSet pressed = {boolParam(kTagTrustedUserPresenceRequired)};
    const Bytes blob = aesWith(device, pressed);
    const auto finish = [&](uint64_t handle) {
        return errorOf([&] { device->finish(handle, {}, Bytes(16, 0), {}); });
    };
    EXPECT_FALSE(device->confirmPresence()) << "too early";
    const uint64_t first = beginAes(device, blob);
    EXPECT_EQ(tryBegin(device, aesWith(device, pressed)), kErrorConcurrentProofOfPresenceRequested);
    EXPECT_EQ(finish(first), kErrorProofOfPresenceRequired);
    EXPECT_EQ(finish(first), KM_ERROR_INVALID_OPERATION_HANDLE);

    const uint64_t second = beginAes(device, blob);
    EXPECT_TRUE(device->awaitsPresence(second) && device->confirmPresence());
    EXPECT_FALSE(device->awaitsPresence(second) || device->confirmPresence());
    EXPECT_EQ(finish(second), KM_ERROR_OK);
    const uint64_t third = beginAes(device, blob);
    EXPECT_EQ(finish(third), kErrorProofOfPresenceRequired);
}

TEST(KeptOperations, OutliveTheirClientUntilNoStepComesInTime) {
    Device device(kStrongBox);  // has room for four
    const Bytes blob = device->generateKey(aesKey());
    device->serve(1);
    const uint64_t used = beginAes(device, blob), forgotten = beginAes(device, blob);
    const uint64_t third = beginAes(device, blob);
    device->keepOperation(used, 1000);
    device->keepOperation(forgotten, 1000);
    EXPECT_EQ(errorOf([&] { device->keepOperation(third, 1000); }), KM_ERROR_TOO_MANY_OPERATIONS);
    device->abortAllOf(1);
    device.clock.advance(999);
    device->serve(2);
    EXPECT_TRUE(device->isRunning(forgotten) && !device->isRunning(third));
    Bytes output;
    device->update(used, {}, Bytes(16, 0), output);
    device.clock.advance(1);
    device->serve(2);
    EXPECT_TRUE(device->isRunning(used) && !device->isRunning(forgotten));
    device->keepOperation(beginAes(device, blob), 1);
}

}  // namespace
}  // namespace lumo::test
