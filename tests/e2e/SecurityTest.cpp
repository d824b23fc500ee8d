// Who may use a key, when and how often: authentication, locks, counts, confirmation.
#include <time.h>

#include "Stack.h"

namespace lumo::test {
namespace {

constexpr uint32_t kPassword = 1, kFingerprint = 2;
constexpr uint64_t kUser = 0x1111;
constexpr auto kEncrypt = KeyPurpose::ENCRYPT;
const char* const kEcb = "ecb nopad";

uint64_t now() {
    timespec time = {};
    clock_gettime(CLOCK_BOOTTIME, &time);
    return static_cast<uint64_t>(time.tv_sec) * 1000 +
           static_cast<uint64_t>(time.tv_nsec) / 1000000;
}

AuthToken by(uint64_t user, uint32_t type, uint64_t timestamp, uint64_t challenge = 0) {
    return {challenge, user, 5, type, timestamp};
}

class Security : public Stack {
  protected:
    Bytes aes(const std::string& more) {
        const Key key = generate("aes size:128 encrypt decrypt ecb nopad " + more);
        EXPECT_EQ(key.error, E::OK) << more;
        return key.blob;
    }
    E use(const Bytes& key, const HardwareAuthToken& token = {}) {
        return tryBegin(kEncrypt, key, kEcb, token);
    }
    E lock(bool password_only) { return km_->deviceLocked(password_only, {}); }
    E endEarlyBoot() { return km_->earlyBootEnded(); }
};
LUMO_ON_ALL_TARGETS(Security);

TEST_P(Security, TokensWithinTheTimeoutAuthorizeBegin) {
    const Bytes key = aes("sid:9 sid:4369 authtype:1 timeout:60");
    AuthToken authenticator = by(5, kPassword, now());
    authenticator.authenticator_id = kUser;
    constexpr E kRefused = E::KEY_USER_NOT_AUTHENTICATED;
    struct Case {
        const char* what;
        AuthToken token;
        E error;
    };
    const Case cases[] = {
        {"fresh", by(kUser, kPassword, now()), E::OK},
        {"by authenticator", authenticator, E::OK},
        {"of two kinds", by(kUser, kPassword | kFingerprint, now()), E::OK},
        {"old", by(kUser, kPassword, now() - 50'000), E::OK},
        {"too old", by(kUser, kPassword, now() - 60'000), kRefused},
        {"from the future", by(kUser, kPassword, now() + 60'000), kRefused},
        {"another user's", by(7, kPassword, now()), kRefused},
        {"of another kind", by(kUser, kFingerprint, now()), kRefused},
    };
    for (const Case& each : cases) {
        EXPECT_EQ(use(key, token(each.token)), each.error) << each.what;
    }
    HardwareAuthToken forged = token(by(kUser, kPassword, now()));
    forged.mac[3] = static_cast<uint8_t>(forged.mac[3] ^ 1);
    EXPECT_EQ(use(key, forged), kRefused);
    EXPECT_EQ(use(key), kRefused);
    EXPECT_EQ(use(aes("noauth")), E::OK);
    EXPECT_EQ(use(aes("")), E::OK);  // bound to nobody
    // More ids than the blob's clear part has room for.
    const Bytes many = aes("sid:1 sid:2 sid:3 sid:4 sid:6 sid:4369 authtype:1 timeout:600");
    EXPECT_EQ(use(many, token(by(kUser, kPassword, now()))), E::OK);
    EXPECT_EQ(use(aes("sid:4369 timeout:9"), token(by(kUser, ~0U, now()))), kRefused);
}

TEST_P(Security, WithoutATimeoutEveryCallNeedsItsToken) {
    const Bytes key = aes("sid:4369 authtype:3");
    constexpr E kRefused = E::KEY_USER_NOT_AUTHENTICATED;
    const Begun begun = begin(kEncrypt, key, kEcb);
    const HardwareAuthToken good = token(by(kUser, kPassword, 0, begun.handle));
    EXPECT_EQ(update(begun.handle, pattern(16), "", good).data.size(), 16U);
    EXPECT_EQ(finish(begun.handle, {}, {}, "", good).error, E::OK);
    for (const bool in_finish : {false, true}) {
        const uint64_t handle = begin(kEncrypt, key, kEcb).handle;
        const HardwareAuthToken other = token(by(kUser, kPassword, 0, handle + 1));
        EXPECT_EQ(in_finish ? finish(handle, {}, {}, "", other).error
                            : update(handle, pattern(16), "", other).error,
                  kRefused);
        EXPECT_EQ(abort(handle), E::INVALID_OPERATION_HANDLE);
    }
}

TEST_P(Security, PublicKeysNeedNoAuthorization) {
    const Key key = import("rsa sid:4369 authtype:1 timeout:1 uses:0 unlocked", KeyFormat::PKCS8,
                           rsaPrivate(2048));
    EXPECT_EQ(lock(false), E::OK);
    for (const char* how : {"nopad nodigest", "pss sha256"}) {
        EXPECT_EQ(tryBegin(KeyPurpose::VERIFY, key.blob, how), E::OK);
    }
    EXPECT_EQ(tryBegin(kEncrypt, key.blob, "pkcs1crypt"), E::OK);
}

TEST_P(Security, ALockedDeviceWaitsForALaterToken) {
    const std::string unlocked = " noauth unlocked";
    const struct {
        Bytes blob;
        KeyPurpose purpose;
        const char* how;
    } keys[] = {
        {aes(unlocked), kEncrypt, kEcb},
        {generate("hmac size:128 sign sha256 minmac:128" + unlocked).blob, KeyPurpose::SIGN,
         "sha256 mac:128"},
        {generate("ec p256 sign sha256" + unlocked).blob, KeyPurpose::SIGN, "sha256"},
        {import("rsa sign pss sha256" + unlocked, KeyFormat::PKCS8, rsaPrivate(2048)).blob,
         KeyPurpose::SIGN, "pss sha256"},
    };
    const auto tryAll = [&](const HardwareAuthToken& token) {
        const E answer = tryBegin(keys[0].purpose, keys[0].blob, keys[0].how, token);
        for (const auto& key : keys) {
            EXPECT_EQ(tryBegin(key.purpose, key.blob, key.how, token), answer);
        }
        return answer;
    };
    const uint64_t before = now() - 1;
    EXPECT_EQ(tryAll({}), E::OK);
    EXPECT_EQ(lock(false), E::OK);
    EXPECT_EQ(tryAll({}), E::DEVICE_LOCKED);
    EXPECT_EQ(use(aes("noauth")), E::OK);
    EXPECT_EQ(tryAll(token(by(7, kFingerprint, before))), E::DEVICE_LOCKED);
    EXPECT_EQ(tryAll(token(by(7, kFingerprint, now() + 1000))), E::OK);
    EXPECT_EQ(tryAll({}), E::OK);  // stays unlocked
    EXPECT_EQ(lock(true), E::OK);
    EXPECT_EQ(tryAll(token(by(7, kFingerprint, now() + 1000))), E::DEVICE_LOCKED);
    EXPECT_EQ(tryAll(token(by(7, kPassword, now() + 1000))), E::OK);
}

TEST_P(Security, EarlyBootKeysEndWithEarlyBoot) {
    const std::string more = " noauth earlyboot";
    const char* keys[] = {"aes size:128 encrypt ecb nopad", "hmac size:128 sign sha256 minmac:128",
                          "rsa size:2048 e:65537", "ec p256 sign sha256"};
    const Key key = generate(keys[0] + more);
    // Of the readers of blobs only the newest one knows the field.
    EXPECT_EQ(contains(key.hardware, "earlyboot"), !GetParam().legacy) << key.hardware;
    EXPECT_EQ(use(key.blob), E::OK);
    for (int i = 0; i < 2; ++i) EXPECT_EQ(endEarlyBoot(), E::OK);
    EXPECT_EQ(use(key.blob), E::EARLY_BOOT_ENDED);
    for (const char* words : keys) EXPECT_EQ(generate(words + more).error, E::EARLY_BOOT_ENDED);
    EXPECT_EQ(import("rsa earlyboot", KeyFormat::PKCS8, rsaPrivate(2048)).error,
              E::EARLY_BOOT_ENDED);
    EXPECT_EQ(characteristics(key.blob).error, E::OK);
    boot();
    EXPECT_EQ(use(key.blob), E::OK);
}

TEST_P(Security, UsesAreCountedByBootAndSpacedBySeconds) {
    const Bytes counted = aes("uses:3");
    EXPECT_EQ(tryBegin(kEncrypt, counted, "cbc nopad"), E::INCOMPATIBLE_BLOCK_MODE);  // no use
    for (int i = 0; i < 3; ++i) EXPECT_EQ(use(counted), E::OK);
    EXPECT_EQ(use(counted), E::KEY_MAX_OPS_EXCEEDED);
    const Key rsa = import("rsa sign pss sha256 uses:1", KeyFormat::PKCS8, rsaPrivate(2048));
    EXPECT_EQ(sign(rsa.blob, "pss sha256", text("x")).error, E::OK);
    EXPECT_EQ(sign(rsa.blob, "pss sha256", text("x")).error, E::KEY_MAX_OPS_EXCEEDED);

    const Bytes spaced = aes("seconds:600");
    const uint64_t first = begin(kEncrypt, spaced, kEcb).handle;
    const uint64_t second = begin(kEncrypt, spaced, kEcb).handle;  // none has ended yet
    EXPECT_EQ(finish(first).error, E::OK);
    EXPECT_EQ(use(spaced), E::KEY_RATE_LIMIT_EXCEEDED);
    EXPECT_EQ(abort(second), E::OK);
    EXPECT_EQ(use(aes("seconds:0")), E::OK);
    boot();
    EXPECT_EQ(use(counted), E::OK);
}

TEST_P(Security, ConfirmedSignaturesNeedTheirToken) {
    const Bytes key = generate("ec p256 sign sha256 noauth confirmed").blob;
    const Bytes message = text("prompt");
    const auto confirm = [&](const std::string& how) {
        const Begun begun = begin(KeyPurpose::SIGN, key, "sha256");
        EXPECT_EQ(update(begun.handle, text("pro")).error, E::OK);
        return finish(begun.handle, text("mpt"), {}, how).error;
    };
    const Bytes token = secureapp::confirmationToken(sharedKey(), message);
    EXPECT_EQ(confirm("confirm:0x" + toHex(token)), E::OK);
    EXPECT_EQ(confirm("confirm:0x" + toHex(flipped(token, 31))), E::NO_USER_CONFIRMATION);
    EXPECT_EQ(confirm(""), E::NO_USER_CONFIRMATION);
}

}  // namespace
}  // namespace lumo::test
