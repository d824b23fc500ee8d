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
#include "inspect/Values.h"
#include "inspect/WrappedKey.h"

namespace lumo::inspect {

namespace {

ByteView viewOf(Window bytes) {
    return {bytes.data(), bytes.size()};
}

Inspection inspectChain(Window bytes) {
    Inspection found;
    found.kind = "certificates";
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
    found.kind = "key description";
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
    found.kind = std::string(nameOf(message.wire)) +
                 (message.side == Side::kRequest ? " request" : " response");
    if (message.command != nullptr) found.kind += std::string(" of ") + message.command->name;
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

void describeLine(const std::string& text, size_t line, Inspection& found) {
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
        found.faults.push_back({"", std::nullopt, std::nullopt, std::nullopt,
                                "line " + std::to_string(line) + ": " + printable(error.what())});
    }
}

Inspection inspectTrace(Window bytes) {
    Inspection found;
    found.kind = "trace";
    std::istringstream lines(std::string(bytes.begin(), bytes.end()));
    size_t line = 0;
    for (std::string text; std::getline(lines, text);) {
        ++line;
        if (!text.empty()) describeLine(text, line, found);
    }
    found.remarks.push_back("bytes count from 0 in each message; lumokm trace filters the lines");
    return found;
}

uint32_t numberOn(Wire wire, const Hints& hints) {
    return hints.command == nullptr ? 0 : hints.command->on(wire).environment;
}

Inspection inspectCbor(Window bytes, const Hints& hints) {
    return describeMessage(decodeCbor(numberOn(Wire::kCbor, hints), hints.side, viewOf(bytes)));
}

Inspection inspectRecord(Window bytes, const Hints& hints) {
    return describeMessage(
        hints.side == Side::kRequest
            ? decodeRecordRequest(viewOf(bytes))
            : decodeRecordResponse(numberOn(Wire::kRecord, hints), viewOf(bytes)));
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

// The kinds of DER are told apart by their second field.
const char* recogniseDer(Window bytes) {
    const auto outer = DerReader(bytes).next();
    if (!outer || !outer->is(kDerSequence)) return nullptr;
    DerReader fields(outer->content);
    const auto first = fields.next();
    const auto second = fields.next();
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
    if (map && decodeCbor(0, hints.side, viewOf(bytes)).problems.empty()) return "cbor";
    if (looksLikeVerificationToken(bytes)) return "verification-token";
    if (map) return "cbor";
    const auto number = static_cast<uint32_t>(bytes.little(0, 4));
    if (hints.side == Side::kRequest && findCommand(Wire::kRecord, number) != nullptr) {
        return "record";
    }
    return nullptr;
}

std::string explain(Window bytes) {
    if (bytes.empty()) return "the file is empty";
    if (holds(bytes, "-----BEGIN ")) {
        return "the PEM text holds no certificates; openssl pkey or openssl asn1parse read it";
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
    Inspection found = row->inspect(bytes, hints);
    found.size = bytes.size();
    if (!decoded.empty()) {
        found.remarks.push_back("bytes count in the binary form that the text stands for");
    }
    return found;
}

}  // namespace lumo::inspect
