// The stored files of the fuzz target, some of them with a fault, and what is shown of them.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "Hex.h"
#include "inspect/Recognition.h"

namespace lumo::test {
namespace {

const struct {
    const char* file;
    size_t skip;  // bytes before it, which are for the fuzz target
    const char* from;
    const char* to;
    const char* shown;  // one line of it
} kFiles[] = {
    {"key_blob", 0, "", "", "read over records: 14 of 15 hardware-enforced entries, refused\n"},
    {"key_blob", 0, "0f0000000200", "110000000200", "byte 24: it declares 17 hardware-enforced"},
    {"auth_token", 1, "", "", "    25      4  authenticator type: 1 (PASSWORD)\n"},
    {"auth_token", 1, "0000000100000011", "0100000000000011", "byte 25: no authenticator has"},
    {"verification_token_hex", 0, "", "", "     8      8  timestamp: 73588229205 ms since"},
    {"wrapped_key", 0, "", "", "   298      5    algorithm [2]: 32 (AES)\n"},
    {"wrapped_key", 0, "a30402020100", "a30402020080",
     "byte 331: encryptedKey has 32 bytes, keySize says 16"},
    {"chain", 0, "", "", "     0    655  certificate 1: CN=Lumo Test EC Attestation Batch"},
    {"cbor", 0, "", "", "{22 /number of parameters/: 1, 536870913 /PURPOSE/: 2 /SIGN/}\n"},
};

TEST(Files, AreRecognisedAndTheirFaultsAreFound) {
    for (const auto& test : kFiles) {
        std::ifstream in(LUMO_TEST_SOURCES "/../../fuzz/corpus/inspect/" + std::string(test.file));
        const std::vector<uint8_t> stored{std::istreambuf_iterator<char>(in), {}};
        std::string digits = toHex(stored).substr(2 * test.skip);
        const size_t at = digits.find(test.from);
        ASSERT_NE(at, std::string::npos) << test.from;
        digits.replace(at, strlen(test.from), test.to);
        const std::vector<uint8_t> file = fromHex(digits);
        std::string why;
        const auto found = inspect::inspectBytes(inspect::Window(file), {}, why);
        ASSERT_TRUE(found) << test.file << why;
        std::string text = toText(found->items);
        for (const std::string& remark : found->remarks) text += remark + "\n";
        for (const auto& fault : found->faults) text += toText(fault) + "\n";
        EXPECT_NE(text.find(test.shown), std::string::npos) << test.shown << "\nnot in\n" << text;
        EXPECT_EQ(found->faults.empty(), *test.from == '\0') << text;
    }
}

}  // namespace
}  // namespace lumo::test
