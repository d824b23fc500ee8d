// Fixed-layout requests and answers, word by word.
#include <openssl/ec.h>
#include <openssl/objects.h>

#include "../attestation/WrappedKeyVector.h"
#include "App.h"

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

// P-256, sign and verify, SHA-256, no authentication. Second words are left over from parameters
// before, the upper bytes of a boolean too.
Bytes ecParams() {
    return param(0x10000002, 3) + param(0x30000003, 256) + param(0x20000001, 2) +
           param(0x20000001, 3) + param(0x20000005, 4) + param(0x700001F7, 0xFFFFFF01);
}

Bytes generateEc() {
    return words({0x108, 12, 6}) + ecParams();
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

Bytes finishRequest(const Bytes& begun, const Bytes& input) {
    return words({0x112, wordAt(begun, 2), wordAt(begun, 3), 0, 0, input.empty() ? 0U : 36U,
                  size32(input), 0, 0}) +
           input;
}

// r and s of a fixed width as a DER signature, written out by hand.
Bytes derOf(const Bytes& raw) {
    const auto integer = [](Bytes number) {
        while (number.size() > 1 && number[0] == 0) number.erase(number.begin());
        if ((number[0] & 0x80) != 0) number.insert(number.begin(), 0);
        return Bytes{2, static_cast<uint8_t>(number.size())} + number;
    };
    const size_t width = raw.size() / 2;
    const Bytes both = integer(slice(raw, 0, width)) + integer(slice(raw, width, width));
    Bytes head = {0x30};
    if (both.size() > 127) head.push_back(0x81);
    head.push_back(static_cast<uint8_t>(both.size()));
    return head + both;
}

Bytes coordinate(const BIGNUM* number, size_t width) {
    Bytes bytes(width);
    BN_bn2binpad(number, bytes.data(), static_cast<int>(width));
    return bytes;
}

// A P-256 key whose scalar begins with a zero byte, and the words of its import record.
struct EcKey {
    Bytes scalar = Bytes(1, 0) + Bytes(31, 0x5A);
    Bytes x, y, public_key;

    EcKey() {
        EC_KEY* key = EC_KEY_new_by_curve_name(NID_X9_62_prime256v1);
        const EC_GROUP* group = EC_KEY_get0_group(key);
        BIGNUM* d = BN_bin2bn(scalar.data(), 32, nullptr);
        EC_POINT* point = EC_POINT_new(group);
        EC_POINT_mul(group, point, d, nullptr, nullptr, nullptr);
        EC_KEY_set_public_key(key, point);
        BIGNUM* x_number = BN_new();
        BIGNUM* y_number = BN_new();
        EC_POINT_get_affine_coordinates_GFp(group, point, x_number, y_number, nullptr);
        x = coordinate(x_number, 32);
        y = coordinate(y_number, 32);
        public_key.resize(static_cast<size_t>(i2d_EC_PUBKEY(key, nullptr)));
        uint8_t* cursor = public_key.data();
        i2d_EC_PUBKEY(key, &cursor);
        BN_free(x_number);
        BN_free(y_number);
        EC_POINT_free(point);
        BN_free(d);
        EC_KEY_free(key);
    }

    // The header's last word is where the last number ends, not a length.
    Bytes importRequest(uint32_t bits = 256, uint32_t width = 32) const {
        const uint32_t params = 24;
        const uint32_t record = params + 6 * 12;
        const uint32_t numbers = record + 28;
        return words({0x10B, 1, params, 6, record, numbers + 3 * width}) + ecParams() +
               words({bits, numbers, width, numbers + width, width, numbers + 2 * width, width}) +
               scalar + x + y;
    }
};

TEST(RecordFace, EcSignaturesTravelAsNumbersOnEveryLegacyProfile) {
    for (const char* profile : {"legacy-3", "legacy-3-encoding", "legacy-4"}) {
        App phone(profile);
        phone.configureByRecord();
        const Bytes generated = phone.sendRecord(generateEc());
        EXPECT_EQ(wordAt(generated, 2), 16U);
        const Bytes blob = itemOf(generated, 2);

        const Bytes digest = param(0x20000005, 4);
        // The copy stands for a parameter of a type that the client does not know.
        const Bytes begun = phone.sendRecord(beginRequest(2, blob, {digest, digest}));
        EXPECT_EQ(wordAt(begun, 4), 3U);
        EXPECT_EQ(wordAt(begun, 9), 0U);
        const Bytes finished = phone.sendRecord(finishRequest(begun, hex("616263")), labels(16));
        const Bytes raw = itemOf(finished, 2);
        ASSERT_EQ(raw.size(), 64U) << profile;

        // The signature back, its numbers without leading zeros behind their record.
        Bytes r = slice(raw, 0, 32);
        while (r.front() == 0) r.erase(r.begin());
        const Bytes s = slice(raw, 32, 32);
        const Bytes verifying = phone.sendRecord(beginRequest(3, blob, {digest}));
        const uint32_t place = 36 + 3;
        const Bytes verified = phone.sendRecord(
            words({0x112, wordAt(verifying, 2), wordAt(verifying, 3), 0, 0, 36, 3, place,
                   16 + size32(r) + size32(s)}) +
                hex("616263") + words({place + 16, size32(r), place + 16 + size32(r), size32(s)}) +
                r + s,
            labels(16));
        EXPECT_EQ(wordAt(verified, 3), 0U);
    }
}

TEST(RecordFace, TakesEcKeysAsPartsAndGivesThemBackSo) {
    const EcKey key;
    App phone("legacy-3");
    phone.configureByRecord();
    const Bytes blob = itemOf(phone.sendRecord(key.importRequest()), 2);
    EXPECT_EQ(wordAt(blob, 3), 3U);  // the blob's major version

    const Bytes exported = phone.sendRecord(words({0x10C, 32, size32(blob), 0, 0, 0, 0, 0}) + blob,
                                            words({0, 0, 0, 20, 9000}));
    EXPECT_EQ(wordAt(exported, 2), 3U);
    EXPECT_EQ(wordAt(exported, 3), 20U);
    const Bytes parts = itemOf(exported, 3);
    EXPECT_EQ(toHex(itemOf(parts, 3)), toHex(key.x));
    EXPECT_EQ(toHex(itemOf(parts, 5)), toHex(key.y));

    const Bytes begun = phone.sendRecord(beginRequest(2, blob, {param(0x20000005, 4)}));
    const Bytes finished = phone.sendRecord(finishRequest(begun, hex("616263")), labels(16));
    EXPECT_TRUE(verifies(key.public_key, hex("616263"), derOf(itemOf(finished, 2))));

    EXPECT_EQ(statusOf(phone.record(key.importRequest(255))), KM_ERROR_UNSUPPORTED_KEY_SIZE);
    EXPECT_EQ(statusOf(phone.record(key.importRequest(256, 31))), KM_ERROR_INVALID_ARGUMENT);
    Bytes off_curve = key.importRequest();
    off_curve.back() ^= 1;
    EXPECT_EQ(statusOf(phone.record(off_curve)), KM_ERROR_INVALID_ARGUMENT);
}

TEST(RecordFace, PublicKeysAreEncodedWhereTheProfileSaysSo) {
    const EcKey key;
    App phone("legacy-3-encoding");
    phone.configureByRecord();
    const Bytes blob = itemOf(phone.sendRecord(key.importRequest()), 2);
    const Bytes exported = phone.sendRecord(words({0x10C, 32, size32(blob), 0, 0, 0, 0, 0}) + blob,
                                            words({0, 0, 0, 20, 9000}));
    EXPECT_EQ(toHex(itemOf(exported, 3)), toHex(key.public_key));
}

TEST(RecordFace, GivesRsaKeysAsModulusAndExponent) {
    App phone("legacy-3");
    phone.configureByRecord();
    const Bytes pkcs8 = hex(kWrappingKey);
    const uint32_t data = 24 + 4 * 12;
    const Bytes blob =
        itemOf(phone.sendRecord(words({0x10B, 1, 24, 4, data, size32(pkcs8)}) +
                                param(0x10000002, 1) + param(0x20000001, 2) +
                                param(0x500000C8, 65537, 0) + param(0x700001F7, 1, 0) + pkcs8),
               2);
    const Bytes exported = phone.sendRecord(words({0x10C, 32, size32(blob), 0, 0, 0, 0, 0}) + blob,
                                            words({0, 0, 0, 20, 9000}));
    EXPECT_EQ(wordAt(exported, 2), 1U);
    const Bytes parts = itemOf(exported, 3);
    // The modulus stands in the PKCS#8 behind 38 bytes of DER.
    EXPECT_EQ(toHex(itemOf(parts, 0)), toHex(slice(pkcs8, 38, 256)));
    EXPECT_EQ(toHex(itemOf(parts, 2)), "010001");
}

TEST(RecordFace, WordsLeftOverDoNotConfuse) {
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
                                hex("6964646174")),
               2);
    const auto characteristics = [&](const Bytes& id, const Bytes& data) {
        const uint32_t behind = 28 + size32(blob);
        return phone.record(words({0x109, 28, size32(blob), behind, size32(id), behind + size32(id),
                                   size32(data)}) +
                            blob + id + data);
    };
    const Bytes answer = characteristics(hex("6964"), hex("646174"));
    EXPECT_EQ(statusOf(answer), 0);
    EXPECT_EQ(toHex(itemOf(answer, 2)), toHex(blob));
    EXPECT_EQ(blob.at(251), 0) << "a false boolean became exportable";
    EXPECT_EQ(wordAt(blob, 12), 1U) << "purposes";
    EXPECT_EQ(statusOf(characteristics(hex("6964"), hex("646175"))), KM_ERROR_INVALID_KEY_BLOB);
}

