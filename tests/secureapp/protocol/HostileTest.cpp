// Requests cut short and with each byte changed: whatever comes, an answer goes back and nothing
// outside the request is touched (the sanitizers watch; requests lie in blocks of their size).
#include "SecureAppUnderTest.h"

namespace lumo::test {
namespace {

// Every prefix of `golden`, and `golden` with each byte changed in three ways.
std::vector<Bytes> variantsOf(const Bytes& golden) {
    std::vector<Bytes> variants;
    for (size_t size = 0; size < golden.size(); ++size) variants.push_back(slice(golden, 0, size));
    for (size_t i = 0; i < golden.size(); ++i) {
        for (const unsigned change : {0x01U, 0x80U, 0xFFU}) {
            variants.push_back(golden);
            variants.back()[i] = static_cast<uint8_t>(variants.back()[i] ^ change);
        }
    }
    return variants;
}

bool isPublished(int32_t error) {
    return error <= KM_ERROR_OK && error >= KM_ERROR_UNKNOWN_ERROR;
}

// A small stand-in for a key blob: what follows its head is judged by other tests.
const char kBlobEntry[] = "17 48 444b4d4b00000000";

TEST(HostileRequests, CborIsAlwaysAnswered) {
    App phone("cbor");
    phone.configureByCbor();
    const std::string blob = kBlobEntry;
    const std::string params =
        "1a10000002 1820 1a30000003 1880 1a20000001 00 1a500000c8 03"
        " 1a60000190 00 3a5ffffe09 05 3a6ffffda6 42 6964 1a700001f7 f5";
    const std::pair<uint32_t, std::string> goldens[] = {
        {0x2108, "a9 16 08" + params},
        {0x210B, "ab 16 08" + params + "1818 03 1819 50 000102030405060708090a0b0c0d0e0f"},
        {0x210C, "a4 16 01 3a6ffffda6 42 6964" + blob + "1818 00"},
        {0x210D, "a1" + blob},
        {0x210F, "a3 16 01 1a20000001 00" + blob},
        {0x2111, "a4 1822 1b0102030405060708 16 01 3a6ffffc15 41 00 1823 43 616263"},
        {0x2112, "a4 1822 1b0102030405060708 16 00 1823 43 616263 1826 42 3000"},
        {0x2113, "a1 1822 1b0102030405060708"},
        {0x2114, "a3 16 01 1a300002c1 01" + blob},
        {0x2115, "a4 16 00" + blob +
                     "1827 89 00 00 00 01 01 1907b2 20 20 20"
                     " 1828 89 183b 183b 17 181f 0c 1907b1 20 20 20"},
        {0x2117, "a6 16 00 0c 00 0d 00 181b 43 300100 181a 48 444b4d4b00000000 181c 41 00"},
        {0x220F, "a1 182b 5840 " + std::string(128, '0')},
        {0x211A, "a1 182e f5"},
    };
    for (const auto& [command, golden] : goldens) {
        for (const Bytes& variant : variantsOf(hex(golden))) {
            EXPECT_TRUE(isPublished(phone.cbor(command, variant).error)) << toHex(variant);
        }
    }
}

TEST(HostileRequests, RecordsAreAlwaysAnswered) {
    App phone("legacy-3");
    phone.configureByRecord();
    const Bytes blob = hex("444b4d4b00000000");
    const Bytes aes = param(0x10000002, 32) + param(0x30000003, 128) + param(0x20000001, 0) +
                      param(0x500000C8, 3, 0) + param(0x700001F7, 1);
    const Bytes goldens[] = {
        words({0x108, 12, 6}) + aes + param(0x90000259, 84, 2) + hex("6964"),
        words({0x109, 28, 8, 36, 2, 38, 2}) + blob + hex("6964") + hex("6464"),
        words({0x10B, 3, 24, 5, 84, 16}) + aes + Bytes(16, 3),
        words({0x10B, 1, 24, 1, 36, 160}) + param(0x10000002, 3) +
            words({256, 64, 32, 96, 32, 128, 32}) + Bytes(96, 9),
        words({0x10C, 32, 8, 0, 40, 2, 0, 0}) + blob + hex("6964"),
        words({0x10F, 2, 24, 8, 32, 1}) + blob + param(0x20000005, 4),
        words({0x111, 5, 6, 28, 1, 40, 3}) + param(0x20000005, 4) + hex("616263"),
        words({0x112, 5, 6, 0, 0, 36, 3, 39, 18}) + hex("616263") + words({55, 1, 56, 1}) +
            hex("0102"),
        words({0x113, 5, 6}),
        words({0x114, 20, 8, 28, 1}) + blob + param(0x300002C1, 1),
        words({0x115, 92, 8, 100, 1}) + Bytes(72, 0xEE) + blob + param(0x900002C4, 112, 1) +
            hex("63"),
        words({0x117, 0, 0, 0, 0, 52, 8, 60, 3, 63, 1, 0, 0}) + blob + hex("30010055"),
        words({0x20F, 12, 1}) + Bytes(64, 5),
        words({0x201, 12, 32}) + Bytes(32, 7),
        words({0x208, 0, 16, 48}) + Bytes(44, 0) + words({1, 0}) + Bytes(28, 0xFF) +
            words({0, 1, 2}),
    };
    const Bytes labels = words({0, 0, 20, 1000, 1000});
    for (const Bytes& golden : goldens) {
        for (const Bytes& variant : variantsOf(golden)) {
            EXPECT_TRUE(isPublished(statusOf(phone.record(variant, labels, 4000))))
                << toHex(variant);
        }
    }
}

}  // namespace
}  // namespace lumo::test
