#include "inspect/TraceLine.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <nlohmann/json.hpp>

#include "inspect/Parameters.h"
#include "inspect/Redaction.h"

namespace lumo::inspect {
namespace {

using Json = nlohmann::ordered_json;

const char* levelWord(uint32_t level) {
    return level == KM_SECURITY_LEVEL_STRONGBOX ? "strongbox" : "trusted-environment";
}

std::string numberWord(uint32_t number) {
    char text[16];
    std::snprintf(text, sizeof(text), "0x%x", number);
    return text;
}

Json toJson(const Field& field) {
    Json json = {{"offset", field.offset},
                 {"size", field.size},
                 {"name", field.name},
                 {"value", field.value}};
    if (field.isStale()) json["stale"] = true;
    return json;
}

Json toJson(const Message& message, ByteView bytes, const std::vector<Hidden>& hidden) {
    Json json = {{"length", bytes.size()}, {"hex", toHex(bytes)}};
    if (message.wire == Wire::kCbor) {
        json["decoded"] = message.notation;
    } else {
        json["decoded"] = Json::array();
        for (const Field& field : message.fields) json["decoded"].push_back(toJson(field));
    }
    if (!message.problems.empty()) json["problems"] = message.problems;
    if (hidden.empty()) return json;
    for (const Hidden& part : hidden) {
        json["redacted"].push_back(
            {{"offset", part.offset}, {"size", part.size}, {"what", part.what}});
    }
    return json;
}

Bytes fromHex(const std::string& digits) {
    const auto value = [](char digit) {
        if (digit >= '0' && digit <= '9') return digit - '0';
        if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
        throw TraceError(std::string("'") + digit + "' is no lower-case hexadecimal digit");
    };
    if (digits.size() % 2 != 0) throw TraceError("a message ends inside a byte");
    Bytes bytes(digits.size() / 2);
    for (size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<uint8_t>(value(digits[2 * i]) << 4 | value(digits[2 * i + 1]));
    }
    return bytes;
}

// A text of the file, as a message quotes it.
std::string quoted(const std::string& text) {
    constexpr size_t kMost = 40;
    return "'" + text.substr(0, kMost) + (text.size() > kMost ? "...'" : "'");
}

const Json& memberOf(const Json& object, const char* name) {
    if (!object.is_object()) throw TraceError("something else stands where an object belongs");
    const auto found = object.find(name);
    if (found == object.end()) throw TraceError(std::string("there is no member '") + name + "'");
    return *found;
}

[[noreturn]] void failMember(const char* name, const std::string& wanted) {
    throw TraceError(std::string("the member '") + name + "' is no " + wanted);
}

std::string readText(const Json& object, const char* name) {
    const Json& member = memberOf(object, name);
    if (!member.is_string()) failMember(name, "text");
    return member.get<std::string>();
}

// A number from 0 on, or of a signed type of any sign.
template <typename Number>
Number readCount(const Json& object, const char* name) {
    using Limits = std::numeric_limits<Number>;
    const Json& member = memberOf(object, name);
    bool fits = false;
    if (member.is_number_unsigned()) {
        fits = member.get<uint64_t>() <= static_cast<uint64_t>(Limits::max());
    } else if (member.is_number_integer()) {
        fits = Limits::is_signed && member.get<int64_t>() >= static_cast<int64_t>(Limits::min());
    }
    if (!fits) failMember(name, "number, or out of its range");
    return static_cast<Number>(member.get<int64_t>());
}

bool readFlag(const Json& object, const char* name) {
    const Json& member = memberOf(object, name);
    if (!member.is_boolean()) failMember(name, "true or false");
    return member.get<bool>();
}

Bytes readMessage(const Json& json, std::vector<Hidden>& hidden) {
    Bytes bytes = fromHex(readText(json, "hex"));
    if (readCount<size_t>(json, "length") != bytes.size()) {
        throw TraceError("a message has another length than its digits");
    }
    if (!json.contains("redacted")) return bytes;
    for (const Json& part : json.at("redacted")) {
        const Hidden found = {readCount<size_t>(part, "offset"), readCount<size_t>(part, "size"),
                              readText(part, "what")};
        if (found.offset > bytes.size() || found.size > bytes.size() - found.offset) {
            throw TraceError("a redacted part lies outside its message");
        }
        hidden.push_back(found);
    }
    return bytes;
}

uint64_t readHex(const Json& object, const char* name, uint64_t most) {
    const std::string text = readText(object, name);
    char* end = nullptr;
    errno = 0;
    const uint64_t value = std::strtoull(text.c_str(), &end, 16);
    const bool all = text.rfind("0x", 0) == 0 && end == text.c_str() + text.size();
    if (!all || errno != 0 || value > most) {
        failMember(name, "hexadecimal number, or out of its range: " + quoted(text));
    }
    return value;
}

std::chrono::system_clock::time_point readTime(const std::string& text) {
    constexpr int kFirstYear = 70, kLastYear = 361;  // from 1900 on; a time_point ends in 2262
    tm parts = {};
    int micros = 0;
    const char* rest = ::strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
    if (rest == nullptr || std::sscanf(rest, ".%6dZ", &micros) != 1 || parts.tm_year < kFirstYear ||
        parts.tm_year > kLastYear) {
        failMember("time", "time of day: " + quoted(text));
    }
    return std::chrono::system_clock::from_time_t(::timegm(&parts)) +
           std::chrono::microseconds(micros);
}

// One of two words: the second is true.
bool readWord(const Json& object, const char* name, const char* first, const char* second) {
    const std::string word = readText(object, name);
    if (word != first && word != second) {
        failMember(name, std::string(first) + " or " + second + ": " + quoted(word));
    }
    return word == second;
}

Exchange read(const Json& json) {
    if (!json.is_object() || !json.contains("trace")) {
        throw TraceError("this is no line of a trace");
    }
    if (const int version = readCount<int>(json, "trace"); version != kTraceVersion) {
        throw TraceError("the trace has version " + std::to_string(version) +
                         "; this program reads " + std::to_string(kTraceVersion));
    }
    Exchange exchange;
    exchange.time = readTime(readText(json, "time"));
    exchange.duration = std::chrono::microseconds(readCount<uint32_t>(json, "durationMicros"));
    exchange.source = readText(json, "source");
    exchange.process = readCount<uint64_t>(json, "process");
    exchange.link = readCount<uint64_t>(json, "link");
    if (!memberOf(json, "boot").is_null()) exchange.boot = readHex(json, "boot", UINT64_MAX);
    exchange.level = readWord(json, "level", "trusted-environment", "strongbox")
                         ? KM_SECURITY_LEVEL_STRONGBOX
                         : KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT;
    exchange.protocol.legacy = readWord(json, "protocol", "cbor", "records");
    const Json& versions = memberOf(json, "versions");
    exchange.protocol.keymaster_version = readCount<uint32_t>(versions, "keymaster");
    exchange.protocol.ta_minor_version = readCount<uint32_t>(versions, "ta");
    exchange.protocol.hal_minor_version = readCount<uint32_t>(versions, "hal");
    exchange.wire = readWord(json, "wire", "cbor", "record") ? Wire::kRecord : Wire::kCbor;
    exchange.number = static_cast<uint32_t>(readHex(json, "number", UINT32_MAX));
    exchange.request = readMessage(memberOf(json, "request"), exchange.hidden_request);
    if (json.contains("area")) {
        const Json& area = json.at("area");
        exchange.area = AnswerArea{readCount<size_t>(area, "capacity"), {}, {}};
        if (area.contains("offset")) {
            exchange.area->offset = readCount<uint32_t>(area, "offset");
            exchange.area->room = readCount<uint32_t>(area, "room");
        }
    }
    if (!memberOf(json, "response").is_null()) {
        exchange.response = readMessage(json.at("response"), exchange.hidden_response);
    }
    exchange.unredacted = readFlag(json, "unredacted");
    exchange.code = readCount<int32_t>(json, "code");
    exchange.reason = readText(json, "reason");
    return exchange;
}

// A line has no more than three values in each other; a foreign one may have as many as it has
// bytes, and each would take far more memory than its byte.
Json parsed(const std::string& line) {
    constexpr int kMostDepth = 8;
    if (const size_t zero = line.find('\0'); zero != std::string::npos) {
        throw TraceError("byte " + std::to_string(zero + 1) + " of it is zero");
    }
    return Json::parse(line, [](int depth, Json::parse_event_t /*event*/, const Json& /*value*/) {
        if (depth > kMostDepth) throw TraceError("its values are nested too deeply");
        return true;
    });
}

}  // namespace

Message Exchange::decodedRequest() const {
    return decode(wire, Side::kRequest, number, request, hidden_request);
}

Message Exchange::decodedResponse() const {
    return decode(wire, Side::kResponse, number, response ? ByteView(*response) : ByteView(),
                  hidden_response);
}

std::optional<size_t> placeWord(uint32_t number) {
    const CommandInfo* command = findCommand(Wire::kRecord, number);
    if (command == nullptr) return std::nullopt;
    switch (command->id) {
        case CommandId::kExportKey:
            return 3;
        case CommandId::kUpdate:
        case CommandId::kFinish:
            return 2;
        default:
            return std::nullopt;
    }
}

void redact(Exchange& exchange, std::optional<uint32_t> purpose) {
    exchange.hidden_request = partsToHide(exchange.decodedRequest(), exchange.request, purpose);
    hide(exchange.request, exchange.hidden_request);
    if (!exchange.response) return;
    exchange.hidden_response = partsToHide(exchange.decodedResponse(), *exchange.response, purpose);
    hide(*exchange.response, exchange.hidden_response);
}

std::string toLine(const Exchange& exchange) {
    const CommandInfo* command = findCommand(exchange.wire, exchange.number);
    Json json = {
        {"trace", kTraceVersion},
        {"time", timeText(exchange.time)},
        {"source", exchange.source},
        {"process", exchange.process},
        {"link", exchange.link},
        {"boot", exchange.boot == 0 ? Json() : Json(idText(exchange.boot))},
        {"level", levelWord(exchange.level)},
        {"protocol", exchange.protocol.legacy ? "records" : "cbor"},
        {"versions",
         {{"keymaster", exchange.protocol.keymaster_version},
          {"ta", exchange.protocol.ta_minor_version},
          {"hal", exchange.protocol.hal_minor_version}}},
        {"wire", nameOf(exchange.wire)},
        {"command", command == nullptr ? Json() : Json(command->name)},
        {"number", numberWord(exchange.number)},
        {"unredacted", exchange.unredacted},
        {"request", toJson(exchange.decodedRequest(), exchange.request, exchange.hidden_request)},
    };
    if (exchange.area) {
        json["area"] = {{"capacity", exchange.area->capacity}};
        if (exchange.area->offset) {
            json["area"]["offset"] = *exchange.area->offset;
            json["area"]["room"] = *exchange.area->room;
        }
    }
    json["response"] = nullptr;
    if (exchange.response) {
        json["response"] =
            toJson(exchange.decodedResponse(), *exchange.response, exchange.hidden_response);
    }
    json["durationMicros"] = exchange.duration.count();
    json["code"] = exchange.code;
    json["name"] = errorName(exchange.code);
    json["reason"] = exchange.reason;
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Exchange parseLine(const std::string& line) {
    try {
        return read(parsed(line));
    } catch (const Json::parse_error& error) {
        if (error.byte > line.size()) throw TraceError("this is no JSON, or it is cut off");
        throw TraceError("this is no JSON from byte " + std::to_string(error.byte) + " on");
    } catch (const Json::exception& error) {
        const std::string what = error.what();
        throw TraceError("this is no line of a trace: " + what.substr(what.find(']') + 2));
    }
}

std::string timeText(std::chrono::system_clock::time_point time) {
    using std::chrono::duration_cast;
    const auto micros =
        duration_cast<std::chrono::microseconds>(time.time_since_epoch()).count() % 1000000;
    const time_t seconds = std::chrono::system_clock::to_time_t(time);
    tm parts = {};
    ::gmtime_r(&seconds, &parts);
    char date[40];
    std::strftime(date, sizeof(date), "%Y-%m-%dT%H:%M:%S", &parts);
    char text[64];
    std::snprintf(text, sizeof(text), "%s.%06dZ", date, static_cast<int>(micros));
    return text;
}

}  // namespace lumo::inspect
