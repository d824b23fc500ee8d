// Whole uses of the client, over every protocol profile and both security levels, checked by the
// openssl command.

#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <tuple>

#include "Bytes.h"
#include "Shell.h"
#include "WrappedKeyVector.h"

namespace lumo::test {
namespace {

using nlohmann::json;

using Target = std::tuple<const char*, bool>;  // the profile; whether StrongBox

std::string fromDigits(const std::string& digits) {
    const auto bytes = cli::fromHex(digits);
    EXPECT_TRUE(bytes);
    return bytes ? std::string(bytes->begin(), bytes->end()) : "";
}

// Run one after the other in the state of a level. Commands say $K for lumokm at the level under
// test; `refused STATUS command` wants that status.
const struct {
    const char* what;
    std::string script;
} kJobs[] = {
    {"EC signatures, from files and through pipes",
     R"($K generate --algorithm ec --curve p256 --purpose sign,verify --digest sha256 -o key
$K export -k key -o pub.pem; head -c 50000 /dev/urandom >data
$K sign -k key --digest sha256 -i data -o sig
openssl dgst -sha256 -verify pub.pem -signature sig data
$K verify -k key --digest sha256 -i data --signature sig
echo x >>data; refused 5 $K verify -k key --digest sha256 -i data --signature sig
cat data | $K sign -k key --digest sha256 >sig
openssl dgst -sha256 -verify pub.pem -signature sig data)"},
    {"RSA signatures",
     R"($K generate --algorithm rsa --size 2048 --purpose sign,verify --digest sha256 \
  --padding pss,pkcs1-sign -o rsa.key; $K export -k rsa.key -o pub.pem
$K sign -k rsa.key --digest sha256 --padding pkcs1-sign -i data -o sig
openssl dgst -sha256 -verify pub.pem -signature sig data
$K verify -k rsa.key --digest sha256 --padding pkcs1-sign -i data --signature sig
$K sign -k rsa.key --digest sha256 --padding pss -i data -o sig
openssl dgst -sha256 -sigopt rsa_padding_mode:pss -sigopt rsa_pss_saltlen:32 \
  -verify pub.pem -signature sig data)"},
    {"attestation chains to their roots",
     R"($K generate --algorithm rsa --size 2048 --purpose decrypt,wrap --padding oaep -o wrap.key
$K generate --algorithm ec --curve p256 --purpose verify --digest sha256 -o verify.key
for key in key rsa.key wrap.key verify.key; do
  $K attest -k $key --challenge abc --application-id app -o chain.pem; rm -f cert*
  csplit -s -z -f cert chain.pem '/BEGIN CERT/' '{*}'; ROOT=$(ls cert* | tail -1)
  test $ROOT != cert00
  openssl verify -no-CApath -x509_strict -CAfile $ROOT -untrusted chain.pem cert00
  openssl x509 -in cert00 -noout -pubkey >leaf.pem; $K export -k $key | cmp - leaf.pem
  VERIFY="$K attest-verify --challenge abc --application-id app --public-key leaf.pem"
  $VERIFY chain.pem --root $ROOT; cat cert00 cert01 | $VERIFY - --root $ROOT
  cat cert01 cert00 $ROOT | refused 5 $VERIFY -; refused 5 $VERIFY chain.pem --root cert01
  $K inspect $key >shown; $K inspect chain.pem --json >shown
  if ruby -e 'require "android_key_attestation"'; then ruby $TESTS/compare_readers.rb abc shown cert*; fi
done)"},
    {"GCM with data and associated data of any length",
     R"(GCM='-k key --mode gcm --padding none --mac-length 128'
head -c 1048577 /dev/urandom >data; head -c 10000 /dev/urandom >aad
$K generate --algorithm aes --size 256 --purpose encrypt,decrypt --mode gcm --padding none \
  --min-mac-length 128 -o key
$K encrypt $GCM -i data --aad aad -o gcm; test $(stat -c %s gcm) = 1048605
$K decrypt $GCM -i gcm --aad aad -o back; cmp data back
$K encrypt $GCM --nonce-out nonce -i /dev/null --aad aad >tag; test $(stat -c %s tag) = 16
$K decrypt $GCM --nonce $(cat nonce) -i tag --aad aad -o empty; test ! -s empty
refused 5 $K decrypt $GCM -i gcm -o back)"},
    {"ciphertexts of imported keys",
     R"(echo 'some plain text' >data; head -c 16 /dev/zero >raw; head -c 24 /dev/urandom >raw3
HEX=00000000000000000000000000000000; HEX3=$(od -An -vtx1 raw3 | tr -d ' \n')
$K import --algorithm aes --purpose encrypt,decrypt --mode cbc,ctr --padding none,pkcs7 \
  --caller-nonce -i raw -o key
$K encrypt -k key --mode cbc --padding pkcs7 --nonce-out iv -i data -o enc
openssl enc -d -aes-128-cbc -K $HEX -iv $(cat iv) -in enc | cmp - data
openssl enc -aes-128-ctr -K $HEX -iv $HEX -in data -out enc
$K encrypt -k key --mode ctr --padding none --nonce $HEX -i data | cmp - enc
$K import --algorithm 3des --purpose encrypt,decrypt --mode cbc --padding pkcs7 -i raw3 -o key3
openssl enc -des-ede3-cbc -K $HEX3 -iv 0102030405060708 -in data -out body
(printf '\001\002\003\004\005\006\007\010'; cat body) |
  $K decrypt -k key3 --mode cbc --padding pkcs7 | cmp - data)"},
    {"RSA ciphertexts of an imported key",
     R"(OAEP='-pkeyopt rsa_padding_mode:oaep -pkeyopt rsa_oaep_md:sha256 -pkeyopt rsa_mgf1_md:sha1'
$K import --algorithm rsa --purpose encrypt,decrypt --padding oaep --digest sha256 \
  -i wrapping.der -o key
openssl pkeyutl -encrypt -keyform der -inkey wrapping.der $OAEP -in data -out enc
$K decrypt -k key --padding oaep --digest sha256 -i enc | cmp - data
$K encrypt -k key --padding oaep --digest sha256 -i data -o enc
openssl pkeyutl -decrypt -keyform der -inkey wrapping.der $OAEP -in enc | cmp - data)"},
    {"signatures of an EC key imported in both forms",
     R"(openssl genpkey -algorithm ec -pkeyopt ec_paramgen_curve:P-256 -out ec.pem
openssl pkcs8 -topk8 -nocrypt -in ec.pem -outform der -out ec.der
openssl pkey -in ec.pem -pubout -out pub.pem
for form in pem der; do
  $K import --algorithm ec --purpose sign --digest sha256 -i ec.$form -o key
  $K export -k key | cmp - pub.pem
  $K sign -k key --digest sha256 -i pub.pem -o sig
  openssl dgst -sha256 -verify pub.pem -signature sig pub.pem
done)"},
    {"MACs",
     R"(printf 0123456789abcdef >raw; head -c 40000 /dev/urandom >data
$K import --algorithm hmac --purpose sign,verify --digest sha256 --min-mac-length 64 -i raw -o key
openssl dgst -sha256 -hmac 0123456789abcdef -binary data >mac; head -c 16 mac >half
$K sign -k key --digest sha256 --mac-length 256 -i data | cmp - mac
$K sign -k key --digest sha256 --mac-length 128 -i data | cmp - half
$K verify -k key --digest sha256 -i data --signature half)"},
    {"a wrapped key",
     R"($K import --algorithm rsa --purpose wrap --padding oaep --digest sha256 -i wrapping.der \
  -o wrapping.key
$K import-wrapped -k wrapping.key --padding oaep --digest sha256 -i wrapper -o key --masking-key \
  hex:e0e1e2e3e4e5e6e7e8e9eaebecedeeeff0f1f2f3f4f5f6f7f8f9fafbfcfdfeff
$K encrypt -k key --mode cbc --padding pkcs7 --nonce-out iv -i data -o enc
openssl enc -d -aes-256-cbc -iv $(cat iv) -in enc -K \
  808182838485868788898a8b8c8d8e8f909192939495969798999a9b9c9d9e9f | cmp - data
refused 5 $K import-wrapped -k wrapping.key -i wrapper -o key)"},
    {"characteristics",
     R"($K generate --algorithm hmac --size 256 --purpose sign --digest sha256 --min-mac-length 128 \
  --app-id hex:0001 --app-data file:/dev/null --usage-expires 2030-01-31 -o key --json >made
$K characteristics -k key --app-id hex:0001 --json | cmp - made)"},
    {"small calls",
     R"($K hmac-agree own; $K early-boot-ended; $K device-locked --password-only
head -c 32 /dev/zero | $K add-entropy
$K generate --algorithm ec --curve p256 -o ec; $K upgrade -k ec -o same; cmp ec same
mkdir -m 1777 all; ln -s ../ec all/link; $K generate --algorithm ec --curve p256 -o all/link
test -L all/link; cp ec same; if chown -h 65534 all/link; then
  refused 1 $K generate --algorithm ec --curve p256 -o all/link; cmp ec same; fi
$K delete -k ec; $K delete-all --yes; $K destroy-ids --yes)"},
    {"the trace of all of these, which has no secret and can be sent elsewhere",
     R"(R='lumokm --trace traced replay'; test $(stat -c %a trace) = 600
for secret in 808182838485868788898a8b8c8d8e8f e0e1e2e3e4e5e6e7e8e9eaebecedeeef \
  30313233343536373839616263646566 736f6d6520706c61696e2074657874; do ! grep -q $secret trace; done
LUMO_STATE_DIR=other $R trace 2>said || { cat said; false; }; grep -q '2 destructive' said
case $LUMO_TRANSPORT in *cbor) other=sim:profile=legacy-4;; *) other=sim;; esac
refused 2 env LUMO_TRANSPORT=$other $R trace; rm trace
K="$K --unredacted"; printf 'some plain text!' >data
$K import --algorithm aes --purpose encrypt,decrypt --mode ecb --padding none -i raw -o key
$K encrypt -k key --mode ecb --padding none -i data -o enc
$K decrypt -k key --mode ecb --padding none -i enc -o back
$K generate --algorithm ec --curve p256 --purpose sign,verify --digest sha256 -o key
$K sign -k key --digest sha256 -i data -o sig; $K verify -k key --digest sha256 -i data --signature sig
grep -q 736f6d6520706c61696e2074657874 trace; (cat trace; printf '{"trace":1,') >cut
refused 5 env LUMO_STATE_DIR=third $R cut 2>said || { cat said; false; }
grep -q ' sent, 1 left out: 1 unreadable' said
sed 's/"code":0/"code":-4/' trace >other-outcome; refused 5 $R other-outcome
chmod 644 trace; refused 2 $K info; rm trace)"},
};

