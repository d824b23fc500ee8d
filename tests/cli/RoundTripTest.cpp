// Whole uses of the client, over every protocol profile and both security levels, with the openssl
// command as the judge.

#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "Shell.h"
#include "WrappedKeyVector.h"

namespace lumo::test {
namespace {

using nlohmann::json;

struct Target {
    const char* profile;
    bool strongbox;
};

class RoundTrip : public testing::TestWithParam<Target> {
  protected:
    // Commands say $K for lumokm at the level under test.
    Outcome run(const std::string& command) const { return shell_.run(prepared(command)); }
    std::string ok(const std::string& command) const { return shell_.expectOk(prepared(command)); }

    const Shell shell_{std::string("sim:profile=") + GetParam().profile};

  private:
    static std::string prepared(const std::string& command) {
        return std::string("set -e; K='lumokm") + (GetParam().strongbox ? " --strongbox" : "") +
               "'\n" + command;
    }
};

TEST_P(RoundTrip, EcSignatureIsOneForOpenssl) {
    ok("$K generate --algorithm ec --curve p256 --purpose sign,verify --digest sha256 -o key\n"
       "$K export -k key -o pub.pem; head -c 50000 /dev/urandom >data\n"
       "$K sign -k key --digest sha256 -i data -o sig\n"
       "openssl dgst -sha256 -verify pub.pem -signature sig data\n"
       "$K verify -k key --digest sha256 -i data --signature sig");
    EXPECT_EQ(run("echo x >>data; $K verify -k key --digest sha256 -i data --signature sig").status,
              5);
    EXPECT_EQ(ok("cat data | $K sign -k key --digest sha256 >sig\n"
                 "openssl dgst -sha256 -verify pub.pem -signature sig data"),
              "Verified OK\n");
}

TEST_P(RoundTrip, RsaSignaturesAreOnesForOpenssl) {
    ok("$K generate --algorithm rsa --size 2048 --purpose sign,verify --digest sha256 "
       "--padding pss,pkcs1-sign -o key; $K export -k key -o pub.pem; echo text >data\n"
       "$K sign -k key --digest sha256 --padding pkcs1-sign -i data -o sig\n"
       "openssl dgst -sha256 -verify pub.pem -signature sig data\n"
       "$K verify -k key --digest sha256 --padding pkcs1-sign -i data --signature sig\n"
       "$K sign -k key --digest sha256 --padding pss -i data -o sig\n"
       "openssl dgst -sha256 -sigopt rsa_padding_mode:pss -sigopt rsa_pss_saltlen:32 "
       "-verify pub.pem -signature sig data");
}

TEST_P(RoundTrip, CharacteristicsAreTheOnesAskedFor) {
    const std::string made =
        ok("$K generate --algorithm hmac --size 256 --purpose sign --digest sha256 "
           "--min-mac-length 128 --app-id hex:0001 --app-data file:/dev/null "
           "--usage-expires 2030-01-31 -o key --json");
    const json characteristics =
        json::parse(ok("$K characteristics -k key --app-id hex:0001 --json"));
    const json& hardware = characteristics.at("hardwareEnforced");
    EXPECT_EQ(hardware.at("ALGORITHM"), "HMAC");
    EXPECT_EQ(hardware.at("KEY_SIZE"), 256);
    EXPECT_EQ(hardware.at("PURPOSE"), json({"SIGN"}));
    EXPECT_EQ(hardware.at("DIGEST"), json({"SHA_2_256"}));
    EXPECT_EQ(hardware.at("MIN_MAC_LENGTH"), 128);
    EXPECT_EQ(hardware.at("NO_AUTH_REQUIRED"), true);
    EXPECT_EQ(hardware.at("ORIGIN"), "GENERATED");
    EXPECT_EQ(characteristics.at("softwareEnforced").at("USAGE_EXPIRE_DATETIME"),
              "2030-01-31T00:00:00.000Z");
    EXPECT_EQ(json::parse(made), characteristics);
}

TEST_P(RoundTrip, GcmTakesDataAndAssociatedDataOfAnyLength) {
    const std::string options = " -k key --mode gcm --padding none --mac-length 128 ";
    ok("head -c 1048577 /dev/urandom >data; head -c 10000 /dev/urandom >aad\n"
       "$K generate --algorithm aes --size 256 --purpose encrypt,decrypt --mode gcm "
       "--padding none --min-mac-length 128 -o key\n"
       "$K encrypt" +
       options +
       "-i data --aad aad -o gcm; test $(stat -c %s gcm) = 1048605\n"
       "$K decrypt" +
       options +
       "-i gcm --aad aad -o back; cmp data back\n"
       "$K encrypt" +
       options +
       "--nonce-out nonce -i /dev/null --aad aad >tag\n"
       "test $(stat -c %s tag) = 16\n"
       "$K decrypt" +
       options + "--nonce $(cat nonce) -i tag --aad aad -o empty; test ! -s empty");
    EXPECT_EQ(run("$K decrypt" + options + "-i gcm -o back").status, 5);
}

TEST_P(RoundTrip, CiphertextsAreOnesForOpenssl) {
    ok("echo 'some plain text' >data; head -c 16 /dev/zero >raw; head -c 24 /dev/urandom >raw3\n"
       "HEX=00000000000000000000000000000000; HEX3=$(od -An -vtx1 raw3 | tr -d ' \\n')\n"
       "$K import --algorithm aes --purpose encrypt,decrypt --mode cbc,ctr --padding none,pkcs7 "
       "--caller-nonce -i raw -o key\n"
       "$K encrypt -k key --mode cbc --padding pkcs7 --nonce-out iv -i data -o enc\n"
       "openssl enc -d -aes-128-cbc -K $HEX -iv $(cat iv) -in enc | cmp - data\n"
       "openssl enc -aes-128-ctr -K $HEX -iv $HEX -in data -out enc\n"
       "$K encrypt -k key --mode ctr --padding none --nonce $HEX -i data | cmp - enc\n"
       "$K import --algorithm 3des --purpose encrypt,decrypt --mode cbc --padding pkcs7 -i raw3 "
       "-o key3\n"
       "openssl enc -des-ede3-cbc -K $HEX3 -iv 0102030405060708 -in data -out body\n"
       "(printf '\\001\\002\\003\\004\\005\\006\\007\\010'; cat body) |\n"
       "$K decrypt -k key3 --mode cbc --padding pkcs7 | cmp - data");
}

TEST_P(RoundTrip, ImportedRsaKeyDecryptsWhatOpensslEncrypted) {
    ok("openssl genpkey -algorithm rsa -pkeyopt rsa_keygen_bits:2048 -out rsa.pem 2>/dev/null\n"
       "echo secret >data; $K import --algorithm rsa --purpose encrypt,decrypt --padding oaep "
       "--digest sha256 -i rsa.pem -o key\n"
       "OAEP='-pkeyopt rsa_padding_mode:oaep -pkeyopt rsa_oaep_md:sha256 -pkeyopt "
       "rsa_mgf1_md:sha1'\n"
       "openssl pkeyutl -encrypt -inkey rsa.pem $OAEP -in data -out enc\n"
       "$K decrypt -k key --padding oaep --digest sha256 -i enc | cmp - data\n"
       "$K encrypt -k key --padding oaep --digest sha256 -i data -o enc\n"
       "openssl pkeyutl -decrypt -inkey rsa.pem $OAEP -in enc | cmp - data");
}

TEST_P(RoundTrip, ImportedEcKeySignsAsItself) {
    ok("openssl genpkey -algorithm ec -pkeyopt ec_paramgen_curve:P-256 -out ec.pem\n"
       "openssl pkcs8 -topk8 -nocrypt -in ec.pem -outform der -out ec.der\n"
       "openssl pkey -in ec.pem -pubout -out pub.pem\n"
       "for form in pem der; do\n"
       "  $K import --algorithm ec --purpose sign --digest sha256 -i ec.$form -o key\n"
       "  $K export -k key | cmp - pub.pem\n"
       "  $K sign -k key --digest sha256 -i pub.pem -o sig\n"
       "  openssl dgst -sha256 -verify pub.pem -signature sig pub.pem\n"
       "done");
}

TEST_P(RoundTrip, MacIsTheOneOfOpenssl) {
    ok("printf 0123456789abcdef >raw; head -c 40000 /dev/urandom >data\n"
       "$K import --algorithm hmac --purpose sign,verify --digest sha256 --min-mac-length 64 "
       "-i raw -o key\n"
       "openssl dgst -sha256 -hmac 0123456789abcdef -binary data >mac; head -c 16 mac >half\n"
       "$K sign -k key --digest sha256 --mac-length 256 -i data | cmp - mac\n"
       "$K sign -k key --digest sha256 --mac-length 128 -i data | cmp - half\n"
       "$K verify -k key --digest sha256 -i data --signature half");
}

TEST_P(RoundTrip, WrappedKeyIsTheOneInside) {
    shell_.write("wrapper", unhex(kWrapper));
    shell_.write("wrapping.der", unhex(kWrappingKey));
    ok("$K import --algorithm rsa --purpose wrap --padding oaep --digest sha256 -i wrapping.der "
       "-o wrapping.key; echo text >data\n"
       "$K import-wrapped -k wrapping.key --padding oaep --digest sha256 --masking-key " +
       std::string(kMaskingKey) +
       " -i wrapper -o key\n"
       "$K encrypt -k key --mode cbc --padding pkcs7 --nonce-out iv -i data -o enc\n"
       "openssl enc -d -aes-256-cbc -K " +
       kWrappedKeyHex + " -iv $(cat iv) -in enc | cmp - data");
    EXPECT_EQ(run("$K import-wrapped -k wrapping.key -i wrapper -o key").status, 5);
}

TEST_P(RoundTrip, AttestationChainsLeadToTheirRoot) {
    for (const char* key : {"--algorithm ec --curve p256", "--algorithm rsa --size 2048"}) {
        ok(std::string("$K generate ") + key +
           " --purpose sign --digest sha256 -o key\n"
           "$K attest -k key --challenge abc --application-id app -o chain.pem; rm -f cert*\n"
           "csplit -s -z -f cert chain.pem '/BEGIN CERT/' '{*}'; ROOT=$(ls cert* | tail -1)\n"
           "test $ROOT != cert00; openssl verify -CAfile $ROOT -untrusted chain.pem cert00\n"
           "openssl x509 -in cert00 -noout -pubkey >leaf.pem; $K export -k key | cmp - leaf.pem");
    }
}

TEST_P(RoundTrip, SmallCallsAreAnswered) {
    const json info = json::parse(ok("$K info --json"));
    EXPECT_EQ(info.at("securityLevel"), GetParam().strongbox ? "STRONGBOX" : "TRUSTED_ENVIRONMENT");
    EXPECT_EQ(json::parse(ok("$K hardware-info --json")).at("keymasterAuthorName"), "LUMO");
    const json parameters = json::parse(ok("$K hmac-params --json"));
    EXPECT_EQ(parameters.at("nonce").get<std::string>().size(), 64U);
    EXPECT_EQ(json::parse(ok("$K hmac-agree --json")).at("sharingCheck").get<std::string>().size(),
              64U);
    ok("$K hmac-agree own; $K early-boot-ended; $K device-locked --password-only\n"
       "head -c 32 /dev/zero | $K add-entropy\n"
       "$K generate --algorithm ec --curve p256 -o key; $K upgrade -k key -o same; cmp key same\n"
       "$K delete -k key; $K delete-all; $K destroy-ids --yes");
    if (GetParam().strongbox) return;
    const json token = json::parse(ok("$K verify-authorization --challenge 0x10 --json"));
    EXPECT_EQ(token.at("challenge"), 16);
    EXPECT_EQ(token.at("securityLevel"), "TRUSTED_ENVIRONMENT");
}

// What outlives one run of the client needs a secure application that does.
TEST(Daemon, RemembersNotificationsAndVersionsBetweenRuns) {
    const Shell shell("unix:socket");
    shell.expectOk(
        "lumo-secureapp --listen unix:socket --state daemon-state >log 2>&1 &\n"
        "echo $! >pid; for try in 1 2 3 4 5 6 7 8 9; do\n"
        "test -S socket && exit; sleep 0.2; done; cat log >&2; exit 1");
    const struct {
        const char* command;
        int status;
        const char* message;
    } steps[] = {
        {"lumokm generate --algorithm ec --curve p256 --purpose sign --digest sha256 "
         "--early-boot-only -o early",
         0, ""},
        {"lumokm generate --algorithm ec --curve p256 --purpose sign --digest sha256 "
         "--unlocked-device -o unlocked",
         0, ""},
        {"lumokm sign -k unlocked --digest sha256 -i pid -o sig", 0, ""},
        {"lumokm early-boot-ended", 0, "early boot has ended\n"},
        {"lumokm sign -k early --digest sha256 -i pid -o sig", 3, "EARLY_BOOT_ENDED (-73)"},
        {"lumokm device-locked", 0, "the device is locked\n"},
        {"lumokm sign -k unlocked --digest sha256 -i pid -o sig", 3, "DEVICE_LOCKED (-72)"},
        {"sed 's/=2020-12-05/=2021-01-05/' $(lumokm info | sed -n 's/^properties: //p') >props\n"
         "LUMO_PROPERTIES=props lumokm info",
         4, "cannot go on: Configure failed; restart"},
        {"kill $(cat pid); while test -S socket; do sleep 0.1; done; lumokm info", 4,
         "cannot reach"},
    };
    for (const auto& step : steps) {
        const Outcome outcome = shell.run(step.command);
        EXPECT_EQ(outcome.status, step.status) << step.command << "\n" << outcome.err;
        EXPECT_NE(outcome.err.find(step.message), std::string::npos) << outcome.err;
        EXPECT_LE(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
    }
}

constexpr Target kTargets[] = {
    {"cbor", false},
    {"cbor", true},
    {"legacy-4", false},
    {"legacy-4", true},
    {"legacy-3", false},
    {"legacy-3", true},
    {"legacy-3-encoding", false},
    {"legacy-3-encoding", true},
};

std::string nameOf(const testing::TestParamInfo<Target>& tested) {
    std::string name =
        std::string(tested.param.profile) + (tested.param.strongbox ? "_strongbox" : "_tee");
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(All, RoundTrip, testing::ValuesIn(kTargets), nameOf);

}  // namespace
}  // namespace lumo::test
