#include "Recording.h"

#include <openssl/crypto.h>

#include <map>
#include <sstream>
#include <stdexcept>

#include "Doubles.h"
#include "LogCapture.h"
#include "Methods.h"

namespace lumo::test {
namespace {

using keymasterdevice::KeymasterHalDevice;

#ifdef OPENSSL_IS_BORINGSSL
constexpr char kLibrary[] = "boringssl";
#else
constexpr char kLibrary[] = "openssl";
#endif
constexpr const char* kSizes = sizeof(size_t) == sizeof(uint64_t) ? "wide" : "narrow";

struct Variant {
    bool legacy;
    unsigned level;
    std::string name() const { return (legacy ? "records " : "cbor ") + std::to_string(level); }
};

struct Row {
    size_t number = 0;  // of its first line
    Lines lines;        // all but what was recorded
    std::vector<Variant> variants;
};

// What one call did.
struct Outcome {
    int code = 0;
    size_t sent = 0;
    std::string calls, result;
    Lines log;
    std::map<std::string, Args::Kind> pointers;

    Lines lines() const {
        Lines all;
        if (!calls.empty()) all.push_back(calls);
        all.push_back(result);
        all.insert(all.end(), log.begin(), log.end());
        return all;
    }
    // In one line.
    std::string brief() const {
        std::string text;
        for (const std::string& line : lines()) text += (text.empty() ? "" : " ") + line;
        return text;
    }
};

const char* nameOf(int result) {
    static const std::map<int, const char*> names = {
        {0, " OK"},
        {-4, " UNSUPPORTED_ALGORITHM"},
        {-21, " INVALID_INPUT_LENGTH"},
        {-22, " KEY_EXPORT_OPTIONS_INVALID"},
        {-27, " OUTPUT_PARAMETER_NULL"},
        {-29, " INSUFFICIENT_BUFFER_SPACE"},
        {-30, " VERIFICATION_FAILED"},
        {-32, " UNEXPECTED_NULL_POINTER"},
        {-33, " INVALID_KEY_BLOB"},
        {-38, " INVALID_ARGUMENT"},
        {-40, " INVALID_TAG"},
        {-41, " MEMORY_ALLOCATION_FAILED"},
        {-48, " SECURE_HW_BUSY"},
        {-100, " UNIMPLEMENTED"},
        {-1000, " UNKNOWN_ERROR"},
    };
    const auto found = names.find(result);
    return found == names.end() ? "" : found->second;
}

// The calls on the transport, with identifiers and what was sent. Of the place for a response those
// bytes are shown that differ from the filling of the shared buffer, up to the twentieth.
std::string showCalls(const std::vector<TransportCall>& calls) {
    std::string text;
    for (const TransportCall& call : calls) {
        text += (text.empty() ? "" : " ") + call.name;
        if (call.name == "init") text += "(" + hexNumber(call.command_id) + ")";
        if (call.name == "sendCmd") text += "(" + showBytes(call.request) + ")";
        if (call.name != "send_cmd") continue;
        Bytes place(call.response_before);
        place.resize(std::min<size_t>(place.size(), 20));
        while (!place.empty() && place.back() == 0xEE) place.pop_back();
        text +=
            "(" + showBytes(call.request, 4) + " | " + std::to_string(call.response_before.size());
        text += (place.empty() ? "" : ": " + showBytes(place, 4)) + ")";
    }
    return text;
}

Lines words(const std::string& line) {
    Lines all;
    std::istringstream stream(line);
    for (std::string word; stream >> word;) all.push_back(word);
    return all;
}

std::string replaceAll(std::string text, const std::string& name, const std::string& value) {
    for (size_t at = 0; (at = text.find(name, at)) != std::string::npos; at += value.size()) {
        text.replace(at, name.size(), value);
    }
    return text;
}

int toInt(const std::string& text) {
    return std::stoi(text);
}

// Runs a row once for a variant, with a number for $n and with changed arguments of the last call.
class Run {
  public:
    Run(const Variant& variant, std::string number, std::map<std::string, std::string> changes = {})
        : number_(std::move(number)), changes_(std::move(changes)) {
        script_.reset();
        scriptSystem();
        script_.legacy = variant.legacy;
        device_ = std::make_unique<KeymasterHalDevice>(
            static_cast<keymaster_security_level_t>(variant.level));
    }

