// Attestations as a relying party sees them: judged by the openssl command and by a gem.
#include <gtest/gtest.h>

#include <regex>
#include <sstream>

#include "Attestation.h"
#include "AttestationKeys.h"
#include "Certificate.h"
#include "Hex.h"
#include "Phone.h"
#include "Program.h"

namespace lumo::secureapp {
namespace {

using test::errorOf;
using test::fromHex;
using test::Phone;
using test::ProgramResult;
using test::run;
using test::ScratchFolder;

Bytes text(const std::string& characters) {
    return Bytes(characters.begin(), characters.end());
}

ParamSet attestParams() {
    return {bytesParam(KM_TAG_ATTESTATION_CHALLENGE, text("challenge")),
            bytesParam(KM_TAG_ATTESTATION_APPLICATION_ID, text("foo"))};
}

ParamSet with(ParamSet params, const ParamSet& more) {
    params.add(more);
    return params;
}

ParamSet keyParams(uint32_t algorithm) {
    ParamSet params = {
        intParam(KM_TAG_ALGORITHM, algorithm),
        intParam(KM_TAG_PURPOSE, KM_PURPOSE_SIGN),
        intParam(KM_TAG_PURPOSE, KM_PURPOSE_VERIFY),
        intParam(KM_TAG_DIGEST, KM_DIGEST_SHA_2_256),
        boolParam(KM_TAG_NO_AUTH_REQUIRED),
        intParam(KM_TAG_CREATION_DATETIME, 1600000000000),
    };
    if (algorithm == KM_ALGORITHM_RSA) {
        params.add({intParam(KM_TAG_KEY_SIZE, 2048), intParam(KM_TAG_RSA_PUBLIC_EXPONENT, 65537),
                    intParam(KM_TAG_PADDING, KM_PAD_RSA_PSS)});
    } else {
        params.add(intParam(KM_TAG_EC_CURVE, KM_EC_CURVE_P_256));
    }
    return params;
}

// A chain in files, and what openssl makes of it.
struct ChainFiles {
    ScratchFolder folder;
    std::vector<std::string> der, pem;

    explicit ChainFiles(const std::vector<Bytes>& chain) {
        for (const Bytes& certificate : chain) {
            const std::string name = std::to_string(der.size());
            der.push_back(folder.write(name + ".der", certificate));
            pem.push_back(folder.path(name + ".pem"));
            const ProgramResult converted =
                run({"openssl", "x509", "-inform", "DER", "-in", der.back(), "-out", pem.back()});
            EXPECT_EQ(converted.status, 0) << converted.output;
        }
    }

    std::string leaf(const std::vector<std::string>& what) const {
        std::vector<std::string> line = {"openssl", "x509", "-in", pem.front(), "-noout"};
        line.insert(line.end(), what.begin(), what.end());
        return run(line).output;
    }