TEST(RecordFace, OutputGoesWhereTheClientWantsIt) {
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

TEST(RecordFace, CertificatesCountFromTheirTable) {
    App phone("legacy-4");
    phone.configureByRecord();
    const Bytes blob = itemOf(phone.sendRecord(generateEc()), 2);
    const uint32_t params = 92 + size32(blob);
    Bytes request = words({0x115, 92, size32(blob), params, 2}) + Bytes(18 * 4, 0xEE) + blob +
                    param(0x900002C4, params + 24, 2) + param(0x900002C5, params + 26, 2) +
                    hex("63636964");
    const Bytes answer = phone.sendRecord(request);
    const uint32_t count = wordAt(answer, 4);
    ASSERT_GE(count, 2U);
    const Bytes table = slice(answer, wordAt(answer, 2), SIZE_MAX);
    uint32_t next = count * 8;
    for (uint32_t i = 0; i < count; ++i) {
        EXPECT_EQ(wordAt(table, 2 * i), next);
        const Bytes certificate = itemOf(table, 2 * i);
        const uint8_t* cursor = certificate.data();
        X509* parsed = d2i_X509(nullptr, &cursor, static_cast<long>(certificate.size()));
        EXPECT_NE(parsed, nullptr) << i;
        EXPECT_EQ(cursor, certificate.data() + certificate.size());
        X509_free(parsed);
        next += size32(certificate);
    }
}

TEST(RecordFace, ImportsWrappedKeysInTheRecordsOrder) {
    App phone("legacy-4");
    phone.configureByRecord();
    const Bytes pkcs8 = hex(kWrappingKey);
    const uint32_t data = 24 + 5 * 12;
    const Bytes wrapping =
        itemOf(phone.sendRecord(words({0x10B, 1, 24, 5, data, size32(pkcs8)}) +
                                param(0x10000002, 1) + param(0x20000001, 5) + param(0x20000006, 2) +
                                param(0x20000005, 4) + param(0x500000C8, 65537, 0) + pkcs8),
               2);
    const Bytes wrapped = hex(kWrappedKey);
    Bytes mask;
    for (uint8_t i = 0xE0; mask.size() < 32; ++i) mask.push_back(i);
    const uint32_t second = 52 + size32(wrapping);
    const uint32_t third = second + size32(wrapped);
    const Bytes answer = phone.record(
        words({0x117, 0, 0, 0, 0, 52, size32(wrapping), second, size32(wrapped), third, 32, 0, 0}) +
        wrapping + wrapped + mask);
    ASSERT_EQ(statusOf(answer), 0);
    EXPECT_EQ(wordAt(answer, 1), 12U);
    EXPECT_EQ(toHex(slice(itemOf(answer, 1), 0, 4)), "444b4d4b");
}

TEST(RecordFace, AgreesOnTheHmacKeyAndGivesTokens) {
    App phone("legacy-3");
    phone.configureByRecord();
    const Bytes own = slice(phone.sendRecord(words({0x20E})), 4, 64);
    EXPECT_EQ(slice(own, 0, 32), Bytes(32, 0));
    const Bytes check = phone.sendRecord(words({0x20F, 12, 2}) + own + Bytes(64, 5));
    EXPECT_NE(slice(check, 4, 32), Bytes(32, 0xEE));
    EXPECT_EQ(statusOf(phone.record(words({0x20F, 12, 1}) + Bytes(64, 5))),
              KM_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(statusOf(phone.record(words({0x20F, 12, 0x4000000}) + own)),
              KM_ERROR_INVALID_ARGUMENT);

    const Bytes token = phone.sendRecord(words({0x118, 0x55667788, 0x11223344}));
    EXPECT_EQ(wordAt(token, 1), 0x55667788U);
    EXPECT_EQ(wordAt(token, 2), 0x11223344U);
    EXPECT_EQ(wordAt(token, 3), 1'000'000U);
    EXPECT_EQ(wordAt(token, 5), 1U);
    EXPECT_EQ(slice(token, 56, 4), Bytes(4, 0xEE));
    EXPECT_EQ(statusOf(App("legacy-3", kStrongBox).record(words({0x118, 1, 0}))),
              KM_ERROR_UNIMPLEMENTED);
}

// The body lies at byte 60 although the header says 16; what lies between is left over.
TEST(RecordFace, TakesTheRootOfTrustAsItIsSent) {
    for (const char* profile : {"cbor", "legacy-3"}) {
        App phone(profile);
        phone.sendRecord(words({0x201, 12, 32}) + Bytes(32, 0x77));
        const Bytes head = words({0x208, 0, 16, 48}) + Bytes(44, 0xEE);
        const Bytes body = words({1, 0x77777777}) + Bytes(28, 0xFF) + words({0, 110000, 202012});
        EXPECT_EQ(statusOf(phone.record(words({0x208, 0, 60, 48}) + Bytes(44, 0xEE) + body)),
                  KM_ERROR_INVALID_ARGUMENT);
        EXPECT_EQ(statusOf(phone.record(head + body + Bytes(4, 0))), KM_ERROR_INVALID_ARGUMENT);
        phone.sendRecord(head + body);
        EXPECT_EQ(phone.app.keymaster().world().verified_boot_key, Bytes(32, 0x77));
        EXPECT_TRUE(phone.app.keymaster().world().device_locked);
        EXPECT_EQ(statusOf(phone.record(words({0x201, 12, 32}) + Bytes(32, 0x78))),
                  KM_ERROR_ROOT_OF_TRUST_ALREADY_SET);
    }
}

TEST(RecordFace, AnswersOnlyItsOwnCommands) {
    const Bytes probe = words({0x215, 0, 0});
    EXPECT_EQ(statusOf(App("cbor").record(probe)), 0);
    EXPECT_EQ(statusOf(App("legacy-4", kStrongBox).record(probe)), 0);
    EXPECT_EQ(statusOf(App("legacy-3-encoding").record(probe)), 0);
    EXPECT_EQ(statusOf(App("legacy-3").record(probe)), KM_ERROR_INVALID_TAG);

    struct {
        const char* profile;
        keymaster_security_level_t level;
        uint32_t command;
    } const unknown[] = {
        {"cbor", kTee, 0x108},           {"cbor", kTee, 0x109},     {"cbor", kTee, 0x116},
        {"legacy-4", kTee, 0x508},       {"legacy-4", kTee, 0x706}, {"legacy-4", kStrongBox, 0x108},
        {"legacy-4", kStrongBox, 0x20E}, {"legacy-4", kTee, 0x10A}, {"legacy-4", kTee, 0x110},
        {"legacy-4", kTee, 0x2108},      {"legacy-4", kTee, 0}};
    for (const auto& test : unknown) {
        const Bytes request = words({test.command}) + Bytes(100, 0);
        EXPECT_EQ(statusOf(App(test.profile, test.level).record(request)), KM_ERROR_UNIMPLEMENTED)
            << test.profile << " " << test.command;
    }
}

TEST(RecordFace, RefusesWhatLiesOutside) {
    App phone("legacy-4");
    phone.configureByRecord();
    const Bytes blob(16, 1);
    struct {
        const char* what;
        Bytes request;
    } const cases[] = {
        {"no word at all", hex("0801")},
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
         words({0x112, 1, 0, 0, 0, 0, 0, 36, 17}) + words({52, 1, 99, 1}) + hex("01")},
    };
    for (const auto& test : cases) {
        const int32_t status = statusOf(phone.record(test.request, labels(16)));
        EXPECT_TRUE(status == KM_ERROR_INVALID_ARGUMENT ||
                    status == KM_ERROR_INVALID_OPERATION_HANDLE)
            << test.what << ": " << status;
    }
    uint8_t area[3];
    const Bytes probe = words({0x215, 0, 0});
    EXPECT_EQ(phone.app.handleRecord(probe, area, sizeof(area)),
              KM_ERROR_INSUFFICIENT_BUFFER_SPACE);
    EXPECT_EQ(statusOf(phone.record(generateEc(), {}, 100)), KM_ERROR_INSUFFICIENT_BUFFER_SPACE);
    EXPECT_EQ(statusOf(phone.record(probe, {}, 4)), 0);
}

}  // namespace
}  // namespace lumo::test