    std::vector<Outcome> run(const Row& row) {
        size_t last_call = 0;
        for (size_t i = 0; i < row.lines.size(); ++i) {
            if (words(row.lines[i]).at(0) == "call") last_call = i;
        }
        for (size_t i = 0; i < row.lines.size(); ++i) line(row.lines[i], i == last_call);
        return std::move(outcomes_);
    }

  private:
    void line(const std::string& raw, bool last_call) {
        const Lines word = words(replaceAll(raw, "$n", number_));
        const std::string& what = word[0];
        if (what == "call") {
            call(word, last_call);
        } else if (what == "reply") {
            script_.replies.push_back({0, reply(word, 1)});
        } else if (what == "fails") {
            script_.replies.push_back({toInt(word.at(1)), reply(word, 2)});
        } else if (what == "link") {
            script_.hsm_result = static_cast<keymaster_error_t>(toInt(word.at(1)));
        } else if (what == "no_buffer") {
            script_.shared_buffers = word.size() > 1 ? parseSize(word[1]) : 0;
        } else if (what == "capacity") {
            script_.cbor_capacity = parseSize(word.at(1));
        } else if (what == "versions") {
            script_.keymaster_version = static_cast<uint32_t>(parseNumber(word.at(1)));
            script_.ta_minor_version = static_cast<uint32_t>(parseNumber(word.at(2)));
            script_.hal_minor_version = static_cast<uint32_t>(parseNumber(word.at(3)));
        } else if (what == "gmtime") {
            systemScript().failing_gmtime = toInt(word.at(1));
        } else if (what == "driver") {
            systemScript().open_errno = toInt(word.at(1));
            systemScript().ioctl_errno = toInt(word.at(2));
        } else if (what != "sweep" && what != "vary" && what != "only" && what[0] != '#') {
            throw std::invalid_argument("no such line");
        }
    }

    static Bytes reply(const Lines& word, size_t at) {
        Bytes bytes = parseBytes(word.at(at));
        if (word.size() > at + 2 && word[at + 1] == "cut") bytes.resize(parseSize(word[at + 2]));
        return bytes;
    }

    void call(const Lines& word, bool last) {
        std::map<std::string, std::string> texts;
        for (size_t i = 2; i < word.size(); ++i) {
            const size_t equals = word[i].find('=');
            if (equals == std::string::npos) throw std::invalid_argument("no name: " + word[i]);
            texts[word[i].substr(0, equals)] = word[i].substr(equals + 1);
        }
        if (last) {
            for (const auto& [name, text] : changes_)
                texts[name] = replaceAll(text, "@", texts[name]);
        }
        script_.calls.clear();
        systemScript().driver_calls.clear();
        Args args(texts);
        Outputs outputs;
        const auto before = outputs.texts();
        LogCapture log;
        const int result = callMethod(word.at(1), *device_, args, outputs);
        const auto after = outputs.texts();

        Outcome& outcome = outcomes_.emplace_back();
        outcome.calls = showCalls(script_.calls) + systemScript().driver_calls;
        outcome.result = "= " + std::to_string(result) + nameOf(result);
        for (size_t i = 0; i < after.size(); ++i) {
            if (after[i] == before[i]) continue;
            outcome.result += "; " + after[i].first + " " + after[i].second;
        }
        for (const LogLine& entry : log.lines()) {
            outcome.log.push_back("log " + std::to_string(entry.priority) + " " + entry.tag + ": " +
                                  entry.text);
        }
        outcome.sent = script_.sentCount();
        outcome.code = result;
        outcome.pointers = args.kinds;
    }

    ScriptedTransport& script_ = ScriptedTransport::instance();
    std::string number_;
    std::map<std::string, std::string> changes_;
    std::unique_ptr<KeymasterHalDevice> device_;
    std::vector<Outcome> outcomes_;
};

// The same text for several keys is written once, with the keys in front.
class Groups {
  public:
    void add(const std::string& key, const std::string& text) {
        for (auto& [keys, known] : groups_) {
            if (known != text) continue;
            keys += ", " + key;
            return;
        }
        groups_.emplace_back(key, text);
    }
    const std::vector<std::pair<std::string, std::string>>& all() const { return groups_; }

