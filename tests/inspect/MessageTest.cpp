// Messages written by hand, and what a reader of them is shown.
#include <gtest/gtest.h>

#include "Hex.h"
#include "inspect/Message.h"

namespace lumo::test {
namespace {

using inspect::Side;
using inspect::Wire;

// CBOR in diagnostic notation, records in lines; then the first problem.
const struct {
    Wire wire;
    Side side;
    uint32_t number;
    const char* bytes;
    const char* shown;
} kMessages[] = {
    {Wire::kCbor, Side::kRequest, 0x210F, "a5 16 02 1a20000001 02 3a6ffffda6 43010203 17 42aabb",
     "{22 /number of parameters/: 2, 536870913 /PURPOSE/: 2 /SIGN/, -1879047591 /APPLICATION_ID/: "
     "h'010203', 23 /key blob/: h'aabb', ! at byte 22: the message ends inside an item"},
    {Wire::kCbor, Side::kResponse, 0x2111, "a1 1825 190001 f6",
     "{37 /input consumed/: 1_1}! at byte 6: bytes follow the end of the item"},
    {Wire::kCbor, Side::kRequest, 1, "9f fb3ff8000000000000 6161 c100 ff",
     "[_ 1.5, \"a\", 1(0)]! at byte 0: this is no map of definite length"},
    {Wire::kRecord, Side::kRequest, 0x108,
     "08010000 0c000000 02000000 02000010 03000000 eeeeeeee 59020090 24000000 05000000",
     "     0      4  command: generateKey (0x108)\n     4      8  place of parameters: 2 at byte "
     "12\n"
     "    12      8  ALGORITHM: 3 (EC)\n    20      4  ALGORITHM, unused: eeeeeeee (stale)\n"
     "    24      4  APPLICATION_ID, tag: 0x90000259\n"
     "    28      8  place of APPLICATION_ID: 5 bytes at byte 36, outside the message\n"
     "! APPLICATION_ID lies outside the message\n"},
    {Wire::kRecord, Side::kResponse, 0x512,
     "00000000 ffffffff 12000000 02000000 7777 abcd 99999999",
     "     0      4  status: 0 (OK)\n     4      4  unused: ffffffff (stale)\n"
     "     8      8  place of output: 2 bytes at byte 18\n    16      2  not read: 7777\n"
     "    18      2  output: abcd\n"},
};

TEST(Messages, AreShownWithTheirMeaningAndMayBeAnyBytes) {
    for (const auto& [wire, side, number, digits, shown] : kMessages) {
        const std::vector<uint8_t> whole = fromHex(digits);
        const inspect::Message message = decode(wire, side, number, whole);
        const std::string problem = message.problems.empty() ? "" : "! " + message.problems[0];
        EXPECT_EQ(wire == Wire::kCbor ? message.notation + problem : toText(message), shown);
        // Cut off after each byte, then each bit changed.
        for (size_t i = 0; i < whole.size() * 9; ++i) {
            std::vector<uint8_t> bytes(whole.data(), whole.data() + std::min(i, whole.size()));
            const size_t bit = i - bytes.size();
            if (i >= whole.size()) bytes[bit / 8] ^= static_cast<uint8_t>(1U << bit % 8);
            for (const auto& field : decode(wire, side, number, bytes).fields) {
                ASSERT_LE(field.offset + field.size, bytes.size()) << digits << i;
            }
        }
    }
}

}  // namespace
}  // namespace lumo::test