    // The key description as asn1parse shows it, without offsets and lengths.
    std::string description() const {
        const std::string all = run({"openssl", "asn1parse", "-in", pem.front()}).output;
        std::smatch found;
        const std::regex place("1\\.3\\.6\\.1\\.4\\.1\\.11129\\.2\\.1\\.17\n *(\\d+):");
        if (!std::regex_search(all, found, place)) return "no such extension in\n" + all;
        std::istringstream lines(
            run({"openssl", "asn1parse", "-in", pem.front(), "-strparse", found[1]}).output);
        std::string result;
        for (std::string line; std::getline(lines, line);) {
            line = std::regex_replace(line, std::regex("^ *\\d+:d=(\\d+) .*(prim|cons): "), "$1 ");
            line = std::regex_replace(line, std::regex(" +$"), "");
            result += std::regex_replace(line, std::regex(" +"), " ") + "\n";
        }
        return result;
    }
};

struct ChainCase {
    const char* name;
    uint32_t algorithm;
    keymaster_security_level_t level;
    bool test_keys;
    const char* signature;
};

void PrintTo(const ChainCase& c, std::ostream* out) {
    *out << c.name;
}

class AttestedChain : public ::testing::TestWithParam<ChainCase> {};

TEST_P(AttestedChain, IsAcceptedUpToTheRootAndByTheGem) {
    Phone phone;
    phone.world.test_attestation_keys = GetParam().test_keys;
    phone.options.level = GetParam().level;
    Keymaster& keymaster = phone.boot();
    const Bytes blob = keymaster.generateKey(keyParams(GetParam().algorithm));
    const std::vector<Bytes> chain = keymaster.attestKey(blob, attestParams());
    ASSERT_EQ(chain.size(), 3U);
    EXPECT_EQ(chain.back(), attestationRoot(phone.own, phone.world, GetParam().level));

    const ChainFiles files(chain);
    const ProgramResult verified = run({"openssl", "verify", "-no-CApath", "-CAfile", files.pem[2],
                                        "-untrusted", files.pem[1], files.pem[0]});
    EXPECT_EQ(verified.status, 0) << verified.output;
    const ProgramResult strict =
        run({"openssl", "verify", "-x509_strict", "-CAfile", files.pem[2], files.pem[1]});
    EXPECT_EQ(strict.status, 0) << strict.output;
    EXPECT_EQ(files.leaf({"-serial", "-subject", "-dates"}),
              "serial=01\nsubject=CN = Android Keystore Key\n"
              "notBefore=Sep 13 12:26:40 2020 GMT\nnotAfter=Dec 31 23:59:59 2049 GMT\n");
    EXPECT_NE(files.leaf({"-text"}).find(GetParam().signature), std::string::npos);

    // The certified key is the key.
    const std::string key =
        files.folder.write("key.der", keymaster.exportKey(KM_KEY_FORMAT_X509, blob, {}));
    EXPECT_EQ(files.leaf({"-pubkey"}),
              run({"openssl", "pkey", "-pubin", "-inform", "DER", "-in", key, "-pubout"}).output);

    if (run({"ruby", "-e", "require 'android_key_attestation'"}).status != 0) {
        GTEST_SKIP() << "not read by the gem: install ruby and ruby-android-key-attestation";
    }
    const ProgramResult gem = run({"ruby", LUMO_TEST_SOURCES "/read_attestation.rb", "challenge",
                                   files.der[0], files.der[1], files.der[2]});
    const std::string level =
        GetParam().level == KM_SECURITY_LEVEL_STRONGBOX ? "strong_box" : "trusted_environment";
    EXPECT_EQ(gem.output, "attestation 4 " + level + "\nkeymaster 41 " + level +
                              "\nunique id 0\npurpose sign verify\norigin generated\n"
                              "created 2020-09-13 12:26:40 UTC\nsoftware application id foo\n");
    EXPECT_EQ(gem.status, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Keys, AttestedChain,
    ::testing::Values(ChainCase{"rsa", KM_ALGORITHM_RSA, KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT,
                                false, "sha256WithRSAEncryption"},
                      ChainCase{"ecStrongBox", KM_ALGORITHM_EC, KM_SECURITY_LEVEL_STRONGBOX, false,
                                "ecdsa-with-SHA256"},
                      ChainCase{"ecTestKeys", KM_ALGORITHM_EC,
                                KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT, true, "ecdsa-with-SHA256"}),
    [](const auto& chain) { return chain.param.name; });

// Written out by hand; characteristics without a field in the schema (a caller nonce, a use count,
// the blob's and the hardware's kind, a user) are not in it.
constexpr char kDescription[] = R"(0 SEQUENCE
1 INTEGER :04
1 ENUMERATED :01
1 INTEGER :29
1 ENUMERATED :01
1 OCTET STRING :challenge
1 OCTET STRING
1 SEQUENCE
2 cont [ 400 ]
3 INTEGER :016345785D8A0000
2 cont [ 701 ]
3 INTEGER :0174876E8000
2 cont [ 709 ]
3 OCTET STRING :foo
1 SEQUENCE
2 cont [ 1 ]
3 SET
4 INTEGER :02
4 INTEGER :03
2 cont [ 2 ]
3 INTEGER :03
2 cont [ 3 ]
3 INTEGER :0100
2 cont [ 5 ]
3 SET
4 INTEGER :04
2 cont [ 10 ]
3 INTEGER :01
2 cont [ 503 ]
3 NULL
2 cont [ 702 ]
3 INTEGER :00
2 cont [ 704 ]
3 SEQUENCE
4 OCTET STRING [HEX DUMP]:0707070707070707070707070707070707070707070707070707070707070707
4 BOOLEAN :255
4 ENUMERATED :01
4 OCTET STRING [HEX DUMP]:0808080808080808080808080808080808080808080808080808080808080808
2 cont [ 705 ]
3 INTEGER :01ADB0
2 cont [ 706 ]
3 INTEGER :03151C
2 cont [ 710 ]
3 OCTET STRING :lumo
2 cont [ 713 ]
3 OCTET STRING :S1
2 cont [ 718 ]
3 INTEGER :01343EF5
2 cont [ 719 ]
3 INTEGER :01343EF5
)";

TEST(Attestation, TheRecordHoldsCharacteristicsWorldAndIdsInOrder) {
    Phone phone;
    phone.world.verified_boot_key = Bytes(32, 7);
    phone.world.device_locked = true;
    phone.world.verified_boot_state = 1;
    phone.world.verified_boot_hash = Bytes(32, 8);
    phone.world.device_ids = {{KM_TAG_ATTESTATION_ID_BRAND, text("lumo")},
                              {KM_TAG_ATTESTATION_ID_SERIAL, text("S1")}};
    Keymaster& keymaster = phone.boot();
    const Bytes blob = keymaster.generateKey(
        with(keyParams(KM_ALGORITHM_EC),
             {intParam(KM_TAG_ACTIVE_DATETIME, 100000000000000000), boolParam(KM_TAG_CALLER_NONCE),
              intParam(KM_TAG_MAX_USES_PER_BOOT, 9), intParam(KM_TAG_USER_ID, 10)}));
    const ChainFiles files(keymaster.attestKey(
        blob, with(attestParams(), {bytesParam(KM_TAG_ATTESTATION_ID_SERIAL, text("S1")),
                                    bytesParam(KM_TAG_ATTESTATION_ID_BRAND, text("lumo"))})));
    EXPECT_EQ(files.description(), kDescription);
    EXPECT_NE(files.leaf({"-startdate"}).find("Dec 31 23:59:59 9999"), std::string::npos)
        << "a date beyond the last that a certificate can have";
}

TEST(Attestation, OldBlobsGoWithOldVersions) {
    Phone phone;
    phone.options.blob_version = kBlobVersion4_0;
    Keymaster& keymaster = phone.boot();
    const Bytes blob = keymaster.generateKey(keyParams(KM_ALGORITHM_EC));
    const ChainFiles files(keymaster.attestKey(blob, attestParams()));
    EXPECT_EQ(files.description().rfind(
                  "0 SEQUENCE\n1 INTEGER :03\n1 ENUMERATED :01\n1 INTEGER :04\n", 0),
              0U);
}

TEST(Attestation, KeyUsageFollowsThePurposes) {
    const struct {
        std::vector<uint32_t> purposes;
        const char* usage;
    } cases[] = {
        {{KM_PURPOSE_SIGN, KM_PURPOSE_VERIFY}, "Digital Signature\n"},
        {{KM_PURPOSE_DECRYPT, KM_PURPOSE_ENCRYPT}, "Data Encipherment\n"},
        {{KM_PURPOSE_WRAP}, "Key Encipherment\n"},
        {{KM_PURPOSE_SIGN, KM_PURPOSE_DECRYPT, KM_PURPOSE_WRAP},
         "Digital Signature, Key Encipherment, Data Encipherment\n"},
        {{KM_PURPOSE_VERIFY}, nullptr},
    };
    Phone phone;
    Keymaster& keymaster = phone.boot();
    for (const auto& c : cases) {
        ParamSet params = keyParams(KM_ALGORITHM_EC);
        params.removeAll(KM_TAG_PURPOSE);
        for (const uint32_t purpose : c.purposes) params.add(intParam(KM_TAG_PURPOSE, purpose));
        const ChainFiles files(keymaster.attestKey(keymaster.generateKey(params), attestParams()));
        const std::string shown = files.leaf({"-ext", "keyUsage"});
        if (c.usage == nullptr) {
            EXPECT_EQ(shown.find("Key Usage"), std::string::npos) << shown;
        } else {
            EXPECT_EQ(shown, "X509v3 Key Usage: critical\n    " + std::string(c.usage));
        }
    }
}

TEST(Attestation, TimesChangeTheirFormIn2050) {
    const struct {
        uint64_t millis;
        const char* time;
    } cases[] = {
        {0, "700101000000Z"},
        {1600000000999, "200913122640Z"},
        {2524607999999, "491231235959Z"},
        {2524608000000, "20500101000000Z"},
        {253402300799999, "99991231235959Z"},
        {UINT64_MAX, "99991231235959Z"},
    };
    for (const auto& c : cases) {
        const Bytes encoded = certificateTime(c.millis);
        const std::string time(encoded.begin() + 2, encoded.end());
        EXPECT_EQ(time, c.time);
        EXPECT_EQ(encoded[0], time.size() == 13 ? 23 : 24) << c.time;
    }
}

TEST(Attestation, RefusesInThePublishedOrder) {
    Phone phone;
    phone.world.device_ids = {{KM_TAG_ATTESTATION_ID_IMEI, text("123")},
                              {KM_TAG_ATTESTATION_ID_MEID, {}}};
    Keymaster& keymaster = phone.boot();
    const Bytes ec = keymaster.generateKey(keyParams(KM_ALGORITHM_EC));
    const Bytes bound = keymaster.generateKey(
        with(keyParams(KM_ALGORITHM_EC), {bytesParam(KM_TAG_APPLICATION_ID, text("app"))}));
    const Bytes aes = keymaster.generateKey(
        {intParam(KM_TAG_ALGORITHM, KM_ALGORITHM_AES), intParam(KM_TAG_KEY_SIZE, 128)});
    const Param challenge = bytesParam(KM_TAG_ATTESTATION_CHALLENGE, text("challenge"));
    const Param id = bytesParam(KM_TAG_ATTESTATION_APPLICATION_ID, text("foo"));
    const auto id_of = [](size_t size) {
        return bytesParam(KM_TAG_ATTESTATION_APPLICATION_ID, Bytes(size, 'x'));
    };
    const auto device_id = [](keymaster_tag_t tag, const std::string& value) {
        return bytesParam(tag, text(value));
    };
    const struct {
        const Bytes& blob;
        ParamSet params;
        keymaster_error_t error;
    } cases[] = {
        {aes, {}, KM_ERROR_INCOMPATIBLE_ALGORITHM},
        {bound, {challenge, id}, KM_ERROR_INVALID_KEY_BLOB},
        {bound, {challenge, id, bytesParam(KM_TAG_APPLICATION_ID, text("app"))}, KM_ERROR_OK},
        {ec, {}, KM_ERROR_ATTESTATION_CHALLENGE_MISSING},
        {ec, {id}, KM_ERROR_ATTESTATION_CHALLENGE_MISSING},
        {ec, {challenge}, KM_ERROR_ATTESTATION_APPLICATION_ID_MISSING},
        {ec,
         {bytesParam(KM_TAG_ATTESTATION_CHALLENGE, Bytes(129, 'c')), id},
         KM_ERROR_INVALID_INPUT_LENGTH},
        {ec, {challenge, id_of(143)}, KM_ERROR_OK},
        {ec, {challenge, id_of(1024)}, KM_ERROR_OK},
        {ec, {challenge, id_of(1025)}, KM_ERROR_INVALID_INPUT_LENGTH},
        {ec, {challenge, id, device_id(KM_TAG_ATTESTATION_ID_IMEI, "123")}, KM_ERROR_OK},
        {ec,
         {challenge, id, device_id(KM_TAG_ATTESTATION_ID_IMEI, "1234")},
         KM_ERROR_CANNOT_ATTEST_IDS},
        {ec,
         {challenge, id, device_id(KM_TAG_ATTESTATION_ID_MEID, "")},
         KM_ERROR_CANNOT_ATTEST_IDS},
        {ec,
         {challenge, id, device_id(KM_TAG_ATTESTATION_ID_IMEI, "123"),
          device_id(KM_TAG_ATTESTATION_ID_MODEL, "m")},
         KM_ERROR_CANNOT_ATTEST_IDS},
        {ec, {boolParam(KM_TAG_DEVICE_UNIQUE_ATTESTATION)}, KM_ERROR_UNIMPLEMENTED},
        {aes, {boolParam(KM_TAG_DEVICE_UNIQUE_ATTESTATION)}, KM_ERROR_INCOMPATIBLE_ALGORITHM},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        EXPECT_EQ(errorOf([&] { keymaster.attestKey(cases[i].blob, cases[i].params); }),
                  cases[i].error)
            << i;
    }
}

TEST(Attestation, DestroyedIdsStayDestroyedAndOldKeysAskForUpgrade) {
    Phone phone;
    phone.world.device_ids = {{KM_TAG_ATTESTATION_ID_BRAND, text("lumo")}};
    const ParamSet params =
        with(attestParams(), {bytesParam(KM_TAG_ATTESTATION_ID_BRAND, text("lumo"))});
    const Bytes blob = phone.boot().generateKey(keyParams(KM_ALGORITHM_EC));
    EXPECT_EQ(phone.keymaster->attestKey(blob, params).size(), 3U);
    phone.keymaster->destroyDeviceIds();
    for (int start = 0; start < 2; ++start) {
        EXPECT_EQ(errorOf([&] { phone.keymaster->attestKey(blob, params); }),
                  KM_ERROR_CANNOT_ATTEST_IDS);
        EXPECT_EQ(phone.keymaster->attestKey(blob, attestParams()).size(), 3U);
        phone.boot();
    }
    EXPECT_EQ(errorOf([&] { phone.boot(202101).attestKey(blob, attestParams()); }),
              KM_ERROR_KEY_REQUIRES_UPGRADE);
}

TEST(Attestation, StrongBoxHasNoDeviceUniqueKey) {
    Phone phone;
    phone.options.level = KM_SECURITY_LEVEL_STRONGBOX;
    const Bytes blob = phone.boot().generateKey(keyParams(KM_ALGORITHM_EC));
    const ParamSet params = with(attestParams(), {boolParam(KM_TAG_DEVICE_UNIQUE_ATTESTATION)});
    EXPECT_EQ(errorOf([&] { phone.keymaster->attestKey(blob, params); }),
              KM_ERROR_CANNOT_ATTEST_IDS);
}

TEST(Attestation, UniqueIdsAreForKeysThatAskForThem) {
    Phone phone;
    const Bytes blob = phone.boot().generateKey(
        with(keyParams(KM_ALGORITHM_EC), {boolParam(KM_TAG_INCLUDE_UNIQUE_ID)}));
    const auto described = [&](const ParamSet& params) {
        return ChainFiles(phone.keymaster->attestKey(blob, params)).description();
    };
    const std::string first = described(attestParams());
    EXPECT_TRUE(std::regex_search(
        first, std::regex("OCTET STRING :challenge\n1 OCTET STRING \\[HEX DUMP\\]:[0-9A-F]{32}\n")))
        << first;
    phone.boot();
    EXPECT_EQ(described(attestParams()), first);
    EXPECT_NE(described(with(attestParams(), {boolParam(KM_TAG_RESET_SINCE_ID_ROTATION)})), first);
}

TEST(AttestationKeys, AreMadeOnceAndTheTestRootIsTheSameEverywhere) {
    constexpr auto kLevel = KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT;
    test::MemoryState one;
    test::MemoryState other;
    World world;
    const AttestationKey first = attestationKey(one, world, kLevel, KM_ALGORITHM_RSA);
    EXPECT_EQ(attestationKey(one, world, kLevel, KM_ALGORITHM_RSA).chain, first.chain);
    EXPECT_EQ(attestationKey(one, world, kLevel, KM_ALGORITHM_EC).chain.back(), first.chain.back());
    EXPECT_NE(attestationRoot(other, world, kLevel), first.chain.back());

    one.records["attestation-rsa"].resize(100);
    EXPECT_THROW(attestationKey(one, world, kLevel, KM_ALGORITHM_RSA), StateError);

    world.test_attestation_keys = true;
    test::MemoryState untouched;
    const Bytes root = attestationRoot(untouched, world, kLevel);
    EXPECT_EQ(test::toHex(sha256(root)),
              "d1d9624ac2d62226f9af02a6e865c8250aba86c83311c9949a79e8d9b5f8006c");
    EXPECT_TRUE(untouched.records.empty());
    const ChainFiles files({root});
    EXPECT_EQ(files.leaf({"-subject"}),
              "subject=CN = Lumo Test Attestation Root - NOT FOR PRODUCTION\n");
}

}  // namespace
}  // namespace lumo::secureapp