  private:
    std::vector<std::pair<std::string, std::string>> groups_;
};

// Outcomes of the numbers, runs of equal ones in one line.
Lines sweep(const Row& row, const Variant& variant, const std::string& range) {
    const size_t dots = range.find("..");
    const uint64_t first = parseNumber(range.substr(0, dots));
    const uint64_t last = parseNumber(range.substr(dots + 2));
    Lines lines;
    std::string previous;
    uint64_t from = first;
    const auto flush = [&](uint64_t to) {
        const std::string span =
            std::to_string(from) + (to == from ? "" : "-" + std::to_string(to));
        lines.push_back(span + ": " + previous);
    };
    for (uint64_t n = first; n <= last; ++n) {
        const Outcome outcome = Run(variant, std::to_string(n)).run(row).back();
        Outcome shown = outcome;
        shown.calls.clear();  // requests differ by length alone
        const std::string text = "sent " + std::to_string(outcome.sent) + " " + shown.brief();
        if (n != first && text != previous) {
            flush(n - 1);
            from = n;
        }
        previous = text;
    }
    flush(last);
    return lines;
}

// What a pointer may be instead: name, and text with @ for what it is in the row.
using Change = std::pair<std::string, std::string>;

std::vector<Change> changesOf(const std::string& name, Args::Kind kind) {
    if (kind == Args::Kind::kOutput) return {{name, "null"}};
    if (kind == Args::Kind::kParams) return {{name, "null"}, {name, "-/3"}, {name, "@/0"}};
    return {{name, "null"}, {name, "-/5"}, {name, "@/0"}};
}

std::string showChange(const Change& change) {
    return change.first + "=" + (change.second == "@/0" ? "empty" : change.second);
}

std::string entry(const std::string& keys, const std::string& text) {
    return keys + ": " + text;
}

Lines vary(const Row& row, const Variant& variant) {
    const Outcome base = Run(variant, "").run(row).back();
    std::vector<Change> changes;
    for (const auto& [name, kind] : base.pointers) {
        for (const Change& change : changesOf(name, kind)) changes.push_back(change);
    }
    Groups alone, in_pairs;
    std::vector<Outcome> outcomes;
    for (const Change& change : changes) {
        outcomes.push_back(Run(variant, "", {change}).run(row).back());
        alone.add(showChange(change), outcomes.back().brief());
    }
    // Two that fail, each in its own way, tell which of the checks comes first.
    for (size_t i = 0; i < changes.size(); ++i) {
        for (size_t j = i + 1; j < changes.size(); ++j) {
            if (changes[i].first == changes[j].first) continue;
            const Outcome &one = outcomes[i], &other = outcomes[j];
            if (one.code == 0 || other.code == 0 || one.brief() == other.brief()) continue;
            const Outcome both = Run(variant, "", {changes[i], changes[j]}).run(row).back();
            in_pairs.add(showChange(changes[i]) + " & " + showChange(changes[j]), both.brief());
        }
    }
    Lines lines = {"as it is: " + base.brief()};
    for (const auto& [keys, text] : alone.all()) lines.push_back(entry(keys, text));
    for (const auto& [keys, text] : in_pairs.all()) lines.push_back(entry(keys, text));
    return lines;
}

// What was recorded of a row, by the line that it stands behind.
std::map<size_t, Lines> play(const Row& row) {
    std::vector<size_t> call_lines;
    std::string range;
    bool varied = false;
    for (size_t i = 0; i < row.lines.size(); ++i) {
        const Lines word = words(row.lines[i]);
        if (word[0] == "call") call_lines.push_back(i);
        if (word[0] == "sweep") range = word.at(1);
        if (word[0] == "vary") varied = true;
    }
    if (call_lines.empty()) throw std::invalid_argument("a row without a call");

    std::vector<Groups> groups(call_lines.size());
    const auto add = [](Groups& group, const Variant& variant, const Lines& lines) {
        std::string text;
        for (const std::string& line : lines) text += (text.empty() ? "" : "\n") + line;
        group.add(variant.name(), text);
    };
    for (const Variant& variant : row.variants) {
        if (!range.empty()) {
            add(groups.back(), variant, sweep(row, variant, range));
        } else if (varied) {
            add(groups.back(), variant, vary(row, variant));
        } else {
            const std::vector<Outcome> outcomes = Run(variant, "").run(row);
            for (size_t i = 0; i < outcomes.size(); ++i) {
                add(groups[i], variant, outcomes[i].lines());
            }
        }
    }
    std::map<size_t, Lines> recorded;
    for (size_t i = 0; i < groups.size(); ++i) {
        for (const auto& [variants, text] : groups[i].all()) {
            Lines& lines = recorded[call_lines[i]];
            if (groups[i].all().size() > 1) lines.push_back("> " + variants);
            std::istringstream stream(text);
            const char* head = groups[i].all().size() > 1 ? ">   " : "> ";
            for (std::string line; std::getline(stream, line);) lines.push_back(head + line);
        }
    }
    return recorded;
}

class File {
  public:
    Lines read(const Lines& lines) {
        for (number_ = 0; number_ < lines.size(); ++number_) {
            try {
                line(lines[number_]);
            } catch (const std::exception& failure) {
                fail(number_, lines[number_], failure);
            }
        }
        finishRow();
        return std::move(written_);
    }