class RoundTrip : public testing::TestWithParam<Target> {};

TEST_P(RoundTrip, MatchesOpenssl) {
    const auto& [profile, strongbox] = GetParam();
    const bool new_attestation_keys = profile == std::string("cbor") && !strongbox;
    const Shell shell(std::string("sim:profile=") + profile, new_attestation_keys);
    shell.write("wrapper", fromDigits(kWrappedKey));
    shell.write("wrapping.der", fromDigits(kWrappingKey));
    const std::string k = std::string("lumokm --trace trace") + (strongbox ? " --strongbox" : "");
    const std::string prelude = "set -e; K='" + k +
                                "'; refused() { want=$1; shift; got=0; \"$@\" || got=$?; test "
                                "$got = $want; }\nTESTS=" LUMO_TEST_SOURCES "\n";
    for (const auto& job : kJobs) {
        SCOPED_TRACE(job.what);
        shell.expectOk(prelude + job.script);
    }

    const auto reported = [&](const std::string& arguments) {
        return json::parse(shell.expectOk(k + " " + arguments + " --json"));
    };
    const json made = json::parse(shell.read("made"));
    const json& hardware = made.at("hardwareEnforced");
    const std::pair<const char*, json> expected[] = {
        {"ALGORITHM", "HMAC"},     {"KEY_SIZE", 256},       {"PURPOSE", {"SIGN"}},
        {"DIGEST", {"SHA_2_256"}}, {"MIN_MAC_LENGTH", 128}, {"NO_AUTH_REQUIRED", true},
        {"ORIGIN", "GENERATED"}};
    for (const auto& [tag, value] : expected) EXPECT_EQ(hardware.at(tag), value);
    EXPECT_EQ(made.at("softwareEnforced").at("USAGE_EXPIRE_DATETIME"), "2030-01-31T00:00:00.000Z");
    EXPECT_EQ(reported("info").at("securityLevel"),
              strongbox ? "STRONGBOX" : "TRUSTED_ENVIRONMENT");
    EXPECT_EQ(reported("info").count("mismatches"), 0U) << "the properties are another boot's";
    const json registered = json::parse(
        shell.expectOk("sed s/=orange/=green/ $(lumokm info | sed -n 's/^properties: //p') >props\n"
                       "LUMO_PROPERTIES=props lumokm info --json --service " +
                       std::string(strongbox ? "strongbox" : "default")));
    EXPECT_EQ(registered.at("securityLevel"), reported("info").at("securityLevel"));
    EXPECT_EQ(registered.at("mismatches").size(), 1U) << registered;
    EXPECT_EQ(reported("hardware-info").at("keymasterAuthorName"), "LUMO");
    EXPECT_EQ(reported("hmac-params").at("nonce").get<std::string>().size(), 64U);
    EXPECT_EQ(reported("hmac-agree").at("sharingCheck").get<std::string>().size(), 64U);
    if (strongbox) return;
    const json token = reported("verify-authorization --challenge 0x10");
    EXPECT_EQ(token.at("challenge"), "0x0000000000000010");
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
         4, "cannot go on: Configure failed: this boot was configured with OS version "},
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

std::string nameOf(const testing::TestParamInfo<Target>& tested) {
    const auto& [profile, strongbox] = tested.param;
    std::string name = std::string(profile) + (strongbox ? "_strongbox" : "_tee");
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(All, RoundTrip,
                         testing::Combine(testing::Values("cbor", "legacy-4", "legacy-3",
                                                          "legacy-3-encoding"),
                                          testing::Bool()),
                         nameOf);

}  // namespace
}  // namespace lumo::test
