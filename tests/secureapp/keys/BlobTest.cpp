#include <algorithm>
#include <sstream>

#include "KeymasterUnderTest.h"
#include "secureapp/keys/KeyBlob.h"

namespace lumo::test {
namespace {

const Bytes kBlobKey(32, 7);
const Bytes kMaterial = {1, 2, 3, 4, 5, 6, 7, 8};

Bytes seal(const ParamSet& authorizations, uint64_t version, bool early_boot_byte = true) {
    CountingRandom random;
    return sealBlob({kMaterial, authorizations, Bytes(kKeyIdBytes, 9)}, version, early_boot_byte,
                    kBlobKey, random);
}

// In any order.
bool sameParams(const ParamSet& a, const ParamSet& b) {
    return a.size() == b.size() && std::is_permutation(a.begin(), a.end(), b.begin());
}

// One of everything that has a place: tag, value, offset, the bytes there (with the flag where it
// lies in front).
constexpr char kPlaced[] =
    "20000001 2 28 02000000  20000004 32 62 20000000  20000005 4 86 04000000 "
    "20000006 64 122 40000000  a00001f6 1234605616436508552 195 8877665544332211 "
    "10000002 128 52 0180000000  30000003 64 57 0140000000  70000007 1 158 01 "
    "30000008 128 159 0180000000  1000000a 3 164 0103000000 "
    "500000c8 65537 169 010100010000000000  700000ca 1 178 01  1000012d 0 179 0100000000 "
    "30000193 5 184 0105000000  30000194 6 189 0106000000  700001f4 1 194 01  700001f7 1 239 01 "
    "100001f8 4294967295 240 01ffffffff  300001f9 2 245 0102000000  70000258 1 250 01 "
    "7000025a 1 251 01  100002be 2 252 0102000000  7000012f 1 257 01 "
    "300002c1 110000 258 01b0ad0100  300002c2 202012 263 011c150300  10000130 1 319 01000000 "
    "700001fb 1 323 01  700001fc 1 324 01  300002ce 20201205 325 f53e340101 "
    "300002cf 20201206 330 f63e340101  70000131 1 351 01 "
    "60000190 4328719365 277 010504030201000000  60000191 1 286 010100000000000000 "
    "60000192 2 295 010200000000000000  300001f5 10 304 010a000000  700001fa 1 309 01 "
    "600002bd 1600000000000 310 0100806e8774010000  700001fd 1 344 01";

struct Placed {
    Param param;
    size_t offset;
    std::string bytes;
};

std::vector<Placed> placed() {
    std::istringstream in(kPlaced);
    std::vector<Placed> result;
    uint32_t tag = 0;
    uint64_t value = 0;
    size_t offset = 0;
    std::string bytes;
    while (in >> std::hex >> tag >> std::dec >> value >> offset >> bytes) {
        result.push_back({intParam(static_cast<keymaster_tag_t>(tag), value), offset, bytes});
    }
    return result;
}

ParamSet everything() {
    ParamSet params;
    for (const Placed& each : placed()) params.add(each.param);
    return params;
}

std::string hexAt(const Bytes& blob, size_t offset, size_t size) {
    return toHex(ByteView(blob).sub(offset, size));
}

// The clear part of 4.4, every byte of it.
TEST(KeyBlob, LaysTheClearPartOutAsTheHalReadsIt) {
    const Bytes blob = seal(everything(), kBlobVersion4_4);
    std::string expected = std::string(2 * 352, '0');
    const auto put = [&expected](size_t offset, const std::string& hex) {
        expected.replace(2 * offset, hex.size(), hex);
    };
    put(0,
        "444b4d4b00000000"
        "0400000004000000");
    put(24, "1f000000");   // 31 hardware-enforced
    put(273, "07000000");  // 7 software-enforced
    for (const size_t count : {48U, 82U, 118U, 154U, 235U}) put(count, "01000000");
    for (const Placed& each : placed()) put(each.offset, each.bytes);
    EXPECT_EQ(hexAt(blob, 0, 352), expected);
    EXPECT_GT(blob.size(), 394U);
}

TEST(KeyBlob, OldVersionsSealWhatTheyHaveNoPlaceFor) {
    struct Case {
        uint64_t version;
        bool early_boot_byte;
        const char* hardware_count;
        const char* software_count;
        const char* timeout;  // at 245
        size_t num_sealed;
    };
    const Case cases[] = {
        {kBlobVersion3_0, true, "19000000", "06000000", "01d0070000", 7},
        {kBlobVersion4_0, true, "19000000", "06000000", "01d0070000", 7},
        {kBlobVersion4_1, true, "1e000000", "07000000", "0102000000", 1},
        {0x400000003, true, "1e000000", "07000000", "0102000000", 1},
        {kBlobVersion4_4, true, "1f000000", "07000000", "0102000000", 0},
        {kBlobVersion4_4, false, "1e000000", "07000000", "0102000000", 1},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.version);
        const Bytes blob = seal(everything(), each.version, each.early_boot_byte);
        EXPECT_EQ(hexAt(blob, 24, 4), each.hardware_count);
        EXPECT_EQ(hexAt(blob, 273, 4), each.software_count);
        EXPECT_EQ(hexAt(blob, 245, 5), each.timeout);
        const OpenedKey key = openBlob(blob, kBlobKey);
        EXPECT_EQ(key.unreported().size(), each.num_sealed);
        ParamSet all = everything();
        if (each.version < kBlobVersion4_1) {
            all = with(without(all, KM_TAG_ROLLBACK_RESISTANCE),
                       {boolParam(KM_TAG_ROLLBACK_RESISTANT)});
        }
        EXPECT_TRUE(sameParams(key.authorizations, all));
        EXPECT_EQ(key.material.bytes(), kMaterial);
    }
}

TEST(KeyBlob, SealsWhatExceedsItsField) {
    ParamSet params = {intParam(KM_TAG_AUTH_TIMEOUT, 5'000'000),
                       bytesParam(static_cast<keymaster_tag_t>(KM_BYTES | 12345), Bytes{1, 2})};
    for (uint64_t id = 1; id <= 6; ++id) params.add(intParam(KM_TAG_USER_SECURE_ID, id));
    // 5,000,000 seconds are too many milliseconds for 32 bits.
    const OpenedKey old = openBlob(seal(params, kBlobVersion4_0), kBlobKey);
    EXPECT_EQ(old.hardware().count(KM_TAG_USER_SECURE_ID), 5U);
    ASSERT_EQ(old.unreported().size(), 3U);
    EXPECT_EQ(old.unreported()[0], intParam(KM_TAG_AUTH_TIMEOUT, 5'000'000));
    EXPECT_EQ(old.unreported()[1].bytes, (Bytes{1, 2}));
    EXPECT_EQ(old.unreported()[2], intParam(KM_TAG_USER_SECURE_ID, 6));
    EXPECT_EQ(openBlob(seal(params, kBlobVersion4_1), kBlobKey).unreported().size(), 2U);
}

TEST(KeyBlob, IsBoundToTheDeviceAndItsBootState) {
    struct Case {
        void (*change)(Device&);
        bool opens;
    };
    const Case cases[] = {
        {[](Device&) {}, true},
        {[](Device& d) { d.config.verified_boot_state = 0; }, true},
        {[](Device& d) { d.config.verified_boot_key[31] = 1; }, false},
        {[](Device& d) { d.config.device_locked = true; }, false},
        {[](Device& d) { d.options.level = kStrongBox; }, false},
        {[](Device& d) { d.state.records["device-key"][0] ^= 1; }, false},
        {[](Device& d) { d.shared.records["shared-secret"][0] ^= 1; }, false},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(&each - cases);
        Device device;
        const Bytes blob = device->generateKey(aesKey());
        each.change(device);
        device.boot();
        EXPECT_EQ(errorOf([&] { device->characteristics(blob, {}); }),
                  each.opens ? KM_ERROR_OK : KM_ERROR_INVALID_KEY_BLOB);
    }
}

// A device key of the wrong length would silently orphan every key.
TEST(KeyBlob, ReportsADamagedDeviceKey) {
    Device device;
    device->generateKey(aesKey());
    device.state.records["device-key"].pop_back();
    device.boot();
    EXPECT_THROW(device->generateKey(aesKey()), StateError);
}

}  // namespace
}  // namespace lumo::test