  private:
    [[noreturn]] static void fail(size_t number, const std::string& line,
                                  const std::exception& failure) {
        throw std::runtime_error("line " + std::to_string(number + 1) + ": " + failure.what() +
                                 "\n    " + line);
    }

    void line(const std::string& raw) {
        if (!raw.empty() && raw[0] == '>') {
            old_.push_back({raw_.size(), raw});
            return;
        }
        const bool comment = !raw.empty() && raw[0] == '#' && !in_row_;
        if (raw.empty() || comment || raw.rfind("let ", 0) == 0 || raw.rfind("on ", 0) == 0) {
            finishRow();
            written_.push_back(raw);
            if (raw.rfind("let ", 0) == 0) define(words(raw));
            if (raw.rfind("on ", 0) == 0) select(words(raw));
            return;
        }
        if (raw.rfind("== ", 0) == 0) {
            finishRow();
            in_row_ = true;
            row_.number = number_;
            row_.variants = variants_;
            written_.push_back(raw);
            return;
        }
        if (!in_row_) throw std::invalid_argument("stands in no row");
        std::string expanded = raw;
        // The longest first, so that one name may begin with another.
        for (auto entry = names_.rbegin(); entry != names_.rend(); ++entry) {
            expanded = replaceAll(expanded, "$" + entry->first, entry->second);
        }
        row_.lines.push_back(expanded);
        raw_.push_back(raw);
    }

    void define(const Lines& word) {
        std::string value = word.at(3);
        for (auto entry = names_.rbegin(); entry != names_.rend(); ++entry) {
            value = replaceAll(value, "$" + entry->first, entry->second);
        }
        names_[word.at(1)] = value;
    }

    void select(const Lines& word) {
        variants_.clear();
        for (size_t i = 1; i + 1 < word.size(); i += 2) {
            for (const std::string& level : split(word[i + 1], ',')) {
                variants_.push_back({word[i] == "records", static_cast<unsigned>(toInt(level))});
            }
        }
    }

    void finishRow() {
        if (!in_row_) return;
        const Row row = std::move(row_);
        const Lines raw = std::move(raw_);
        const auto old = std::move(old_);
        row_ = Row();
        raw_.clear();
        old_.clear();
        in_row_ = false;

        bool kept = false;  // of another host: as it was
        for (const std::string& line : row.lines) {
            const Lines word = words(line);
            kept = kept || (word[0] == "only" && word.at(1) != kLibrary && word.at(1) != kSizes);
        }
        std::map<size_t, Lines> recorded;
        if (kept) {
            for (const auto& [behind, line] : old) recorded[behind - 1].push_back(line);
        } else {
            try {
                recorded = play(row);
            } catch (const std::exception& failure) {
                fail(row.number, "the row that begins here", failure);
            }
        }
        for (size_t i = 0; i < raw.size(); ++i) {
            written_.push_back(raw[i]);
            written_.insert(written_.end(), recorded[i].begin(), recorded[i].end());
        }
    }

    size_t number_ = 0;
    std::map<std::string, std::string> names_;
    std::vector<Variant> variants_;
    bool in_row_ = false;
    Row row_;
    Lines raw_;                                        // its lines as they stand in the file
    std::vector<std::pair<size_t, std::string>> old_;  // recorded lines, behind which line of raw_
    Lines written_;
};

}  // namespace

Lines record(const Lines& lines) {
    return File().read(lines);
}

}  // namespace lumo::test
