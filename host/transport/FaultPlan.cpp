#include "FaultPlan.h"

#include <hardware/keymaster_defs.h>

#include <algorithm>
#include <charconv>
#include <stdexcept>

namespace lumo::transport {
namespace {

using Kind = FaultRule::Kind;

constexpr char kOpen[] = "open";
constexpr char kAny[] = "any";

struct KindRow {
    const char* name;
    Kind kind;
    bool at_open;  // whether bringing up the link can meet it
    // What its number may be; none where both are 0.
    int64_t least;
    int64_t most;
};

constexpr KindRow kKinds[] = {
    {"error", Kind::kError, true, KM_ERROR_UNKNOWN_ERROR, -1},
    {"lost", Kind::kLost, false, 0, 0},
    {"short", Kind::kShort, false, 1, 1 << 24},
    {"long", Kind::kLong, false, 1, 1 << 24},
    {"garbled", Kind::kGarbled, false, 1, 1 << 24},
    {"late", Kind::kLate, true, 1, 600000},
    {"restart", Kind::kRestart, false, 0, 0},
    {"full", Kind::kFull, false, 0, 0},
};

[[noreturn]] void refuse(const std::string& why) {
    throw std::invalid_argument(why);
}

std::optional<int64_t> parseWhole(std::string_view text) {
    int base = 10;
    if (text.substr(0, 2) == "0x") {
        base = 16;
        text.remove_prefix(2);
    }
    int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

const KindRow& parseKind(const std::string& name) {
    std::string known;
    for (const KindRow& row : kKinds) {
        if (name == row.name) return row;
        known += (known.empty() ? "" : ", ") + std::string(row.name);
    }
    refuse("no fault is called '" + name + "'; known are " + known);
}

void requireCommand(const std::string& name) {
    if (name == kOpen || name == kAny || inspect::findCommand(name) != nullptr) return;
    refuse("no command is called '" + name + "'; known are " + kOpen + ", " + kAny + ", " +
           inspect::commandNames() + ", and their numbers, such as 0x210f");
}

uint64_t parseCount(const std::string& text, const std::string& which) {
    const auto count = parseWhole(text);
    if (!count || *count < 1) {
        refuse("'#" + which + "' counts no calls; give #N, #N-, #N-M or #1/N, from 1 on");
    }
    return static_cast<uint64_t>(*count);
}

void setWhich(FaultRule& rule, const std::string& which) {
    const size_t slash = which.find('/');
    const size_t dash = which.find('-');
    if (slash != std::string::npos) {
        // Only one in so many: anything but 1 before the slash is refused as an empty count is.
        const bool one = which.substr(0, slash) == "1";
        rule.one_in = parseCount(one ? which.substr(slash + 1) : "", which);
        return;
    }
    rule.first = parseCount(which.substr(0, dash), which);
    if (dash == std::string::npos) {
        rule.last = rule.first;
    } else if (dash + 1 < which.size()) {
        rule.last = parseCount(which.substr(dash + 1), which);
        if (rule.last < rule.first) parseCount("", which);
    }
}

bool means(const FaultRule& rule, const FaultPoint& point) {
    if (!point.number) return rule.command == kOpen;
    if (rule.command == kAny) return true;
    if (point.command != nullptr && rule.command == point.command->name) return true;
    return parseWhole(rule.command) == static_cast<int64_t>(*point.number);
}

}  // namespace

FaultRule parseFaultRule(const std::string& text) {
    const size_t at = text.find('@');
    if (at == std::string::npos) refuse("a fault is KIND@COMMAND or KIND@COMMAND#WHICH");
    const size_t hash = text.find('#', at);
    const std::string what = text.substr(0, at);
    const size_t colon = what.find(':');

    FaultRule rule;
    rule.text = text;
    const KindRow& kind = parseKind(what.substr(0, colon));
    rule.kind = kind.kind;
    if (colon != std::string::npos) {
        rule.number = parseWhole(what.substr(colon + 1));
        if (kind.most == 0) refuse(std::string(kind.name) + " takes no number");
        if (!rule.number || *rule.number < kind.least || *rule.number > kind.most) {
            refuse(std::string(kind.name) + " takes a number from " + std::to_string(kind.least) +
                   " to " + std::to_string(kind.most) + ", not '" + what.substr(colon + 1) + "'");
        }
    }
    rule.command = text.substr(at + 1, hash == std::string::npos ? hash : hash - at - 1);
    requireCommand(rule.command);
    if (rule.command == kOpen && !kind.at_open) refuse("open meets only error and late");
    if (hash != std::string::npos) setWhich(rule, text.substr(hash + 1));
    return rule;
}

FaultPlan::FaultPlan(std::vector<FaultRule> rules, uint64_t seed)
    : rules_(std::move(rules)), calls_(rules_.size(), 0), chance_(seed) {}

const FaultRule* FaultPlan::next(const FaultPoint& point) {
    const FaultRule* met = nullptr;
    for (size_t i = 0; i < rules_.size(); ++i) {
        const FaultRule& rule = rules_[i];
        if (!means(rule, point)) continue;
        const uint64_t call = ++calls_[i];
        if (call < rule.first || call > rule.last) continue;
        // Drawn even where an earlier rule is met already, so that rules do not shift each other.
        const bool drawn = rule.one_in == 1 || random(rule.one_in) == 0;
        if (drawn && met == nullptr) met = &rule;
    }
    return met;
}

}  // namespace lumo::transport
