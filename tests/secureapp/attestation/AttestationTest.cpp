// Attestations as a relying party sees them: checked by the openssl command.
#include <gtest/gtest.h>

#include "Folder.h"
#include "Hex.h"
#include "KeymasterUnderTest.h"
#include "Program.h"
#include "secureapp/attestation/Attestation.h"
#include "secureapp/attestation/AttestationKeys.h"
#include "secureapp/attestation/Certificate.h"
#include "secureapp/crypto/Der.h"
#include "secureapp/crypto/Digest.h"
#include "secureapp/keys/KeymasterOptions.h"

namespace lumo::secureapp {
namespace {

using namespace test;

Bytes text(const std::string& characters) {
    return Bytes(characters.begin(), characters.end());
}

const Param kChallenge = bytesParam(KM_TAG_ATTESTATION_CHALLENGE, text("challenge"));
const Param kAppId = bytesParam(KM_TAG_ATTESTATION_APPLICATION_ID, text("foo"));
const ParamSet kAttest = {kChallenge, kAppId};
const ParamSet kDated = {intParam(KM_TAG_CREATION_DATETIME, 1600000000000),
                         boolParam(KM_TAG_NO_AUTH_REQUIRED)};

class Attestation : public ::testing::Test {
  protected:
    Device device_;

    Attestation() {
        device_.config.test_attestation_keys = true;
        device_.boot();
    }

    std::vector<Bytes> attested(const ParamSet& key, const ParamSet& params = kAttest) {
        return device_->attestKey(device_->generateKey(key), params);
    }
};

// A chain in files, for other programs.
struct ChainFiles {
    Folder folder;
    std::vector<std::string> der, pem;

    explicit ChainFiles(const std::vector<Bytes>& chain) {
        for (const Bytes& certificate : chain) {
            der.push_back(folder.write(std::to_string(der.size()), certificate));
            pem.push_back(der.back() + ".pem");
            run("openssl x509 -inform DER -in " + der.back() + " -out " + pem.back());
        }
    }

