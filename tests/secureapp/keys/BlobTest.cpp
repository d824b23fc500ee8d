#include <algorithm>

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

// One of everything that a blob reports, in its newest layout.
ParamSet everything() {
    ParamSet params;
    for (const uint32_t tag : {
             0x20000001U, 0x20000004U, 0x20000005U, 0x20000006U, 0xa00001f6U, 0x10000002U,
             0x30000003U, 0x70000007U, 0x30000008U, 0x1000000aU, 0x500000c8U, 0x700000caU,
             0x1000012dU, 0x30000193U, 0x30000194U, 0x700001f4U, 0x700001f7U, 0x100001f8U,
             0x300001f9U, 0x70000258U, 0x7000025aU, 0x100002beU, 0x7000012fU, 0x300002c1U,
             0x300002c2U, 0x10000130U, 0x700001fbU, 0x700001fcU, 0x300002ceU, 0x300002cfU,
             0x70000131U, 0x60000190U, 0x60000191U, 0x60000192U, 0x300001f5U, 0x700001faU,
             0x600002bdU, 0x700001fdU,
         }) {
        params.add(intParam(static_cast<keymaster_tag_t>(tag), tag == KM_TAG_AUTH_TIMEOUT ? 2 : 1));
    }
    return params;
}

std::string hexAt(const Bytes& blob, size_t offset, size_t size) {
    return toHex(blob.data() + offset, size);
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
        std::string why_not;  // empty: it opens
    };
    const Case cases[] = {
        {[](Device&) {}, ""},
        {[](Device& d) { d.config.verified_boot_state = 0; }, ""},
        {[](Device& d) { d.config.verified_boot_key[0] = 1; },
         "was 00000000... (unlocked), it is 01000000..."},
        {[](Device& d) { d.config.device_locked = true; },
         "made while the boot loader was unlocked"},
        {[](Device& d) { d.options.level = kStrongBox; },
         "says that it is of tee, this is strongbox"},
        {[](Device& d) { d.state.records["device-key"][0] ^= 1; }, "of another state directory"},
        {[](Device& d) { d.shared.records["shared-secret"][0] ^= 1; }, "the blob is damaged, "},
        {[](Device& d) { d.state.records.clear(); }, "this state had no key before this boot"},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(&each - cases);
        Device device;
        const Bytes blob = device->generateKey(aesKey());
        each.change(device);
        device.boot();
        const auto open = [&] { device->characteristics(blob, {}); };
        EXPECT_EQ(errorOf(open), each.why_not.empty() ? KM_ERROR_OK : KM_ERROR_INVALID_KEY_BLOB);
        EXPECT_NE(reasonOf(open).find(each.why_not), std::string::npos) << reasonOf(open);
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
