// Results for people and for programs: the same names and values as lines or as JSON.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "Vocabulary.h"

// Compiled once, in Report.cpp: in every file of the commands it would cost seconds of each build.
extern template class nlohmann::basic_json<nlohmann::ordered_map>;

namespace lumo::cli {

// Keeps the order in which members were added.
using Report = nlohmann::ordered_json;

// One member for each tag, by its published name; repeatable tags are arrays. Enumerations and
// dates are text, bytes hexadecimal, 64-bit ids as idText() has them, numbers numbers.
Report describe(const std::vector<KeyParameter>& parameters);

// A 64-bit id: "0x" and 16 hexadecimal digits.
std::string idText(uint64_t id);

// {"hardwareEnforced": ..., "softwareEnforced": ...}
Report describe(const km::V4_0::KeyCharacteristics& characteristics);

// "name: value" lines; an object is a name with its members indented below, an array a
// comma-separated list.
std::string toText(const Report& report);

// Writes the report to standard output, as lines or as JSON.
void print(const Report& report, bool as_json);

// One line on standard error.
void say(const std::string& words);

// The same for what is no failure; nothing after beQuiet().
void remark(const std::string& words);
void beQuiet();
bool isQuiet();

}  // namespace lumo::cli
