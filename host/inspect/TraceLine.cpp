#include "inspect/TraceLine.h"

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <ctime>
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

Bytes readMessage(const Json& json, std::vector<Hidden>& hidden) {
    Bytes bytes = fromHex(json.at("hex").get<std::string>());
    if (json.at("length").get<size_t>() != bytes.size()) {
        throw TraceError("a message has another length than its digits");
    }
    if (!json.contains("redacted")) return bytes;
    for (const Json& part : json.at("redacted")) {
        const Hidden found = {part.at("offset").get<size_t>(), part.at("size").get<size_t>(),
                              part.at("what").get<std::string>()};
        if (found.offset > bytes.size() || found.size > bytes.size() - found.offset) {
            throw TraceError("a redacted part lies outside its message");
        }
        hidden.push_back(found);
    }
    return bytes;
}

uint64_t readNumber(const Json& json, uint64_t most) {
    const std::string text = json.get<std::string>();
    char* end = nullptr;
    const uint64_t value = std::strtoull(text.c_str(), &end, 16);
    if (text.rfind("0x", 0) != 0 || *end != 0 || value > most) {
        throw TraceError("'" + text + "' is no hexadecimal number, or too large");
    }
    return value;
}

std::chrono::system_clock::time_point readTime(const std::string& text) {
    tm parts = {};
    int micros = 0;
    const char* rest = ::strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
    if (rest == nullptr || std::sscanf(rest, ".%6dZ", &micros) != 1) {
        throw TraceError("'" + text + "' is no time of day");
    }
    return std::chrono::system_clock::from_time_t(::timegm(&parts)) +
           std::chrono::microseconds(micros);
}

// One of two words: the second is true.
bool readWord(const Json& json, const char* first, const char* second) {
    const std::string word = json.get<std::string>();
    if (word != first && word != second) throw TraceError("'" + word + "' is unknown");
    return word == second;
}

Exchange read(const Json& json) {
    if (!json.is_object() || !json.contains("trace"))
        throw TraceError("this is no line of a trace");
    if (const int version = json.at("trace").get<int>(); version != kTraceVersion) {
        throw TraceError("the trace has version " + std::to_string(version) +
                         "; this program reads " + std::to_string(kTraceVersion));
    }
    Exchange exchange;
    exchange.time = readTime(json.at("time").get<std::string>());
    exchange.duration = std::chrono::microseconds(json.at("durationMicros").get<uint32_t>());
    exchange.source = json.at("source").get<std::string>();
    exchange.process = json.at("process").get<uint64_t>();
    exchange.link = json.at("link").get<uint64_t>();
    if (!json.at("boot").is_null()) exchange.boot = readNumber(json.at("boot"), UINT64_MAX);
    exchange.level = readWord(json.at("level"), "trusted-environment", "strongbox")
                         ? KM_SECURITY_LEVEL_STRONGBOX
                         : KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT;
    exchange.protocol.legacy = readWord(json.at("protocol"), "cbor", "records");
    const Json& versions = json.at("versions");
    exchange.protocol.keymaster_version = versions.at("keymaster").get<uint32_t>();
    exchange.protocol.ta_minor_version = versions.at("ta").get<uint32_t>();
    exchange.protocol.hal_minor_version = versions.at("hal").get<uint32_t>();
    exchange.wire = readWord(json.at("wire"), "cbor", "record") ? Wire::kRecord : Wire::kCbor;
    exchange.number = static_cast<uint32_t>(readNumber(json.at("number"), UINT32_MAX));
    exchange.request = readMessage(json.at("request"), exchange.hidden_request);
    if (json.contains("area")) {
        const Json& area = json.at("area");
        exchange.area = AnswerArea{area.at("capacity").get<size_t>(), {}, {}};
        if (area.contains("offset")) {
            exchange.area->offset = area.at("offset").get<uint32_t>();
            exchange.area->room = area.at("room").get<uint32_t>();
        }
    }
    if (!json.at("response").is_null()) {
        exchange.response = readMessage(json.at("response"), exchange.hidden_response);
    }
    exchange.unredacted = json.at("unredacted").get<bool>();
    exchange.code = json.at("code").get<int32_t>();
    exchange.reason = json.at("reason").get<std::string>();
    return exchange;
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
        return read(Json::parse(line));
    } catch (const Json::parse_error&) {
        throw TraceError("this is no JSON, or it is cut off");
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
