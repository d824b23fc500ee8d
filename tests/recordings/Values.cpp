#include "Values.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace lumo::test {
namespace {

// The upper four bits of a tag, by which its value is carried.
enum TagType : uint32_t { kLong = 5, kDate, kBool, kBignum, kBytes, kLongRepeated };

bool startsWith(const std::string& text, const std::string& start) {
    return text.compare(0, start.size(), start) == 0;
}

// The arguments of NAME(...).
std::vector<std::string> inside(const std::string& term) {
    const size_t open = term.find('(');
    return split(term.substr(open + 1, term.size() - open - 2), ',');
}

// A signed number, as 32 bits for a word.
uint32_t parseWord(const std::string& text) {
    return static_cast<uint32_t>(std::stoll(text, nullptr, 0));
}

void putLittle(Bytes* bytes, size_t at, size_t width, uint64_t value) {
    for (size_t i = 0; i < width; ++i, value >>= 8) {
        if (at + i < bytes->size()) (*bytes)[at + i] = static_cast<uint8_t>(value);
    }
}

Bytes keyBlob(const std::vector<std::string>& parts) {
    Bytes blob(parseSize(parts.at(0)));
    const std::vector<std::string> version = split(parts.at(1), '.');
    putLittle(&blob, 0, 4, 0x4B4D4B44);
    putLittle(&blob, 8, 4, parseNumber(version.at(1)));
    putLittle(&blob, 12, 4, parseNumber(version.at(0)));
    for (size_t i = 2; i < parts.size(); ++i) {
        const std::string& field = parts[i];
        const size_t colon = field.find(':'), equals = field.find('=');
        if (equals == std::string::npos) throw std::invalid_argument("no field: " + field);
        putLittle(&blob, std::stoul(field), std::stoul(field.substr(colon + 1)),
                  parseNumber(field.substr(equals + 1)));
    }
    return blob;
}

Bytes parseTerm(const std::string& term) {
    if (term == "-") return {};
    if (startsWith(term, "kb(")) return keyBlob(inside(term));
    if (startsWith(term, "w(")) {
        std::vector<uint32_t> values;
        for (const std::string& word : inside(term)) values.push_back(parseWord(word));
        return words(values);
    }
    const size_t star = term.find('*');
    if (star != std::string::npos) {
        return Bytes(parseSize(term.substr(star + 1)), fromHex(term.substr(0, star)).at(0));
    }
    if (term.size() % 2 != 0 || term.find_first_not_of("0123456789abcdef") != std::string::npos) {
        throw std::invalid_argument("no bytes: " + term);
    }
    return fromHex(term);
}

// Takes "/LENGTH" off the end; `length` stays where there is none.
std::string withoutLength(const std::string& text, size_t* length) {
    const std::vector<std::string> parts = split(text, '/');
    if (parts.size() > 1) *length = parseSize(parts[1]);
    return parts[0];
}

keymaster_key_param_t parseParam(const std::string& text, std::deque<BlobValue>* blobs) {
    const size_t equals = text.find('=');
    if (equals != 8) throw std::invalid_argument("no parameter: " + text);
    const std::string value = text.substr(equals + 1);
    keymaster_key_param_t param = {};
    param.tag = static_cast<keymaster_tag_t>(std::stoul(text, nullptr, 16));
    switch (static_cast<uint32_t>(param.tag) >> 28) {
        case kBignum:
        case kBytes:
            param.blob = blobs->emplace_back(value).blob;
            break;
        case kBool:
            param.boolean = parseNumber(value) != 0;
            break;
        default:
            param.long_integer = parseNumber(value);
    }
    return param;
}

}  // namespace

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts(1);
    int depth = 0;
    for (const char c : text) {
        depth += (c == '(' || c == '[') - (c == ')' || c == ']');
        if (c == separator && depth == 0) {
            parts.emplace_back();
        } else {
            parts.back() += c;
        }
    }
    return parts;
}

uint64_t parseNumber(const std::string& text) {
    uint64_t value = 0;
    bool first = true;
    for (const std::string& part : split(text, '-')) {
        const uint64_t operand = std::stoull(part, nullptr, 0);
        value = first ? operand : value - operand;
        first = false;
    }
    return value;
}

size_t parseSize(const std::string& text) {
    const uint64_t number = parseNumber(text);
    if (number > SIZE_MAX) throw std::out_of_range("no size on this host: " + text);
    return static_cast<size_t>(number);
}

Bytes parseBytes(const std::string& text) {
    Bytes bytes;
    for (const std::string& term : split(text, '+')) bytes = std::move(bytes) + parseTerm(term);
    return bytes;
}

std::string hexNumber(uint64_t value) {
    char text[32];
    std::snprintf(text, sizeof(text), "%llx", static_cast<unsigned long long>(value));
    return text;
}

BlobValue::BlobValue(const std::string& text) : blob(), key() {
    const std::string content = withoutLength(text, &blob.data_length);
    bytes = parseBytes(content);
    // Exactly the bytes, so that a sanitizer sees what is read beyond them.
    bytes.shrink_to_fit();
    if (content == text) blob.data_length = bytes.size();
    static const uint8_t kNowhere = 0;
    if (content != "-") blob.data = bytes.empty() ? &kNowhere : bytes.data();
    key = {blob.data, blob.data_length};
}

ParamsValue::ParamsValue(const std::string& text) : set() {
    const std::string content = withoutLength(text, &set.length);
    if (content != "-") {
        for (const std::string& param : split(content.substr(1, content.size() - 2), ',')) {
            if (!param.empty()) params.push_back(parseParam(param, &blobs));
        }
        params.reserve(1);  // not null, even if empty
        set.params = params.data();
    }
    if (content == text) set.length = params.size();
}

std::string showBytes(const Bytes& bytes, size_t group) {
    std::string text;
    const auto space = [&] { text += text.empty() || text.back() == ' ' ? "" : " "; };
    for (size_t i = 0; i < bytes.size();) {
        const bool begins_group = group != 0 && i % group == 0;
        size_t run = 1;
        while (i + run < bytes.size() && bytes[i + run] == bytes[i]) ++run;
        if (begins_group) run -= run % group;
        if (run >= 12 && (group == 0 || begins_group)) {
            space();
            text += toHex({bytes[i]}) + "*" + std::to_string(run) + " ";
            i += run;
            continue;
        }
        if (begins_group) space();
        text += toHex({bytes[i++]});
    }
    if (!text.empty() && text.back() == ' ') text.pop_back();
    return text.empty() ? "-" : text;
}

std::string show(const uint8_t* data, size_t length) {
    if (data == nullptr) return "null/" + std::to_string(length);
    return showBytes(Bytes(data, data + length));
}

std::string show(const keymaster_key_param_set_t& set) {
    if (set.params == nullptr) return "null/" + std::to_string(set.length);
    std::string text = "[";
    for (size_t i = 0; i < set.length; ++i) {
        const keymaster_key_param_t& param = set.params[i];
        const auto tag = static_cast<uint32_t>(param.tag);
        text += (i == 0 ? "" : ",") + hexNumber(tag) + "=";
        uint8_t boolean = 0;  // may be any byte, which a bool may not
        std::memcpy(&boolean, &param.boolean, 1);
        switch (tag >> 28) {
            case kLong:
            case kDate:
            case kLongRepeated:
                text += hexNumber(param.long_integer);
                break;
            case kBool:
                text += hexNumber(boolean);
                break;
            case kBignum:
            case kBytes:
                text += show(param.blob.data, param.blob.data_length);
                break;
            default:
                text += hexNumber(param.integer);
        }
    }
    return text + "]";
}

}  // namespace lumo::test
