#include "ServiceMethods.h"

namespace lumo::test {

// 0, three numbers as they stand in memory, type and timestamp big-endian, the mac.
const char kSampleTokenRecord[] =
    "00"
    "0807060504030201"
    "1817161514131211"
    "2827262524232221"
    "00000002"
    "a1a2a3a4a5a6a7a8"
    "5c5c5c5c5c5c5c5c5c5c5c5c5c5c5c5c5c5c5c5c5c5c5c5c5c5c5c5c5c5c5c5c";

// An EC key without authentication, made at 77 ms.
const char kSampleCharacteristics[] = "hw{10000002:3,700001f7:1}sw{600002bd:77}";

Bytes sampleKeyBlob() {
    Bytes blob(395);
    const std::pair<size_t, uint8_t> fields[] = {
        {12, 4},  {24, 2},  {52, 1},  {53, 3},  // major version, hardware count, algorithm
        {239, 1},                               // no authentication required
        {273, 1}, {310, 1}, {311, 77}};         // software count, creation date
    for (const auto& [offset, value] : fields) blob[offset] = value;
    return blob;
}

HardwareAuthToken sampleToken() {
    HardwareAuthToken token{};
    token.challenge = 0x0102030405060708;
    token.userId = 0x1112131415161718;
    token.authenticatorId = 0x2122232425262728;
    token.authenticatorType =
        ::android::hardware::keymaster::V4_0::HardwareAuthenticatorType::FINGERPRINT;
    token.timestamp = 0xA1A2A3A4A5A6A7A8;
    token.mac = Bytes(32, 0x5C);
    return token;
}

namespace {

const hidl_vec<uint8_t> kBlob = {1, 2, 3};
const hidl_vec<uint8_t> kNone;
constexpr uint64_t kHandle = 0x1122334455667788;

// SHA-256 and no authentication: label 22 with the count, then the two.
hidl_vec<KeyParameter> params() {
    return {integerParam(Tag::DIGEST, 4), booleanParam(Tag::NO_AUTH_REQUIRED, true)};
}
const std::string kTwoParams = "1a20000005 04 1a700001f7 f5";
const std::string kToken = "3a6ffffc15 5845" + std::string(kSampleTokenRecord);
const std::string kNoDate = "89 20 20 20 20 20 20 20 20 20";

Bytes keyBlobReply() {
    return fromHex("a1 17 59018b") + sampleKeyBlob();
}
const std::string kNewKey = toHex(sampleKeyBlob()) + " " + kSampleCharacteristics;

HmacSharingParameters sharingParams() {
    HmacSharingParameters params{};
    params.seed = Bytes(32, 0x11);
    params.nonce = {};
    params.nonce[0] = 0x22;
    return params;
}

template <typename Call>
std::function<Answer(IKeymasterDevice&)> withCallback(Call call) {
    return [call](IKeymasterDevice& device) {
        Answer answer;
        call(device, answer);
        return answer;
    };
}

template <typename Call>
std::function<Answer(IKeymasterDevice&)> withResult(Call call) {
    return withCallback([call](auto& device, auto& answer) { answer(call(device)); });
}

}  // namespace

const std::vector<ServiceMethod>& serviceMethods() {
    static const std::vector<ServiceMethod> methods = {
        {"getHmacSharingParameters", 0x220E, 0x2706, "",
         fromHex("a2 1829 4401020304 182a 5820" + toHex(Bytes(32, 0x22))),
         "01020304" + toHex(Bytes(28)) + " " + toHex(Bytes(32, 0x22)),
         withCallback([](auto& device, auto& answer) {
             device.getHmacSharingParameters(std::ref(answer));
         })},
        {"computeSharedHmac", 0x220F, 0x2707,
         "a1 182b 5840" + toHex(Bytes(32, 0x11)) + "22" + toHex(Bytes(31)),
         fromHex("a1 182c 42beef"), "beef", withCallback([](auto& device, auto& answer) {
             device.computeSharedHmac({sharingParams()}, std::ref(answer));
         })},
        {"verifyAuthorization", 0x118, 0, "18010000 88776655 44332211",
         words({0, 7, 8, 9, 10, 1}) + Bytes(32, 0x66),
         "34359738375 42949672969 1 " + toHex(Bytes(32, 0x66)) + "{}",
         withCallback([](auto& device, auto& answer) {
             device.verifyAuthorization(kHandle, params(), sampleToken(), std::ref(answer));
         })},
        {"generateKey", 0x2108, 0x2508, "a3 16 02" + kTwoParams, keyBlobReply(), kNewKey,
         withCallback(
             [](auto& device, auto& answer) { device.generateKey(params(), std::ref(answer)); })},
        {"importKey", 0x210B, 0x250B, "a5 16 02" + kTwoParams + "1818 01 1819 42aabb",
         keyBlobReply(), kNewKey, withCallback([](auto& device, auto& answer) {
             device.importKey(params(), KeyFormat::PKCS8, {0xAA, 0xBB}, std::ref(answer));
         })},
        {"importWrappedKey", 0x2117, 0x2517,
         "a8 16 02" + kTwoParams +
             "0c 05 0d 1b8000000000000001 181b 420a0b 181a 43010203 181c 410c",
         keyBlobReply(), kNewKey, withCallback([](auto& device, auto& answer) {
             device.importWrappedKey({0x0A, 0x0B}, kBlob, {0x0C}, params(), 5, 0x8000000000000001,
                                     std::ref(answer));
         })},
        {"exportKey", 0x210C, 0x250C, "a4 16 01 3a6ffffda6 4107 17 43010203 1818 00",
         fromHex("a1 1824 43aabbcc"), "aabbcc", withCallback([](auto& device, auto& answer) {
             device.exportKey(KeyFormat::X509, kBlob, {0x07}, kNone, std::ref(answer));
         })},
        {"attestKey", 0x2115, 0x2515,
         "a6 16 02" + kTwoParams + "17 43010203 1827" + kNoDate + "1828" + kNoDate,
         fromHex("a3 182002 1821420102 18214103"), "[0102,03]",
         withCallback([](auto& device, auto& answer) {
             device.attestKey(kBlob, params(), std::ref(answer));
         })},
        {"upgradeKey", 0x2114, 0x2514, "a4 16 02" + kTwoParams + "17 43010203",
         fromHex("a1 17 42ddee"), "ddee", withCallback([](auto& device, auto& answer) {
             device.upgradeKey(kBlob, params(), std::ref(answer));
         })},
        {"deleteKey", 0x210D, 0x250D, "a1 17 4107", {}, "", withResult([](auto& device) {
             return device.deleteKey({7});
         })},
        {"deleteKey, empty", 0x210D, 0x250D, "a1 17 40", {}, "", withResult([](auto& device) {
             return device.deleteKey(kNone);
         })},
        {"deleteAllKeys", 0x210E, 0x210E, "", {}, "", withResult([](auto& device) {
             return device.deleteAllKeys();
         })},
        {"destroyAttestationIds",
         0x220B,
         0x2704,
         "a1 182d f4",
         {},
         "",
         withResult([](auto& device) { return device.destroyAttestationIds(); })},
        {"begin", 0x210F, 0x250F, "a6 16 04" + kTwoParams + kToken + "1a20000001 02 17 43010203",
         fromHex("a3 1601 1a900003e9 42aabb 1822 1b8877665544332211"),
         "{900003e9:aabb} 9833440827789222417", withCallback([](auto& device, auto& answer) {
             device.begin(KeyPurpose::SIGN, kBlob, params(), sampleToken(), std::ref(answer));
         })},
        {"update", 0x2111, 0x2511,
         "a6 1822 1b1122334455667788 16 03" + kTwoParams + kToken + "1823 41dd",
         fromHex("a4 1601 1a900003e9 42aabb 1824 43010203 1825 05"), "5 {900003e9:aabb} 010203",
         withCallback([](auto& device, auto& answer) {
             device.update(kHandle, params(), {0xDD}, sampleToken(), {}, std::ref(answer));
         })},
        {"finish", 0x2112, 0x2512,
         "a7 1822 1b1122334455667788 16 03" + kTwoParams + kToken + "1823 41dd 1826 41ee",
         fromHex("a3 1601 1a900003e9 42aabb 1824 43040506"), "{900003e9:aabb} 040506",
         withCallback([](auto& device, auto& answer) {
             device.finish(kHandle, params(), {0xDD}, {0xEE}, sampleToken(), {}, std::ref(answer));
         })},
        {"finish, empty", 0x2112, 0x2512, "a3 1822 00 16 01 3a6ffffc15 5845" + toHex(Bytes(69)),
         fromHex("a0"), "{} ", withCallback([](auto& device, auto& answer) {
             device.finish(0, {}, kNone, kNone, {}, {}, std::ref(answer));
         })},
        {"abort",
         0x2113,
         0x2513,
         "a1 1822 1b1122334455667788",
         {},
         "",
         withResult([](auto& device) { return device.abort(kHandle); })},
    };
    return methods;
}

void expectEveryMethod(IKeymasterDevice& device, bool strongbox) {
    ScriptedTransport& transport = ScriptedTransport::instance();
    for (const ServiceMethod& method : serviceMethods()) {
        SCOPED_TRACE(method.name);
        const uint32_t command = strongbox ? method.strongbox_command : method.command;
        transport.calls.clear();
        transport.replies = {{KM_ERROR_TOO_MANY_OPERATIONS, {}}, {KM_ERROR_OK, method.reply}};
        const Answer refused = method.call(device);
        EXPECT_EQ(refused.calls, 1);
        EXPECT_TRUE(refused.empty()) << refused.outputs;
        if (command == 0) {
            EXPECT_EQ(refused.error, ErrorCode::UNIMPLEMENTED);
            EXPECT_EQ(transport.callNames(), "");
            continue;
        }
        EXPECT_EQ(refused.error, ErrorCode::TOO_MANY_OPERATIONS);
        ASSERT_EQ(transport.sentCount(), 1U);
        EXPECT_EQ(transport.lastSent().command_id, command);
        EXPECT_EQ(toHex(transport.lastSent().request), toHex(fromHex(method.request)));

        const Answer answer = method.call(device);
        EXPECT_EQ(answer.calls, 1);
        EXPECT_EQ(answer.error, ErrorCode::OK);
        EXPECT_EQ(answer.outputs, method.outputs);
    }
}

}  // namespace lumo::test
