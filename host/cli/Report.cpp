#include "Report.h"

#include <iomanip>
#include <iostream>
#include <sstream>

#include "Bytes.h"
#include "Dates.h"
#include "Files.h"

template class nlohmann::basic_json<nlohmann::ordered_map>;

namespace lumo::cli {

namespace {

Report valueOf(const KeyParameter& parameter) {
    const Tag tag = tagOf(parameter);
    switch (typeOf(tag)) {
        case TagType::ENUM:
        case TagType::ENUM_REP:
            return nameOfValue(tag, parameter.f.integer);
        case TagType::UINT:
        case TagType::UINT_REP:
            return parameter.f.integer;
        case TagType::ULONG:
            return parameter.f.longInteger;
        // 64-bit ids: as numbers they would lose digits in readers that hold numbers as doubles.
        case TagType::ULONG_REP:
            return idText(parameter.f.longInteger);
        case TagType::DATE:
            return dateText(parameter.f.dateTime);
        case TagType::BOOL:
            return true;
        default:
            return toHex(parameter.blob);
    }
}

// File names may be any bytes, which JSON cannot have; U+FFFD stands for what is no UTF-8.
std::string jsonOf(const Report& report, int indent) {
    return report.dump(indent, ' ', false, Report::error_handler_t::replace);
}

std::string valueText(const Report& value) {
    if (value.is_string()) return value.get<std::string>();
    if (!value.is_array()) return jsonOf(value, -1);
    std::string text;
    for (const Report& element : value) {
        text += (text.empty() ? "" : ", ") + valueText(element);
    }
    return text;
}

void appendLines(const Report& report, const std::string& indent, std::string& text) {
    for (const auto& [name, value] : report.items()) {
        if (value.is_object()) {
            text += indent + name + ":\n";
            appendLines(value, indent + "  ", text);
        } else {
            text += indent + name + ": " + valueText(value) + "\n";
        }
    }
}

bool quiet = false;

}  // namespace

Report describe(const std::vector<KeyParameter>& parameters) {
    Report report = Report::object();
    for (const KeyParameter& parameter : parameters) {
        const Tag tag = tagOf(parameter);
        Report& member = report[nameOfTag(tag)];
        if (isRepeatable(tag)) {
            member.push_back(valueOf(parameter));
        } else {
            member = valueOf(parameter);
        }
    }
    return report;
}

Report describe(const km::V4_0::KeyCharacteristics& characteristics) {
    return {{"hardwareEnforced", describe(characteristics.hardwareEnforced)},
            {"softwareEnforced", describe(characteristics.softwareEnforced)}};
}

std::string idText(uint64_t id) {
    std::ostringstream text;
    text << "0x" << std::hex << std::setfill('0') << std::setw(16) << id;
    return text.str();
}

std::string toText(const Report& report) {
    std::string text;
    appendLines(report, "", text);
    return text;
}

void print(const Report& report, bool as_json) {
    const std::string text = as_json ? jsonOf(report, 2) + "\n" : toText(report);
    writeFile("-", Bytes(text.begin(), text.end()));
}

void say(const std::string& words) {
    std::cerr << words << '\n';
}

void remark(const std::string& words) {
    if (!quiet) say(words);
}

void beQuiet() {
    quiet = true;
}

bool isQuiet() {
    return quiet;
}

}  // namespace lumo::cli
