// What clients of the service cannot see of new keys, and imports in forms that are rare.
#include "KeymasterUnderTest.h"
#include "SampleKeys.h"
#include "secureapp/keys/OpenedKey.h"

namespace lumo::test {
namespace {

constexpr auto kUnknownTag = static_cast<keymaster_tag_t>(KM_UINT | 9999);

OpenedKey made(Device& device, const ParamSet& params) {
    return device->characteristics(device->generateKey(params), {});
}

TEST(Generate, PutsEveryTagInItsList) {
    Device device;
    const ParamSet extra = {intParam(KM_TAG_OS_VERSION, 1),
                            intParam(KM_TAG_BLOB_USAGE_REQUIREMENTS, 1),
                            bytesParam(KM_TAG_AUTH_TOKEN, Bytes(69, 0)),
                            intParam(KM_TAG_INVALID, 3),
                            intParam(KM_TAG_USER_ID, 10),
                            boolParam(KM_TAG_BOOTLOADER_ONLY),
                            intParam(kUnknownTag, 77)};
    const OpenedKey key = made(device, with(without(ecKey(), KM_TAG_DIGEST), extra));
    EXPECT_EQ(text(key.hardware()),
              "20000001=2 20000001=3 10000002=3 30000003=256 1000000a=1 1000012d=0 100002be=0 "
              "300002c1=110000 300002c2=202012 300002cf=20201205 300002ce=20201105 10000130=1");
    EXPECT_EQ(text(key.software()), "300001f5=10 600002bd=1600000000000");
    EXPECT_EQ(text(key.unreported()), "7000012e=1 3000270f=77");
}

TEST(Generate, MakesTripleDesKeysOfOddParity) {
    Device device;
    const OpenedKey des = made(device, {intParam(KM_TAG_ALGORITHM, KM_ALGORITHM_TRIPLE_DES),
                                        intParam(KM_TAG_KEY_SIZE, 168)});
    ASSERT_EQ(des.material.bytes().size(), 24U);
    for (const uint8_t byte : des.material.bytes()) EXPECT_EQ(__builtin_popcount(byte) % 2, 1);
}

TEST(Import, TakesEcKeysInAllTheirForms) {
    Device device;
    const Bytes p256 = fromHex(kP256);
    const struct {
        Bytes key;
        keymaster_error_t error;
    } cases[] = {
        {p256, KM_ERROR_OK},
        {fromHex(kP256InnerParameters), KM_ERROR_OK},
        {fromHex(kP256NoPublic), KM_ERROR_OK},
        {fromHex(kSecp256k1), KM_ERROR_UNSUPPORTED_EC_CURVE},
        {ByteView(p256).sub(0, 100).copy(), KM_ERROR_INVALID_ARGUMENT},
    };
    for (const auto& each : cases) {
        Bytes blob;
        EXPECT_EQ(errorOf([&] {
                      blob = device->importKey(without(ecKey(), KM_TAG_KEY_SIZE),
                                               KM_KEY_FORMAT_PKCS8, each.key);
                  }),
                  each.error);
        if (blob.empty()) continue;
        EXPECT_EQ(toHex(device->exportKey(KM_KEY_FORMAT_X509, blob, {})), kP256Public);
    }
}

}  // namespace
}  // namespace lumo::test