    std::string leaf(const std::string& what) const {
        return run("openssl x509 -noout -in " + pem.front() + " " + what).output;
    }
};

TEST(AttestedChain, IsAcceptedStrictly) {
    const ParamSet sign = {intParam(KM_TAG_PURPOSE, KM_PURPOSE_SIGN),
                           intParam(KM_TAG_PURPOSE, KM_PURPOSE_VERIFY)};
    const struct {
        const char* name;
        ParamSet key;
        keymaster_security_level_t level;
        bool test_keys;
        const char* signature;
    } cases[] = {
        {"RSA", with(rsaKey(), sign), kTee, false, "sha256WithRSAEncryption"},
        {"EC in StrongBox", ecKey(), kStrongBox, false, "ecdsa-with-SHA256"},
        {"EC with test keys", ecKey(), kTee, true, "ecdsa-with-SHA256"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        Device device(each.level);
        device.config.test_attestation_keys = each.test_keys;
        device.boot();
        const std::vector<Bytes> chain =
            device->attestKey(device->generateKey(with(each.key, kDated)), kAttest);
        ASSERT_EQ(chain.size(), 3U);
        EXPECT_EQ(chain[2], attestationRoot(device.state, device.config, each.level));

        const ChainFiles files(chain);
        const ProgramResult verified =
            run("openssl verify -no-CApath -x509_strict -CAfile " + files.pem[2] + " -untrusted " +
                files.pem[1] + " " + files.pem[0]);
        EXPECT_EQ(verified.status, 0) << verified.output;
        EXPECT_EQ(files.leaf("-dates"),
                  "notBefore=Sep 13 12:26:40 2020 GMT\nnotAfter=Dec 31 23:59:59 2049 GMT\n");
        EXPECT_NE(files.leaf("-text").find(each.signature), std::string::npos);
        EXPECT_NE(files.leaf("-text").find("Digital Signature"), std::string::npos);
    }
}

TEST(DeviceUniqueAttestation, IsSignedByTheDeviceUnderTheRoot) {
    const ParamSet asked = with(kAttest, {boolParam(KM_TAG_DEVICE_UNIQUE_ATTESTATION)});
    Device device(kStrongBox), other(kStrongBox);
    std::vector<Bytes> chains[3];
    chains[0] = device->attestKey(device->generateKey(rsaKey()), asked);
    device.boot();
    chains[1] = device->attestKey(device->generateKey(ecKey()), asked);
    chains[2] = other->attestKey(other->generateKey(ecKey()), asked);
    for (const auto& chain : chains) {
        ASSERT_EQ(chain.size(), 2U);
        const Bytes element = der::item(der::context(720), der::item(der::kNull, {}));
        EXPECT_NE(toHex(chain[0]).find(toHex(element)), std::string::npos);
        const bool own = &chain != &chains[2];
        EXPECT_EQ(chain[1] == chains[0][1], own);
        const ChainFiles files(
            {chain[0], chain[1], attestationRoot(device.state, device.config, kStrongBox)});
        EXPECT_EQ(run("openssl verify -no-CApath -x509_strict -CAfile " + files.pem[2] +
                      " -untrusted " + files.pem[1] + " " + files.pem[0])
                          .status == 0,
                  own);
    }
}

TEST(CertificateTime, ChangesItsFormIn2050AndEndsIn9999) {
    const struct {
        uint64_t millis;
        const char* item;
    } cases[] = {
        {1600000000999, "170d3230303931333132323634305a"},      // 200913122640Z
        {2524607999999, "170d3439313233313233353935395a"},      // 491231235959Z
        {2524608000000, "180f32303530303130313030303030305a"},  // 20500101000000Z
        {UINT64_MAX, "180f39393939313233313233353935395a"},     // 99991231235959Z
    };
    for (const auto& c : cases) EXPECT_EQ(toHex(certificateTime(c.millis)), c.item);
}

TEST_F(Attestation, UniqueIdsStayForThirtyDays) {
    constexpr uint64_t kDay = 86400000;
    const auto unique_id = [&](uint64_t created, const ParamSet& params = kAttest) {
        const ParamSet key = {boolParam(KM_TAG_INCLUDE_UNIQUE_ID),
                              intParam(KM_TAG_CREATION_DATETIME, created)};
        const std::string leaf = toHex(attested(with(ecKey(), key), params)[0]);
        return leaf.substr(leaf.find(toHex(text("challenge"))) + 18, 36);
    };
    const std::string id = unique_id(1600000000000);
    EXPECT_EQ(id.substr(0, 4), "0410");
    device_.boot();
    EXPECT_EQ(unique_id(1600000000000 + kDay), id);
    EXPECT_NE(unique_id(1600000000000 + 30 * kDay), id);
    EXPECT_NE(unique_id(1600000000000, with(kAttest, {boolParam(KM_TAG_RESET_SINCE_ID_ROTATION)})),
              id);
}

// What a blob is too old to report is enforced, and so it is attested.
TEST(Attestation3, SaysWhatIsEnforced) {
    Device device;
    device.options.blob_version = kBlobVersion3_0;
    device.config.rollback_resistance = true;
    device.config.user_presence = true;
    device.boot();
    const keymaster_tag_t tags[] = {
        KM_TAG_ROLLBACK_RESISTANCE, KM_TAG_TRUSTED_CONFIRMATION_REQUIRED,
        kTagTrustedUserPresenceRequired, KM_TAG_UNLOCKED_DEVICE_REQUIRED};
    ParamSet key = ecKey();
    for (const keymaster_tag_t tag : tags) key.add(boolParam(tag));
    const std::string leaf = toHex(device->attestKey(device->generateKey(key), kAttest).front());
    for (const keymaster_tag_t tag : tags) {
        const uint32_t number = static_cast<uint32_t>(tag) & 0x0FFFFFFF;
        const Bytes element = der::item(der::context(number), der::item(der::kNull, {}));
        EXPECT_NE(leaf.find(toHex(element)), std::string::npos) << number;
    }
    const Bytes vendor =
        der::item(der::context(kTagVendorPatchlevel & 0x0FFFFFFF), der::integer(20201105));
    EXPECT_NE(leaf.find(toHex(vendor)), std::string::npos);
}

TEST(AttestationKeys, AreMadeOnceAndTheTestRootIsTheSameEverywhere) {
    MemoryState one, other;
    DeviceConfig config;
    const AttestationKey first = attestationKey(one, config, kTee, KM_ALGORITHM_RSA);
    EXPECT_EQ(attestationKey(one, config, kTee, KM_ALGORITHM_RSA).chain, first.chain);
    EXPECT_EQ(attestationKey(one, config, kTee, KM_ALGORITHM_EC).chain[1], first.chain[1]);
    EXPECT_NE(attestationRoot(other, config, kTee), first.chain[1]);
    one.records["attestation-rsa"].resize(100);
    EXPECT_THROW(attestationKey(one, config, kTee, KM_ALGORITHM_RSA), StateError);

    config.test_attestation_keys = true;
    const Bytes root = attestationRoot(other, config, kTee);
    EXPECT_EQ(toHex(sha256(root)),
              "d1d9624ac2d62226f9af02a6e865c8250aba86c83311c9949a79e8d9b5f8006c");
    EXPECT_EQ(ChainFiles({root}).leaf("-subject"),
              "subject=CN = Lumo Test Attestation Root - NOT FOR PRODUCTION\n");
}

}  // namespace
}  // namespace lumo::secureapp
