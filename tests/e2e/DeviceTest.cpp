// What the device says of itself and of its keys: attestation, agreement, tokens.
#include <Keymaster41Device.h>
#include <stdlib.h>
#include <time.h>

#include <chrono>
#include <thread>

#include "Stack.h"

namespace lumo::test {
namespace {

class Devices : public Stack {
  protected:
    // In files 0, 1 and 2, leaf first, also as PEM. `batch`: the serial and the name of the issuer.
    void expectChain(const std::vector<Bytes>& chain, const Bytes& key, const std::string& batch) {
        ASSERT_EQ(chain.size(), 3U);
        for (size_t i = 0; i < chain.size(); ++i) file(std::to_string(i), chain[i]);
        file("public", exportKey(key).data);
        expectShell(
            "for i in 0 1 2; do openssl x509 -inform der -in $i -out $i.pem; done; "
            "openssl verify -no-CApath -CAfile 2.pem -untrusted 1.pem 0.pem",
            "0.pem: OK\n");
        expectShell(
            "openssl x509 -in 0.pem -noout -pubkey | openssl pkey -pubin -outform der | "
            "cmp - public");
        const std::string test_keys = " - NOT FOR PRODUCTION\n";
        expectShell("for i in 0 1 2; do openssl x509 -in $i.pem -noout -serial -subject; done",
                    "serial=01\nsubject=CN = Android Keystore Key\nserial=" + batch +
                        " Attestation Batch" + test_keys +
                        "serial=01\nsubject=CN = Lumo Test Attestation Root" + test_keys);
    }
    // The key description of file 0.pem must read so.
    void expectDescription(const std::string& description) {
        expectShell(
            "at=$(openssl asn1parse -in 0.pem | grep -A1 1.3.6.1.4.1.11129.2.1.17 | tail -1 | "
            "cut -d: -f1); openssl asn1parse -in 0.pem -strparse $at | "
            "sed 's/.*\\(prim\\|cons\\): *//' | tr -s ' \\n' ' '",
            description + " ");
    }
};
LUMO_ON_ALL_TARGETS(Devices);

constexpr char kAttest[] = "challenge:challenge attestid:foo";

TEST_P(Devices, AttestTheirKeys) {
    setWorld("brand = lumo\nimei = 123");
    boot();
    // The last four have no field in the schema.
    const Key ec = generate(
        "ec p256 sign verify sha256 noauth created:1600000000000 callernonce uses:9 user:10 "
        "minmac:128");
    const auto [error, chain] = attest(ec.blob, std::string(kAttest) + " brand:lumo imei:123");
    EXPECT_EQ(error, E::OK);
    expectChain(chain, ec.blob, "03\nsubject=CN = Lumo Test EC");
    const bool as_4_1 = GetParam().new_blobs;
    const std::string level = strongbox() ? " ENUMERATED :02" : " ENUMERATED :01";
    expectDescription(
        (as_4_1 ? "SEQUENCE INTEGER :04" : "SEQUENCE INTEGER :03") + level +
        (as_4_1 ? " INTEGER :29" : " INTEGER :04") + level +
        " OCTET STRING :challenge OCTET STRING"
        " SEQUENCE cont [ 701 ] INTEGER :0174876E8000 cont [ 709 ] OCTET STRING :foo"
        " SEQUENCE cont [ 1 ] SET INTEGER :02 INTEGER :03 cont [ 2 ] INTEGER :03"
        " cont [ 3 ] INTEGER :0100 cont [ 5 ] SET INTEGER :04 cont [ 10 ] INTEGER :01"
        " cont [ 503 ] NULL cont [ 702 ] INTEGER :00 cont [ 704 ] SEQUENCE OCTET STRING"
        " [HEX DUMP]:" +
        std::string(64, '0') + " BOOLEAN :0 ENUMERATED :02 OCTET STRING :" + std::string(32, 'Z') +
        " cont [ 705 ] INTEGER :01ADB0 cont [ 706 ] INTEGER :03151C"
        " cont [ 710 ] OCTET STRING :lumo cont [ 714 ] OCTET STRING :123" +
        // A HAL that knows no dates sends no vendor patch level that could be attested.
        (std::string(GetParam().profile) == "legacy-3" ? "" : " cont [ 718 ] INTEGER :01343EF5") +
        " cont [ 719 ] INTEGER :01343EF5");
    const Key rsa = import("rsa sign", KeyFormat::PKCS8, rsaPrivate(2048));
    expectChain(attest(rsa.blob, kAttest).second, rsa.blob, "02\nsubject=CN = Lumo Test RSA");

    const std::string id(1024, 'i');
    struct Case {
        std::string how;
        Answers answer;
    };
    const Case cases[] = {
        {"", E::ATTESTATION_CHALLENGE_MISSING},
        {"attestid:foo", E::ATTESTATION_CHALLENGE_MISSING},
        {"challenge:c", E::ATTESTATION_APPLICATION_ID_MISSING},
        {"challenge:c attestid:" + id, E::OK},
        {"challenge:c attestid:i" + id, E::INVALID_INPUT_LENGTH},
        {"attestid:foo challenge:" + id.substr(0, 129), E::INVALID_INPUT_LENGTH},
        {std::string(kAttest) + " brand:lum", E::CANNOT_ATTEST_IDS},
        {std::string(kAttest) + " unique",
         {E::UNIMPLEMENTED, as_4_1 ? E::OK : E::CANNOT_ATTEST_IDS}},
    };
    for (const Case& each : cases) {
        EXPECT_EQ(attest(ec.blob, each.how).first, expected(each.answer)) << each.how;
    }
    for (const char* key : {"aes size:128", "hmac size:128 sha256 minmac:128"}) {
        EXPECT_EQ(attest(generate(key).blob, kAttest).first, E::INCOMPATIBLE_ALGORITHM);
    }
    EXPECT_TRUE(km_->destroyAttestationIds().isOk());
    boot();
    EXPECT_EQ(attest(ec.blob, std::string(kAttest) + " brand:lumo").first, E::CANNOT_ATTEST_IDS);
    EXPECT_EQ(attest(ec.blob, kAttest).first, E::OK);
}

TEST_P(Devices, AgreeOnAKey) {
    const auto other = create(!strongbox());
    const HmacSharingParameters own = sharingParameters(km_), theirs = sharingParameters(other);
    EXPECT_EQ(own.seed.size(), 32U);
    EXPECT_TRUE(sharingParameters(km_).nonce == own.nonce);
    EXPECT_FALSE(theirs.nonce == own.nonce);
    const Bytes check = agree(km_, {own, theirs});
    EXPECT_EQ(check.size(), 32U);
    EXPECT_EQ(agree(other, {own, theirs}), check);
    EXPECT_EQ(agree(km_, {own, theirs}), check);
    EXPECT_NE(agree(km_, {theirs, own}), check);

    HmacSharingParameters changed = theirs;
    changed.nonce[0] = static_cast<uint8_t>(changed.nonce[0] ^ 1);
    const Bytes other_check = agree(km_, {own, changed});
    EXPECT_EQ(other_check.size(), 32U);
    EXPECT_NE(other_check, check);
    EXPECT_TRUE(agree(other, {own, changed}).empty());
    changed = own;
    changed.seed[31] = static_cast<uint8_t>(changed.seed[31] ^ 1);
    EXPECT_TRUE(agree(km_, {changed, theirs}).empty());
    EXPECT_TRUE(agree(km_, {theirs}).empty());
}

TEST_P(Devices, MakeNewSharingNoncesEachBoot) {
    const HmacSharingParameters before = sharingParameters(km_);
    boot();
    const HmacSharingParameters after = sharingParameters(km_);
    EXPECT_FALSE(after.nonce == before.nonce);
    EXPECT_TRUE(after.seed == before.seed);
}

TEST_P(Devices, VerifyAuthorizations) {
    const auto clock = [] {
        timespec time = {};
        clock_gettime(CLOCK_BOOTTIME, &time);
        return static_cast<uint64_t>(time.tv_sec) * 1000 +
               static_cast<uint64_t>(time.tv_nsec) / 1000000;
    };
    for (const uint64_t challenge : {uint64_t{0}, uint64_t{1}, UINT64_MAX}) {
        const uint64_t before = clock();
        const Bytes key = sharedKey();
        km_->verifyAuthorization(
            challenge, {}, HardwareAuthToken{}, [&](auto error, const VerificationToken& token) {
                EXPECT_EQ(static_cast<E>(error), strongbox() ? E::UNIMPLEMENTED : E::OK);
                if (strongbox()) return;
                EXPECT_EQ(token.challenge, challenge);
                EXPECT_GE(token.timestamp, before);
                EXPECT_LE(token.timestamp, clock());
                EXPECT_EQ(token.parametersVerified.size(), 0U);
                EXPECT_EQ(static_cast<uint32_t>(token.securityLevel), 1U);
                EXPECT_TRUE(token.mac == hidl_vec<uint8_t>(secureapp::verificationTokenMac(
                                             key, challenge, token.timestamp, 1)));
            });
    }
}

TEST_P(Devices, ReportTheirHardwareAndAcceptEntropy) {
    km_->getHardwareInfo([&](auto level, const auto& name, const auto& author) {
        EXPECT_EQ(static_cast<uint32_t>(level), strongbox() ? 2U : 1U);
        EXPECT_FALSE(name.empty());
        EXPECT_FALSE(author.empty());
    });
    for (const size_t size : {0U, 3U, 2048U}) {
        EXPECT_TRUE(km_->addRngEntropy(pattern(size)).isOk());
    }
    // The older factory's object works on the same device.
    const sp<::android::hardware::keymaster::V4_0::IKeymasterDevice> older =
        strongbox() ? ::keymaster::V4_0::CreateSbKeymasterDevice()
                    : ::keymaster::V4_0::CreateKeymasterDevice();
    const Bytes key = generate("aes size:128 encrypt ecb nopad").blob;
    const Begun begun = begin(KeyPurpose::ENCRYPT, key, "ecb nopad");
    const auto aborted = older->abort(begun.handle);
    EXPECT_TRUE(aborted.isOk());
    EXPECT_EQ(abort(begun.handle), E::INVALID_OPERATION_HANDLE);
}

// Over the daemon, whose clients come and go: what a client leaves open keeps nobody out.
TEST_P(Devices, OutliveTheirClients) {
    km_ = nullptr;
    expectShell(
        "(" LUMO_DAEMON " --listen unix:$PWD/socket --state $PWD/state --ready-fd 3 --profile " +
            std::string(GetParam().profile) + " 3>&1 >/dev/null 2>&1 & echo $! >pid) | head -1",
        "ready\n");
    setenv("LUMO_TRANSPORT", ("unix:" + path("socket")).c_str(), 1);
    km_ = create(strongbox());
    const Bytes key = generate("ec p256 sign sha256").blob;
    const auto begins = [&] { return begin(KeyPurpose::SIGN, key, "sha256").error == E::OK; };
    int count = 0;
    while (begins()) ++count;
    EXPECT_EQ(count, strongbox() ? 4 : 16);
    km_ = create(strongbox());
    bool room = false;
    for (int i = 0; i < 500 && !room; ++i) {  // the daemon takes its time to notice
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        room = begins();
    }
    EXPECT_TRUE(room);
    expectShell("kill $(cat pid)");
}

}  // namespace
}  // namespace lumo::test
