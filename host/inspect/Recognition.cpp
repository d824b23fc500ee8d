#include "inspect/Recognition.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <sstream>

#include "inspect/Certificate.h"
#include "inspect/KeyBlob.h"
#include "inspect/KeyDescription.h"
#include "inspect/Parameters.h"
#include "inspect/Token.h"
#include "inspect/TraceLine.h"
#include "inspect/UnreadableLines.h"
#include "inspect/Values.h"
#include "inspect/WrappedKey.h"

namespace lumo::inspect {

namespace {

ByteView viewOf(Window bytes) {
    return {bytes.data(), bytes.size()};
}

Inspection inspectChain(Window bytes) {
    Inspection found;
    std::string error;
    const std::vector<Bytes> chain = splitCertificates(bytes, error);
    if (chain.empty()) found.faults.push_back({"", std::nullopt, 0, std::nullopt, error});
    for (const Bytes& der : chain) {
        FaultList faults(found.faults, found.items.size());
        const Certificate certificate = readCertificate(Window(der), faults);
        Item item = describe(certificate);
        item.name += " " + std::to_string(found.items.size());
        if (const Extension* extension = certificate.find(kKeyDescriptionOid)) {
            item.add(describe(readKeyDescription(extension->value, faults)));
        }
        found.items.push_back(std::move(item));
    }
    found.remarks.push_back("bytes count from 0 in each certificate's DER");
    found.remarks.push_back("signatures, dates and order: lumokm attest-verify");
    return found;
}

Inspection inspectDescription(Window bytes) {
    Inspection found;
    FaultList faults(found.faults);
    found.items.push_back(describe(readKeyDescription(bytes, faults)));
    return found;
}

// Fields that are parts of the one before them stand below it.
std::vector<Item> itemsOf(const Message& message) {
    std::vector<Item> items;
    for (const Field& field : message.fields) {
        Item item;
        item.offset = field.offset;
        item.size = field.size;
        item.name = field.name;
        item.value = printable(field.value);
        item.stale = field.isStale();
        if (field.depth == 0 || items.empty()) {
            items.push_back(std::move(item));
        } else {
            items.back().add(std::move(item));
        }
    }
    return items;
}

Inspection describeMessage(const Message& message) {
    Inspection found;
    found.side = message.side == Side::kRequest ? "request" : "response";
    if (message.command != nullptr) found.command = message.command->name;
    found.items = itemsOf(message);
    if (!message.notation.empty()) found.remarks.push_back(printable(message.notation));
    for (const std::string& problem : message.problems) {
        found.faults.push_back({"", std::nullopt, std::nullopt, std::nullopt, problem});
    }
    return found;
}

Item describeMessage(const Message& message, const char* name, size_t line,
                     std::vector<Fault>& faults) {
    Item item;
    item.size = message.extent;
    item.name = name;
    item.value = printable(message.notation);
    item.parts = itemsOf(message);
    for (const std::string& problem : message.problems) {
        faults.push_back({"", std::nullopt, std::nullopt, std::nullopt,
                          "line " + std::to_string(line) + ", " + name + ": " + problem});
    }
    return item;
}

void describeLine(const std::string& text, size_t line, Inspection& found,
                  UnreadableLines& unreadable) {
    try {
        const Exchange exchange = parseLine(text);
        Item item;
        item.name = "line " + std::to_string(line);
        item.value = describeCommand(exchange.wire, exchange.number) + ": " +
                     errorName(exchange.code) +
                     (exchange.reason.empty() ? "" : ", " + printable(exchange.reason));
        item.add(describeMessage(exchange.decodedRequest(), "request", line, found.faults));
        if (exchange.response) {
            item.add(describeMessage(exchange.decodedResponse(), "response", line, found.faults));
        }
        found.items.push_back(std::move(item));
    } catch (const TraceError& error) {
        unreadable.add(line, printable(error.what()));
    }
}

Inspection inspectTrace(Window bytes) {
    Inspection found;
    UnreadableLines unreadable;
    std::istringstream lines(std::string(bytes.begin(), bytes.end()));
    size_t line = 0;
    for (std::string text; std::getline(lines, text);) {
        ++line;
        if (!text.empty()) describeLine(text, line, found, unreadable);
    }
    for (const std::string& sentence : unreadable.sentences()) {
        found.faults.push_back({"", std::nullopt, std::nullopt, std::nullopt, sentence});
    }
    found.remarks.push_back("bytes count from 0 in each message; lumokm trace filters the lines");
    return found;
}

Side sideOf(const Hints& hints) {
    return hints.side.value_or(Side::kRequest);
}

uint32_t numberOn(Wire wire, const Hints& hints) {
    return hints.command == nullptr ? 0 : hints.command->on(wire).environment;
}

Inspection inspectCbor(Window bytes, const Hints& hints) {
    return describeMessage(decodeCbor(numberOn(Wire::kCbor, hints), sideOf(hints), viewOf(bytes)));
}

std::string firstWord(Window bytes) {
    std::ostringstream text;
    text << "0x" << std::hex << bytes.little(0, 4);
    return text.str();
}

Inspection inspectRecord(Window bytes, const Hints& hints) {
    if (sideOf(hints) == Side::kResponse) {
        return describeMessage(decodeRecordResponse(numberOn(Wire::kRecord, hints), viewOf(bytes)));
    }
    const Message message = decodeRecordRequest(viewOf(bytes));
    Inspection found = describeMessage(message);
    const bool other = hints.command != nullptr && message.command != hints.command;
    if (message.command == nullptr || other) {
        found.faults.push_back({"", std::nullopt, 0, std::nullopt,
                                other ? "it is no request of " + std::string(hints.command->name)
                                      : "no command has the number " + firstWord(bytes)});
    }
    return found;
}

// What has to be known to read the bytes as a record, and is not; empty where nothing is missing.
// A request begins with its command's number, a response with a status that fits to any command.
std::string missingForRecord(Window bytes, const Hints& hints) {
    if (hints.command != nullptr && numberOn(Wire::kRecord, hints) == 0) {
        return std::string(hints.command->name) + " is no record; give --as cbor";
    }
    if (sideOf(hints) == Side::kResponse) {
        return hints.command != nullptr ? "" : "for the response of a record give --command NAME";
    }
    const auto number = static_cast<uint32_t>(bytes.little(0, 4));
    if (hints.side || findCommand(Wire::kRecord, number) != nullptr) return "";
    return "its first word, " + firstWord(bytes) +
           ", is the number of no command, so that it is no request; for the response of a record "
           "give --command NAME --response";
}

template <Inspection (*inspect)(Window)>
Inspection whateverItBelongsTo(Window bytes, const Hints& /*hints*/) {
    return inspect(bytes);
}

struct KindRow {
    const char* name;
    Inspection (*inspect)(Window bytes, const Hints& hints);
};
constexpr KindRow kKinds[] = {
    {"key-blob", whateverItBelongsTo<inspectKeyBlob>},
    {"cbor", inspectCbor},
    {"record", inspectRecord},
    {"auth-token", whateverItBelongsTo<inspectAuthToken>},
    {"verification-token", whateverItBelongsTo<inspectVerificationToken>},
    {"chain", whateverItBelongsTo<inspectChain>},
    {"key-description", whateverItBelongsTo<inspectDescription>},
    {"wrapped-key", whateverItBelongsTo<inspectWrappedKey>},
    {"trace", whateverItBelongsTo<inspectTrace>},
};

const KindRow* kindNamed(const std::string& name) {
    const auto* const found =
        std::find_if(std::begin(kKinds), std::end(kKinds),
                     [&name](const KindRow& row) { return name == row.name; });
    return found == std::end(kKinds) ? nullptr : found;
}

// What is signed of a certificate, where that alone is left, and not all of it.
bool beginsLikeCertificate(const DerElement& first) {
    const auto version = DerReader(first.content).nextOrCut();
    return first.missing != 0 && first.is(kDerSequence) && version && version->isContext() &&
           version->number == 0;
}

// The kinds of DER are told apart by their second field, of which the first bytes do.
const char* recogniseDer(Window bytes) {
    const auto outer = DerReader(bytes).nextOrCut();
    if (!outer || !outer->is(kDerSequence)) return nullptr;
    DerReader fields(outer->content);
    const auto first = fields.nextOrCut();
    if (first && beginsLikeCertificate(*first)) return "chain";
    const auto second = fields.nextOrCut();
    if (!first || !second) return nullptr;
    if (first->is(kDerSequence) && second->is(kDerSequence)) return "chain";
    if (first->is(kDerInteger) && second->is(kDerOctetString)) return "wrapped-key";
    if (first->is(kDerInteger) && second->is(kDerEnumerated)) return "key-description";
    return nullptr;
}

bool isMap(Window bytes) {
    constexpr uint8_t kMapType = 5;
    return !bytes.empty() && bytes[0] >> 5 == kMapType;
}

bool holds(Window bytes, const std::string& text) {
    return std::search(bytes.begin(), bytes.end(), text.begin(), text.end()) != bytes.end();
}

const char* recognise(Window bytes, const Hints& hints) {
    if (hints.command != nullptr) {
        const bool on_both =
            numberOn(Wire::kCbor, hints) != 0 && numberOn(Wire::kRecord, hints) != 0;
        if (!on_both) return numberOn(Wire::kCbor, hints) != 0 ? "cbor" : "record";
        return isMap(bytes) ? "cbor" : "record";
    }
    if (looksLikeKeyBlob(bytes)) return "key-blob";
    if (holds(bytes, "-----BEGIN CERTIFICATE")) return "chain";
    if (!bytes.empty() && bytes[0] == '{' && holds(bytes, "\"trace\"")) return "trace";
    if (const char* der = recogniseDer(bytes)) return der;
    if (looksLikeAuthToken(bytes)) return "auth-token";
    const bool map = isMap(bytes);
    if (map && decodeCbor(0, sideOf(hints), viewOf(bytes)).problems.empty()) return "cbor";
    if (looksLikeVerificationToken(bytes)) return "verification-token";
    if (map) return "cbor";
    const auto number = static_cast<uint32_t>(bytes.little(0, 4));
    if (sideOf(hints) == Side::kRequest && findCommand(Wire::kRecord, number) != nullptr) {
        return "record";
    }
    if (beginsLikeAuthToken(bytes)) return "auth-token";
    if (beginsLikeVerificationToken(bytes)) return "verification-token";
    return nullptr;
}

std::string explain(Window bytes) {
    if (bytes.empty()) return "the file is empty";
    if (holds(bytes, "-----BEGIN ")) {
        return "the PEM text holds no certificates; openssl pkey or openssl asn1parse read it";
    }
    if (const auto outer = DerReader(bytes).nextOrCut(); outer && outer->is(kDerSequence)) {
        if (outer->missing == 0) {
            return "it is a SEQUENCE in DER and none of " + kindNames() +
                   "; openssl asn1parse -inform DER reads it";
        }
        return "it begins a SEQUENCE in DER that is cut off after " + countOfBytes(bytes.size()) +
               ", " + std::to_string(outer->missing) +
               " are missing; what is left does not say what it is";
    }
    return "the content is not recognised; --as KIND forces one of " + kindNames() +
           ", and the response of a record needs --command and --response";
}

// Digits and blanks alone, as from a log; empty for anything else.
Bytes fromHexText(Window bytes) {
    constexpr size_t kFewestDigits = 8;
    std::string digits;
    std::copy_if(bytes.begin(), bytes.end(), std::back_inserter(digits),
                 [](uint8_t byte) { return std::isspace(byte) == 0; });
    if (digits.size() < kFewestDigits) return {};
    return bytesOfHex(digits).value_or(Bytes());
}

}  // namespace

std::string kindNames() {
    std::string names;
    for (const KindRow& row : kKinds) names += (names.empty() ? "" : ", ") + std::string(row.name);
    return names;
}

bool isKind(const std::string& name) {
    return kindNamed(name) != nullptr;
}

std::optional<Inspection> inspectBytes(Window bytes, const Hints& hints, std::string& why) {
    Bytes decoded = fromHexText(bytes);
    if (decoded.empty()) decoded = verificationTokenOfJson(bytes).value_or(Bytes());
    if (!decoded.empty()) bytes = Window(decoded);
    const char* kind = hints.kind.empty() ? recognise(bytes, hints) : hints.kind.c_str();
    if (kind == nullptr) {
        why = explain(bytes);
        return std::nullopt;
    }
    const KindRow* const row = kindNamed(kind);
    if (row == nullptr) {
        why = "there is no kind '" + std::string(kind) + "', only " + kindNames();
        return std::nullopt;
    }
    why = row->inspect == inspectRecord ? missingForRecord(bytes, hints) : "";
    if (!why.empty()) return std::nullopt;
    Inspection found = row->inspect(bytes, hints);
    found.kind = row->name;
    found.size = bytes.size();
    if (!decoded.empty()) {
        found.remarks.push_back("bytes count in the binary form that the text stands for");
    }
    return found;
}

}  // namespace lumo::inspect
