// DER as the secure application reads and writes it.
//
// Input: a byte that picks what is done, then the bytes for it. Beyond not crashing: every item
// that is read encodes to the very bytes that it was read from, and so does every number; what is
// made (sets, identifiers, times) can be read again and is in DER's order; the views into a
// certificate lie within it.

#include "secureapp/crypto/Der.h"

#include <algorithm>

#include "Property.h"
#include "secureapp/attestation/Certificate.h"
#include "secureapp/base/Refusal.h"

namespace {

namespace der = lumo::secureapp::der;
using lumo::fuzz::exactCopy;
using lumo::fuzz::Input;
using lumo::secureapp::Bytes;
using lumo::secureapp::ByteView;
using lumo::secureapp::Refusal;

bool same(ByteView a, ByteView b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end());
}

void requireWithin(ByteView part, ByteView whole) {
    REQUIRE(part.empty() || (part.begin() >= whole.begin() && part.end() <= whole.end()));
}

// Reads items to the end, and those within constructed ones.
void walk(ByteView bytes, int depth) {
    constexpr int kMaxDepth = 16;
    der::Reader reader(bytes);
    while (!reader.atEnd()) {
        const der::Item item = reader.next();
        requireWithin(item.encoding, bytes);
        requireWithin(item.contents, item.encoding);
        REQUIRE(same(der::item(item.tag, item.contents), item.encoding));
        if (item.tag == der::kInteger) {
            try {
                const uint64_t value = der::Reader(item.encoding).nextUnsigned();
                REQUIRE(same(der::integer(value), item.encoding));
            } catch (const Refusal&) {
                // negative, too long or not in the fewest bytes
            }
        }
        const bool constructed = (item.tag.form & der::kConstructed) != 0;
        if (constructed && depth < kMaxDepth) {
            try {
                walk(item.contents, depth + 1);
            } catch (const Refusal&) {
                // its contents need not be DER
            }
        }
    }
    reader.expectEnd();
}

void readItems(Input& input) {
    const Bytes bytes = input.take<Bytes>(input.size());
    const auto exact = exactCopy(bytes);
    walk({exact.get(), bytes.size()}, 0);
}

void readIssuer(Input& input) {
    const Bytes bytes = input.take<Bytes>(input.size());
    const auto exact = exactCopy(bytes);
    const ByteView certificate(exact.get(), bytes.size());
    const auto fields = lumo::secureapp::readIssuer(certificate);
    requireWithin(fields.subject, certificate);
    requireWithin(fields.not_after, certificate);
    walk(fields.subject, 0);
}

void expectTags(Input& input) {
    const uint8_t form = input.byte();
    const auto number = static_cast<uint32_t>(input.number(4));
    const Bytes bytes = input.take<Bytes>(input.size());
    der::Reader(bytes).enter({form, number}).expectEnd();
}

void makeSet(Input& input) {
    std::vector<Bytes> elements;
    while (input.size() != 0) elements.push_back(der::octetString(input.take<Bytes>(input.byte())));
    const Bytes set = der::setOf(elements);
    der::Reader reader = der::Reader(set).enter(der::kSet);
    Bytes last;
    while (!reader.atEnd()) {
        const Bytes element = reader.next(der::kOctetString).encoding.copy();
        REQUIRE(last < element);
        REQUIRE(std::count(elements.begin(), elements.end(), element) != 0);
        last = element;
    }
}

void makeItems(Input& input) {
    const uint64_t value = input.number(8);
    const auto arc = static_cast<uint32_t>(input.number(4));
    const bool flag = (input.byte() & 1) != 0;
    const auto number = static_cast<uint32_t>(input.number(4) & 0x0FFFFFFF);
    const Bytes contents = input.take<Bytes>(input.size());
    const Bytes made = der::sequence({
        der::integer(value),
        der::integer(value, der::kEnumerated),
        der::boolean(flag),
        der::objectIdentifier({1, 2, arc}),
        der::item(der::context(number), contents),
        lumo::secureapp::extension(der::objectIdentifier({2, 5, 29, 14}), flag, contents),
    });
    der::Reader reader = der::Reader(made).enter(der::kSequence);
    REQUIRE(reader.nextUnsigned() == value);
    REQUIRE(!reader.next(der::kEnumerated).contents.empty());
    REQUIRE((reader.next(der::kBoolean).contents[0] != 0) == flag);
    REQUIRE(reader.next(der::kObjectIdentifier).contents[0] == 42);
    REQUIRE(same(reader.next(der::context(number)).contents, contents));
    REQUIRE(
        same(reader.next(der::kSequence).encoding,
             lumo::secureapp::extension(der::objectIdentifier({2, 5, 29, 14}), flag, contents)));
    reader.expectEnd();
}

void makeTime(Input& input) {
    const uint64_t millis = input.number(8);
    const Bytes time = lumo::secureapp::certificateTime(millis);
    const der::Item item = der::Reader(time).next();
    const bool general = item.tag == der::kGeneralizedTime;
    REQUIRE(general || item.tag == der::kUtcTime);
    REQUIRE(item.contents.size() == (general ? 15U : 13U));
    for (size_t i = 0; i + 1 < item.contents.size(); ++i) {
        REQUIRE(item.contents[i] >= '0' && item.contents[i] <= '9');
    }
    // Text of one form sorts as the times do.
    if (millis < 1000) return;
    const Bytes before = lumo::secureapp::certificateTime(millis - 1000);
    if (before.size() == time.size() && general) REQUIRE(before <= time);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr void (*kWorks[])(Input&) = {readItems, readIssuer, expectTags,
                                          makeSet,   makeItems,  makeTime};
    Input input(data, size);
    const uint8_t pick = input.byte();
    try {
        kWorks[pick % std::size(kWorks)](input);
    } catch (const Refusal& refusal) {
        REQUIRE(refusal.code() == KM_ERROR_INVALID_ARGUMENT);
        REQUIRE(pick % std::size(kWorks) < 3);  // what is made can be read
    }
    return 0;
}
