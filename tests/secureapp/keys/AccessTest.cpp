#include "Device.h"

namespace lumo::test {
namespace {

constexpr uint32_t kPassword = 1;
constexpr uint32_t kFingerprint = 2;
constexpr uint64_t kUser = 0x1111;

// The key that authenticators share with the device in this boot.
Bytes sharedKey(Device& device) {
    return deriveSharedKey(device.shared.records["shared-secret"],
                           {device->hmacSharingParameters()});
}

AuthToken tokenOf(uint64_t user, uint32_t type, uint64_t timestamp, uint64_t challenge = 0) {
    AuthToken fields;
    fields.user_id = user;
    fields.authenticator_type = type;
    fields.timestamp = timestamp;
    fields.challenge = challenge;
    return fields;
}

ParamSet presenting(Device& device, const AuthToken& token) {
    return {bytesParam(KM_TAG_AUTH_TOKEN, makeAuthToken(token, sharedKey(device)))};
}

uint64_t beginAes(Device& device, const Bytes& blob, const ParamSet& more = {}) {
    return device->begin(KM_PURPOSE_ENCRYPT, blob, with(ecb(), more)).handle;
}

// Begins and, where that works, aborts.
keymaster_error_t tryBegin(Device& device, const Bytes& blob, const ParamSet& more = {}) {
    return errorOf([&] { device->abort(beginAes(device, blob, more)); });
}

Bytes aesWith(Device& device, const ParamSet& more) {
    return device->generateKey(with(aesKey(), more));
}

const ParamSet kBound = {intParam(KM_TAG_USER_SECURE_ID, 0x9999),
                         intParam(KM_TAG_USER_SECURE_ID, kUser),
                         intParam(KM_TAG_USER_AUTH_TYPE, kPassword)};
const ParamSet kTimed = with(kBound, {intParam(KM_TAG_AUTH_TIMEOUT, 10)});

TEST(Authentication, WithATimeoutIsCheckedAtBegin) {
    constexpr auto kRefused = KM_ERROR_KEY_USER_NOT_AUTHENTICATED;
    Device device;
    const uint64_t now = device.clock.boot;
    AuthToken by_authenticator = tokenOf(5, kPassword, now);
    by_authenticator.authenticator_id = kUser;
    struct Case {
        const char* what;
        AuthToken token;
        keymaster_error_t error;
    };
    const Case cases[] = {
        {"fresh", tokenOf(kUser, kPassword, now), KM_ERROR_OK},
        {"by authenticator id", by_authenticator, KM_ERROR_OK},
        {"several kinds", tokenOf(kUser, kPassword | kFingerprint, now), KM_ERROR_OK},
        {"nearly too old", tokenOf(kUser, kPassword, now - 9999), KM_ERROR_OK},
        {"too old", tokenOf(kUser, kPassword, now - 10000), kRefused},
        {"from the future", tokenOf(kUser, kPassword, now + 1), kRefused},
        {"another user", tokenOf(5, kPassword, now), kRefused},
        {"nobody", tokenOf(0, kPassword, now), kRefused},
        {"another kind", tokenOf(kUser, kFingerprint, now), kRefused},
    };
    for (const uint64_t version : {kBlobVersion4_0, kBlobVersion4_1}) {
        device.options.blob_version = version;
        device.boot();
        const Bytes blob = aesWith(device, kTimed);
        for (const Case& each : cases) {
            SCOPED_TRACE(each.what);
            EXPECT_EQ(tryBegin(device, blob, presenting(device, each.token)), each.error);
        }
        ParamSet forged = presenting(device, cases[0].token);
        Bytes record = forged.bytes(KM_TAG_AUTH_TOKEN).copy();
        record.back() ^= 1;
        EXPECT_EQ(tryBegin(device, blob, {bytesParam(KM_TAG_AUTH_TOKEN, record)}), kRefused);
        EXPECT_EQ(tryBegin(device, blob, {bytesParam(KM_TAG_AUTH_TOKEN, Bytes(69, 0))}), kRefused);
        EXPECT_EQ(tryBegin(device, blob), kRefused);
        // Afterwards no token is looked at.
        const uint64_t handle = beginAes(device, blob, presenting(device, cases[0].token));
        device.clock.advance(20000);
        EXPECT_EQ(device->finish(handle, {}, Bytes(16, 0), {}).size(), 16U);
        device.clock.boot = now;
    }
}

TEST(Authentication, WithoutATimeoutIsCheckedOnEveryCallByHandle) {
    Device device;
    const Bytes blob = aesWith(device, kBound);
    const auto use = [&](uint64_t challenge_change, bool finish) {
        const uint64_t handle = beginAes(device, blob);
        const ParamSet good = presenting(device, tokenOf(kUser, kPassword, 0, handle));
        const ParamSet other =
            presenting(device, tokenOf(kUser, kPassword, 0, handle + challenge_change));
        return errorOf([&] {
            device->update(handle, finish ? good : other, Bytes(16, 0));
            device->finish(handle, other, {}, {});
        });
    };
    EXPECT_EQ(use(0, false), KM_ERROR_OK);
    EXPECT_EQ(use(1, false), KM_ERROR_KEY_USER_NOT_AUTHENTICATED);
    EXPECT_EQ(use(1, true), KM_ERROR_KEY_USER_NOT_AUTHENTICATED);

    // A refusal ends the operation.
    const uint64_t handle = beginAes(device, blob);
    EXPECT_EQ(errorOf([&] { device->update(handle, {}, {}); }),
              KM_ERROR_KEY_USER_NOT_AUTHENTICATED);
    EXPECT_EQ(errorOf([&] { device->abort(handle); }), KM_ERROR_INVALID_OPERATION_HANDLE);
}

TEST(Authentication, NeedsAKindOfAuthenticatorInTheKey) {
    Device device;
    const Bytes blob = aesWith(device, without(kTimed, KM_TAG_USER_AUTH_TYPE));
    const AuthToken fresh = tokenOf(kUser, 0xFFFFFFFF, device.clock.boot);
    EXPECT_EQ(tryBegin(device, blob, presenting(device, fresh)),
              KM_ERROR_KEY_USER_NOT_AUTHENTICATED);
}

TEST(Authentication, CountsSecureIdsBeyondTheClearPart) {
    Device device;
    ParamSet params = {intParam(KM_TAG_USER_AUTH_TYPE, kPassword),
                       intParam(KM_TAG_AUTH_TIMEOUT, 1)};
    for (uint64_t id = 101; id <= 106; ++id) params.add(intParam(KM_TAG_USER_SECURE_ID, id));
    const AuthToken sixth = tokenOf(106, kPassword, device.clock.boot);
    EXPECT_EQ(tryBegin(device, aesWith(device, params), presenting(device, sixth)), KM_ERROR_OK);
}

TEST(DeviceLock, HoldsUntilALaterTokenComes) {
    for (const uint64_t version : {kBlobVersion4_0, kBlobVersion4_1}) {
        Device device;
        device.options.blob_version = version;
        device.boot();
        const Bytes blob = aesWith(device, {boolParam(KM_TAG_UNLOCKED_DEVICE_REQUIRED)});
        const Bytes other = aesWith(device, {});
        EXPECT_EQ(tryBegin(device, blob), KM_ERROR_OK);

        const uint64_t locked_at = device.clock.boot;
        const auto attempt = [&](uint32_t type, uint64_t timestamp) {
            return tryBegin(device, blob, presenting(device, tokenOf(5, type, timestamp)));
        };
        device->deviceLocked(false);
        EXPECT_EQ(tryBegin(device, blob), KM_ERROR_DEVICE_LOCKED);
        EXPECT_EQ(tryBegin(device, other), KM_ERROR_OK);
        EXPECT_EQ(attempt(kFingerprint, locked_at), KM_ERROR_DEVICE_LOCKED);
        EXPECT_EQ(attempt(kFingerprint, locked_at + 1), KM_ERROR_OK);
        EXPECT_EQ(tryBegin(device, blob), KM_ERROR_OK);  // stays unlocked

        device->deviceLocked(true);
        EXPECT_EQ(attempt(kFingerprint, locked_at + 1), KM_ERROR_DEVICE_LOCKED);
        EXPECT_EQ(attempt(kPassword, locked_at + 1), KM_ERROR_OK);

        device->deviceLocked(true);
        device->deviceLocked(false);
        device.boot();
        EXPECT_EQ(tryBegin(device, blob), KM_ERROR_OK);
    }
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

TEST(UseCount, HoldsForOneBoot) {
    Device device;
    const Bytes blob = aesWith(device, {intParam(KM_TAG_MAX_USES_PER_BOOT, 3)});
    // A begin that fails is no use.
    EXPECT_EQ(errorOf([&] { device->begin(KM_PURPOSE_ENCRYPT, blob, {}); }),
              KM_ERROR_UNSUPPORTED_BLOCK_MODE);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(tryBegin(device, blob), KM_ERROR_OK);
    EXPECT_EQ(tryBegin(device, blob), KM_ERROR_KEY_MAX_OPS_EXCEEDED);
    device.boot();
    EXPECT_EQ(tryBegin(device, blob), KM_ERROR_OK);
    const Bytes never = aesWith(device, {intParam(KM_TAG_MAX_USES_PER_BOOT, 0)});
    EXPECT_EQ(tryBegin(device, never), KM_ERROR_KEY_MAX_OPS_EXCEEDED);
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
    device.world.user_presence = true;
    device.boot();
    const ParamSet pressed = {boolParam(KM_TAG_TRUSTED_USER_PRESENCE_REQUIRED)};
    const Bytes blob = aesWith(device, pressed);
    const auto finish = [&](uint64_t handle) {
        return errorOf([&] { device->finish(handle, {}, Bytes(16, 0), {}); });
    };
    device->pressButton();  // too early
    const uint64_t first = beginAes(device, blob);
    EXPECT_EQ(tryBegin(device, aesWith(device, pressed)),
              KM_ERROR_CONCURRENT_PROOF_OF_PRESENCE_REQUESTED);
    EXPECT_EQ(finish(first), KM_ERROR_PROOF_OF_PRESENCE_REQUIRED);
    EXPECT_EQ(finish(first), KM_ERROR_INVALID_OPERATION_HANDLE);

    const uint64_t second = beginAes(device, blob);
    device->pressButton();
    EXPECT_EQ(finish(second), KM_ERROR_OK);
    const uint64_t third = beginAes(device, blob);
    EXPECT_EQ(finish(third), KM_ERROR_PROOF_OF_PRESENCE_REQUIRED);
}

// Anyone can do with the public key what he likes, so no rule but the key's binding holds him up.
TEST(PublicKeyOperations, AreExempt) {
    Device device;
    ParamSet params = with(without(ecKey(), KM_TAG_PURPOSE), kTimed);
    params.add(intParam(KM_TAG_MAX_USES_PER_BOOT, 0));
    params.add(boolParam(KM_TAG_UNLOCKED_DEVICE_REQUIRED));
    const Bytes blob = device->generateKey(params);
    device->deviceLocked(false);
    EXPECT_EQ(errorOf([&] { device->begin(KM_PURPOSE_VERIFY, blob, sha256Digest()); }),
              KM_ERROR_OK);
    EXPECT_EQ(errorOf([&] { device->begin(KM_PURPOSE_SIGN, blob, sha256Digest()); }),
              KM_ERROR_INCOMPATIBLE_PURPOSE);
}

TEST(Begin, ChecksInThePublishedOrder) {
    Device device;
    const ParamSet refused = with(kTimed, {boolParam(KM_TAG_BOOTLOADER_ONLY)});
    const Bytes bootloader = aesWith(device, refused);
    EXPECT_EQ(tryBegin(device, bootloader), KM_ERROR_INVALID_KEY_BLOB);
    EXPECT_EQ(errorOf([&] { device->characteristics(bootloader, {}); }), KM_ERROR_OK);

    const Bytes early = aesWith(device, {boolParam(KM_TAG_EARLY_BOOT_ONLY)});
    EXPECT_EQ(tryBegin(device, early), KM_ERROR_OK);
    device->earlyBootEnded();
    const auto begin = [&](const Bytes& blob, uint32_t purpose, const ParamSet& params) {
        return errorOf([&] { device->begin(purpose, blob, params); });
    };
    EXPECT_EQ(begin(early, KM_PURPOSE_SIGN, {}), KM_ERROR_EARLY_BOOT_ENDED);
    EXPECT_EQ(errorOf([&] { aesWith(device, {boolParam(KM_TAG_EARLY_BOOT_ONLY)}); }),
              KM_ERROR_EARLY_BOOT_ENDED);

    const ParamSet encrypt_only =
        with(without(aesKey(), KM_TAG_PURPOSE), {intParam(KM_TAG_PURPOSE, KM_PURPOSE_ENCRYPT)});
    const Bytes blob = device->generateKey(with(encrypt_only, kTimed));
    EXPECT_EQ(begin(blob, KM_PURPOSE_SIGN, {}), KM_ERROR_UNSUPPORTED_PURPOSE);
    EXPECT_EQ(begin(blob, KM_PURPOSE_DECRYPT, {}), KM_ERROR_INCOMPATIBLE_PURPOSE);
    EXPECT_EQ(begin(blob, KM_PURPOSE_ENCRYPT, {}), KM_ERROR_KEY_USER_NOT_AUTHENTICATED);
    const Bytes both = aesWith(device, with(kTimed, {boolParam(KM_TAG_UNLOCKED_DEVICE_REQUIRED)}));
    EXPECT_EQ(begin(both, KM_PURPOSE_ENCRYPT, {}), KM_ERROR_KEY_USER_NOT_AUTHENTICATED);
    device->deviceLocked(false);
    EXPECT_EQ(begin(both, KM_PURPOSE_ENCRYPT, {}), KM_ERROR_DEVICE_LOCKED);
}

TEST(Operations, AreLimitedAndNeverEvicted) {
    for (const auto& [level, most] : {std::pair(kTee, 16U), std::pair(kStrongBox, 4U)}) {
        Device device(level);
        const Bytes blob = aesWith(device, {intParam(KM_TAG_MAX_USES_PER_BOOT, 17)});
        std::vector<uint64_t> handles(most);
        for (uint64_t& handle : handles) handle = beginAes(device, blob);
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(tryBegin(device, blob), KM_ERROR_TOO_MANY_OPERATIONS);
        }
        for (const uint64_t handle : handles) device->abort(handle);
        EXPECT_EQ(tryBegin(device, blob), KM_ERROR_OK);  // the refused ones did not count
        EXPECT_EQ(errorOf([&] { device->abort(handles[0]); }), KM_ERROR_INVALID_OPERATION_HANDLE);
    }
}

}  // namespace
}  // namespace lumo::test
