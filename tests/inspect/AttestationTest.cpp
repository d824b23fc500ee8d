// Attestations of the secure application, as the inspecting reader and two others read them.
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>

#include <set>

#include "Folder.h"
#include "KeymasterUnderTest.h"
#include "Program.h"
#include "inspect/AttestationChain.h"

namespace lumo::test {
namespace {

using inspect::Item;
using inspect::KeyDescription;

const ParamSet kDated = {intParam(KM_TAG_CREATION_DATETIME, 1600000000000),
                         boolParam(KM_TAG_NO_AUTH_REQUIRED)};

std::vector<Bytes> attested(Device& device, const ParamSet& key) {
    device.config.test_attestation_keys = true;
    device.boot();
    return device->attestKey(device->generateKey(with(key, kDated)),
                             {bytesParam(KM_TAG_ATTESTATION_CHALLENGE, fromHex("6368616c")),
                              bytesParam(KM_TAG_ATTESTATION_APPLICATION_ID, fromHex("666f6f"))});
}

inspect::Expectations in2024() {
    inspect::Expectations expected;
    expected.at_seconds = 1704067200;
    return expected;
}

// Digits in the key's certificate, what is put in their place, the rule that has to be named and,
// counted from the digits' first byte, where.
const struct {
    const char* rule;
    const char* from;
    const char* to;
    int skip;
} kEdits[] = {
    {"leaf.version", "a003020102", "a003020101", 2},
    {"leaf.serial", "020101300a", "020102300a", 2},
    {"leaf.signature", "300a06082a8648ce3d040302", "300a06082a8648ce3d040303", 0},
    {"leaf.dates", "170d3230303931333132323634305a", "170d3230303931333132323634315a", 0},
    {"leaf.subject", "416e64726f6964204b65797374", "416e64726f6964204b65797375", -13},
    {"leaf.key-usage", "03020780", "03020640", -12},
    {"leaf.public-key", "a30402020100", "a30402020101", 0},
    {"chain.key-ids", "30168014", "30168114", -9},
    {"description.fields", "0201290a0101", "0a01290a0101", 0},
    {"description.version", "0201040a0101", "0201050a0101", 0},
    {"description.keymaster-version", "0201290a0101", "0201040a0101", 0},
    {"description.levels", "0a010104046368", "0a010204046368", 0},
    {"description.unique-id", "04046368616c0400", "040263680402616c", 4},
    {"description.der", "a203020103", "a281020500", 0},
    {"list.order", "a203020103a30402020100", "a30402020100a203020103", 6},
    {"list.once", "a5053103020104", "a1053103020104", 0},
    {"list.known", "bf854f0602040134", "bf85530602040134", 0},
    {"list.place", "bf8377020500", "bf837a020500", 0},
    {"list.type", "bf8377020500", "bf8377020400", 4},
    {"list.integer", "020301adb0", "0203ffadb0", 0},
    {"list.integer", "02040134", "02040034", 0},
    {"list.set", "3106020102020103", "3106020103020102", 5},
    {"list.value", "a203020103", "a203020104", 2},
    {"list.value", "020303151c", "020303151d", 0},
    {"list.required", "a1083106020102020103a2", "a1083106020102020103a4", 0},
    {"root-of-trust.present", "bf85404c30", "bf853f4c30", -46},
    {"root-of-trust.shape", "0101000a0102", "0101010a0102", 0},
    {"root-of-trust.state", "0a01020420", "0a01040420", 0},
    {"root-of-trust.key", "0a01020420", "0a01000420", -35},
    {"root-of-trust.hash", "04205a5a", "041f5a5a", 2},
};

TEST(JudgedAttestation, NamesTheRuleAndTheByte) {
    Device device;
    const std::vector<Bytes> chain = attested(device, ecKey());
    EXPECT_TRUE(judge(chain, in2024()).good());
    for (const auto& edit : kEdits) {
        std::string leaf = toHex(chain[0]);
        const size_t at = leaf.find(edit.from);
        ASSERT_NE(at, std::string::npos) << edit.from;
        leaf.replace(at, strlen(edit.to), edit.to);
        std::set<std::string> faults;
        for (const auto& fault : judge({fromHex(leaf), chain[1], chain[2]}, in2024()).faults) {
            faults.insert(fault.rule + " at " + std::to_string(*fault.byte));
        }
        const auto byte = static_cast<int>(at / 2) + edit.skip;
        EXPECT_EQ(faults.count(edit.rule + (" at " + std::to_string(byte))), 1U)
            << edit.rule << " at " << byte << ", not " << ::testing::PrintToString(faults);
        EXPECT_EQ(faults.count("chain.signatures at 16"), 1U);
    }
}

using Places = std::set<std::pair<size_t, size_t>>;  // first byte, number of bytes

// Of elements and of their contents, as openssl finds them.
void addPlaces(const std::string& file, size_t from, Places& places) {
    const std::string offset = from == 0 ? "" : " -offset " + std::to_string(from);
    std::istringstream lines(run("openssl asn1parse -inform DER -in " + file + offset).output);
    for (std::string line; std::getline(lines, line);) {
        size_t at = 0, header = 0, length = 0;
        if (sscanf(line.c_str(), "%zu:d=%*d hl=%zu l=%zu", &at, &header, &length) != 3) continue;
        places.insert({from + at, header + length});
        places.insert({from + at + header, length});
    }
}

void expectPlaced(const Item& item, const Places& places) {
    EXPECT_EQ(places.count({item.offset, item.size}), 1U) << item.name << " at " << item.offset;
    for (const Item& part : item.parts) expectPlaced(part, places);
}

TEST(ReadAttestation, AgreesWithOpensslAndTheGem) {
    const bool gem = run("ruby -e 'require \"android_key_attestation\"'").status == 0;
    for (const auto level : {kTee, kStrongBox}) {
        for (const auto version : {kBlobVersion3_0, kBlobVersion4_1}) {
            Device device(level);
            device.options.blob_version = version;
            const bool rsa = (level == kTee) == (version == kBlobVersion3_0);
            const std::vector<Bytes> chain =
                attested(device, rsa ? with(rsaKey(), {intParam(KM_TAG_PURPOSE, 2)}) : ecKey());
            EXPECT_TRUE(judge(chain, in2024()).good());
            std::vector<inspect::Fault> found;
            inspect::FaultList faults(found);
            const auto leaf = readCertificate(inspect::Window(chain[0]), faults);
            const inspect::Window extension = leaf.find(inspect::kKeyDescriptionOid)->value;
            const auto d = readKeyDescription(extension, faults);
            EXPECT_TRUE(found.empty());

            Folder folder;
            std::string files;
            for (const Bytes& each : chain) {
                files += " " + folder.write(std::to_string(files.size()), each);
            }
            Places places;
            addPlaces(folder / "0", 0, places);
            expectPlaced(describe(leaf), places);
            addPlaces(folder / "0", extension.offset(), places);
            expectPlaced(describe(d), places);
            if (!gem) continue;
            const auto number = [](const inspect::Number& n) { return std::to_string(*n.value); };
            const std::string name = d.level.is(1) ? " trusted_environment\n" : " strong_box\n";
            EXPECT_EQ(run("ruby " LUMO_TEST_SOURCES "/read_attestation.rb chal" + files).output,
                      "attestation " + number(d.version) + name + "keymaster " +
                          number(d.keymaster_version) + name + "unique id 0\npurpose sign" +
                          (d.hardware.has(1, 3) ? " verify" : "") +
                          "\norigin generated\ncreated 2020-09-13 12:26:40 UTC\n"
                          "software application id foo\n");
        }
    }
}

}  // namespace
}  // namespace lumo::test
