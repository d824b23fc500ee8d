// Files that nobody vouches for, recognised and taken apart.
//
// Input: the file. A first byte of 0 to 15 before it forces a kind (0 none), or says that it is the
// response of a begin. Beyond not crashing: what is shown lies within the file (within
// its certificate), the parts of an item are not many more than its bytes, text and chain can be
// shown and judged, and nothing but printable characters comes out.

#include <algorithm>
#include <iterator>

#include "Property.h"
#include "inspect/AttestationChain.h"
#include "inspect/Recognition.h"

namespace {

using lumo::inspect::Item;

const char* const kKinds[] = {"",       "key-blob",        "cbor",
                              "record", "auth-token",      "verification-token",
                              "chain",  "key-description", "wrapped-key"};

size_t requireWithin(const std::vector<Item>& items, size_t size) {
    size_t count = items.size();
    for (const Item& item : items) {
        REQUIRE(item.size <= size && item.offset <= size - item.size);
        count += requireWithin(item.parts, size);
    }
    return count;
}

void requirePrintable(const std::string& text) {
    REQUIRE(std::all_of(text.begin(), text.end(),
                        [](char each) { return each == '\n' || (each >= 0x20 && each < 0x7F); }));
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    lumo::inspect::Hints hints;
    if (size > 0 && data[0] < 0x10) {
        if (data[0] < std::size(kKinds)) {
            hints.kind = kKinds[data[0]];
        } else {
            hints.side = lumo::inspect::Side::kResponse;
            hints.command = lumo::inspect::findCommand("begin");
        }
        ++data;
        --size;
    }
    const lumo::inspect::Window file(data, size);
    std::string why;
    const auto found = lumo::inspect::inspectBytes(file, hints, why);
    REQUIRE(found || !why.empty());
    if (found) {
        REQUIRE(requireWithin(found->items, size) <= 8 * size + 256);
        requirePrintable(toText(found->items));
        for (const auto& fault : found->faults) requirePrintable(toText(fault));
    }
    const auto chain = lumo::inspect::splitCertificates(file, why);
    if (chain.empty()) return 0;
    lumo::inspect::Expectations expected;
    expected.roots = {chain.back()};
    for (const auto& fault : judge(chain, expected).faults) requirePrintable(toText(fault));
    return 0;
}
