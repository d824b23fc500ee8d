// Attestations with one fault each, and what their judge says.
#include <gtest/gtest.h>

#include <fstream>
#include <set>

#include "KeymasterUnderTest.h"
#include "inspect/AttestationChain.h"

namespace lumo::test {
namespace {

TEST(JudgedAttestation, NamesTheRuleAndTheByte) {
    Device device;
    device.config.test_attestation_keys = true;
    device.boot();
    const ParamSet dated = {intParam(KM_TAG_CREATION_DATETIME, 1600000000000),
                            boolParam(KM_TAG_NO_AUTH_REQUIRED)};
    const std::vector<Bytes> chain =
        device->attestKey(device->generateKey(with(ecKey(), dated)),
                          {bytesParam(KM_TAG_ATTESTATION_CHALLENGE, fromHex("6368616c")),
                           bytesParam(KM_TAG_ATTESTATION_APPLICATION_ID, fromHex("666f6f"))});
    inspect::Expectations in2024;
    in2024.at_seconds = 1704067200;
    EXPECT_TRUE(judge(chain, in2024).good());
    std::ifstream edits(LUMO_TEST_SOURCES "/attestation_edits.txt");
    size_t count = 0;
    for (std::string line; std::getline(edits, line);) {
        std::string rule, from, to;
        int skip = 0;
        if (line[0] == '#' || !(std::istringstream(line) >> rule >> from >> to >> skip)) continue;
        std::string leaf = toHex(chain[0]);
        const size_t at = leaf.find(from);
        ASSERT_NE(at, std::string::npos) << line;
        leaf.replace(at, from.size(), to);
        std::set<std::string> faults;
        for (const auto& fault : judge({fromHex(leaf), chain[1], chain[2]}, in2024).faults) {
            faults.insert(fault.rule + " at " + std::to_string(*fault.byte));
        }
        const std::string wanted = rule + " at " + std::to_string(static_cast<int>(at / 2) + skip);
        EXPECT_EQ(faults.count(wanted), 1U)
            << wanted << ", not " << ::testing::PrintToString(faults);
        EXPECT_EQ(faults.count("chain.signatures at 16"), 1U);
        ++count;
    }
    EXPECT_EQ(count, 30U);
}

}  // namespace
}  // namespace lumo::test
