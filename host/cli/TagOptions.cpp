#include "TagOptions.h"

#include <algorithm>
#include <iterator>

#include "Dates.h"
#include "Failure.h"
#include "Files.h"

namespace lumo::cli {

namespace {

Failure badValue(const TagOption& row, const std::string& text, const std::string& expected) {
    return Failure(Exit::usage, std::string(row.option) + ": '" + text + "' is not " + expected);
}

std::string expectedWords(Tag tag) {
    return "one of " + wordsFor(tag);
}

KeyParameter parseWord(const TagOption& row, const std::string& text) {
    const auto value = valueOfWord(row.tag, text);
    if (!value) throw badValue(row, text, expectedWords(row.tag));
    return makeEnum(row.tag, *value);
}

KeyParameter parseUint(const TagOption& row, const std::string& text) {
    const auto value = parseNumber(text, UINT32_MAX);
    if (!value) throw badValue(row, text, "a number of at most 32 bits");
    return makeEnum(row.tag, static_cast<uint32_t>(*value));
}

KeyParameter parseUlong(const TagOption& row, const std::string& text) {
    const auto value = parseNumber(text, UINT64_MAX);
    if (!value) throw badValue(row, text, "a number of at most 64 bits");
    return makeLong(row.tag, *value);
}

KeyParameter parseDateValue(const TagOption& row, const std::string& text) {
    const auto value = parseDate(text);
    if (!value) throw badValue(row, text, "a date such as 2030-01-31 or 2030-01-31T12:00:00Z");
    return makeLong(row.tag, *value);
}

// A nonce is always binary; text would only hide a forgotten prefix.
KeyParameter parseBytesValue(const TagOption& row, const std::string& text) {
    if (row.tag != Tag::NONCE) return makeBytes(row.tag, parseBytes(row.option, text));
    const auto bytes = fromHex(text);
    if (!bytes) throw badValue(row, text, "an even number of hexadecimal digits");
    return makeBytes(row.tag, *bytes);
}

KeyParameter parseValue(const TagOption& row, const std::string& text) {
    switch (typeOf(row.tag)) {
        case TagType::ENUM:
        case TagType::ENUM_REP:
            return parseWord(row, text);
        case TagType::UINT:
        case TagType::UINT_REP:
            return parseUint(row, text);
        case TagType::ULONG:
        case TagType::ULONG_REP:
            return parseUlong(row, text);
        case TagType::DATE:
            return parseDateValue(row, text);
        default:
            return parseBytesValue(row, text);
    }
}

// What follows --tag: the tag, and its value as text, empty where none was given.
struct AnyTag {
    Tag tag;
    std::string value;
};

AnyTag splitTag(const std::string& text) {
    const size_t equals = std::min(text.find('='), text.size());
    const std::string name = text.substr(0, equals);
    const auto tag = tagNamed(name);
    if (!tag) {
        throw Failure(Exit::usage, "--tag: '" + name +
                                       "' is no tag; give a published name such as USER_ID, or "
                                       "0x and its number with the type in the top four bits");
    }
    return {*tag, text.substr(std::min(equals + 1, text.size()))};
}

KeyParameter parseAnyBool(const TagOption& row, const std::string& text) {
    KeyParameter parameter = makeBool(row.tag);
    if (text == "false") parameter.f.boolValue = false;
    if (!text.empty() && text != "true" && text != "false") {
        throw badValue(row, text, "true or false");
    }
    return parameter;
}

std::string placeholder(Tag tag) {
    switch (typeOf(tag)) {
        case TagType::ENUM:
        case TagType::ENUM_REP:
            return wordsFor(tag);
        case TagType::DATE:
            return "DATE";
        case TagType::BIGNUM:
        case TagType::BYTES:
            return tag == Tag::NONCE ? "HEX" : "BYTES";
        default:
            return "N";
    }
}

void requireValue(const std::string& option, Tag tag, const std::string& value) {
    if (!value.empty()) return;
    const std::string form = placeholder(tag);
    throw Failure(Exit::usage, option + ": its value is missing; give " + option + "=" +
                                   (form.empty() ? "N" : form));
}

// Values of enumerations may be numbers too, so that those without a word can be tried.
KeyParameter parseAny(const std::string& text) {
    const auto [tag, value] = splitTag(text);
    const std::string option = "--tag " + text.substr(0, text.find('='));
    const TagOption row = {option.c_str(), tag, ""};
    switch (typeOf(tag)) {
        case TagType::BOOL:
            return parseAnyBool(row, value);
        case TagType::BIGNUM:
        case TagType::BYTES:
            return makeBytes(tag, parseBytes(option, value));
        case TagType::ENUM:
        case TagType::ENUM_REP:
            requireValue(option, tag, value);
            if (const auto number = parseNumber(value, UINT32_MAX)) {
                return makeEnum(tag, static_cast<uint32_t>(*number));
            }
            if (wordsFor(tag).empty()) throw badValue(row, value, "a number of at most 32 bits");
            return parseWord(row, value);
        case TagType::UINT:
        case TagType::UINT_REP:
        case TagType::ULONG:
        case TagType::ULONG_REP:
        case TagType::DATE:
            requireValue(option, tag, value);
            return parseValue(row, value);
        default:
            throw Failure(Exit::usage,
                          option + ": the top four bits of the tag's number name no type of value");
    }
}

}  // namespace

KeyParameter makeBool(Tag tag) {
    KeyParameter parameter{};
    parameter.tag = static_cast<km::V4_0::Tag>(tag);
    parameter.f.boolValue = true;
    return parameter;
}

KeyParameter makeBytes(Tag tag, const Bytes& bytes) {
    KeyParameter parameter{};
    parameter.tag = static_cast<km::V4_0::Tag>(tag);
    parameter.blob = bytes;
    return parameter;
}

KeyParameter makeEnum(Tag tag, uint32_t value) {
    KeyParameter parameter{};
    parameter.tag = static_cast<km::V4_0::Tag>(tag);
    parameter.f.integer = value;
    return parameter;
}

KeyParameter makeLong(Tag tag, uint64_t value) {
    KeyParameter parameter{};
    parameter.tag = static_cast<km::V4_0::Tag>(tag);
    parameter.f.longInteger = value;
    return parameter;
}

Bytes parseBytes(const std::string& option, const std::string& text) {
    constexpr char kHex[] = "hex:";
    constexpr char kFile[] = "file:";
    if (text.rfind(kFile, 0) == 0) return readSmallFile(text.substr(sizeof(kFile) - 1));
    if (text.rfind(kHex, 0) != 0) return Bytes(text.begin(), text.end());
    const auto bytes = fromHex(text.substr(sizeof(kHex) - 1));
    if (bytes) return *bytes;
    throw Failure(Exit::usage, option + ": '" + text +
                                   "' does not go on with an even number of hexadecimal digits");
}

void TagOptions::declareOne(CLI::App& app, const TagOption& row, const std::string& group) {
    Given& given = *given_.emplace_back(std::make_unique<Given>());
    given.row = &row;
    if (typeOf(row.tag) == TagType::BOOL) {
        app.add_flag(row.option, given.flag, row.help)->group(group);
        return;
    }
    CLI::Option* option = app.add_option(row.option, given.values, row.help);
    option->group(group)->type_name(placeholder(row.tag))->type_size(1)->allow_extra_args(false);
    if (isRepeatable(row.tag)) {
        option->delimiter(',');
    } else {
        option->expected(1);
    }
}

void TagOptions::declareAny(CLI::App& app) {
    any_ = std::make_unique<std::vector<std::string>>();
    app.add_option("--tag", *any_, "any parameter, by the tag's name or number; once for each")
        ->type_name("NAME|0xNUMBER[=VALUE]")
        ->type_size(1)
        ->allow_extra_args(false);
}

bool TagOptions::has(Tag tag) const {
    const auto is_tag = [tag](const std::string& text) { return splitTag(text).tag == tag; };
    if (any_ && std::any_of(any_->begin(), any_->end(), is_tag)) return true;
    for (const auto& given : given_) {
        if (given->row->tag == tag) return given->flag || !given->values.empty();
    }
    return false;
}

std::vector<KeyParameter> TagOptions::parameters() const {
    std::vector<KeyParameter> parameters;
    for (const auto& given : given_) {
        if (given->flag) parameters.push_back(makeBool(given->row->tag));
        for (const std::string& text : given->values) {
            parameters.push_back(parseValue(*given->row, text));
        }
    }
    if (any_) std::transform(any_->begin(), any_->end(), std::back_inserter(parameters), parseAny);
    return parameters;
}

Bytes TagOptions::bytesOf(Tag tag) const {
    for (const auto& given : given_) {
        if (given->row->tag != tag || given->values.empty()) continue;
        return parseBytes(given->row->option, given->values.front());
    }
    return {};
}

}  // namespace lumo::cli
