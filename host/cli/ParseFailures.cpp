#include "ParseFailures.h"

#include <algorithm>

namespace lumo::cli {

namespace {

// The innermost one that the line names.
const CLI::App& chosenIn(const CLI::App& app) {
    const auto chosen = app.get_subcommands();
    return chosen.empty() ? app : chosenIn(*chosen.front());
}

// "lumokm mint auth-token"
std::string pathOf(const CLI::App& app) {
    const CLI::App* parent = app.get_parent();
    return (parent == nullptr ? "" : pathOf(*parent) + " ") + app.get_name();
}

bool isFlag(const CLI::App& app, const std::string& name) {
    const CLI::Option* option = app.get_option_no_throw(name);
    if (option != nullptr) return option->get_items_expected_max() == 0;
    return app.get_parent() != nullptr && isFlag(*app.get_parent(), name);
}

std::string namesOf(const std::vector<const CLI::App*>& commands) {
    std::string names;
    for (const CLI::App* command : commands) {
        names += (names.empty() ? "" : ", ") + command->get_name();
    }
    return names;
}

// A word that nothing on the line takes.
std::string explainExtra(const CLI::App& app, const std::string& word) {
    if (word.rfind('-', 0) == 0) return "there is no option '" + word + "'";
    if (commandIn(app).empty()) return "there is no command '" + word + "'";
    const auto kinds = chosenIn(app).get_subcommands({});
    if (kinds.empty()) return "there is no place for '" + word + "'";
    return "there is no kind '" + word + "'; there are " + namesOf(kinds);
}

// CLI11's sentence where it begins and goes on as given, with what stands between and behind.
struct Parts {
    bool found = false;
    std::string first;
    std::string second;
};

Parts take(const std::string& sentence, const std::string& begin, const std::string& middle) {
    const size_t at = sentence.find(middle, begin.size());
    if (sentence.rfind(begin, 0) != 0 || at == std::string::npos) return {};
    return {true, sentence.substr(begin.size(), at - begin.size()),
            sentence.substr(at + middle.size())};
}

std::string inOurWords(const std::string& sentence, const CLI::App& chosen) {
    if (const Parts parts = take(sentence, "Could not convert: ", " = "); parts.found) {
        if (isFlag(chosen, parts.first)) return parts.first + " takes no value";
        return parts.first + ": '" + parts.second + "' is not a number";
    }
    if (const Parts parts = take(sentence, "", ": Value "); parts.found) {
        const Parts range = take(parts.second, "", " not in range ");
        if (range.found) {
            return parts.first + ": '" + range.first + "' is not a number from " + range.second;
        }
    }
    if (const Parts parts = take(sentence, "", " not in {"); parts.found) {
        const size_t colon = std::min(parts.first.find(": "), parts.first.size());
        std::string words = parts.second.substr(0, parts.second.find('}'));
        std::replace(words.begin(), words.end(), ',', '|');
        return parts.first.substr(0, colon) + ": '" +
               parts.first.substr(std::min(colon + 2, parts.first.size())) + "' is none of " +
               words;
    }
    if (const Parts parts = take(sentence, "", ": 1 required "); parts.found) {
        return parts.first + ": its value is missing";
    }
    if (const Parts parts = take(sentence, "", ": At Most 1 required"); parts.found) {
        return parts.first + " was given more than once";
    }
    if (const Parts parts = take(sentence, "", " was given a disallowed flag"); parts.found) {
        return parts.first + " takes no value";
    }
    return sentence;
}

}  // namespace

std::string commandIn(const CLI::App& app) {
    const auto commands = app.get_subcommands();
    return commands.empty() ? "" : commands.front()->get_name();
}

std::string explain(const CLI::App& app, const CLI::ParseError& error) {
    const CLI::App& chosen = chosenIn(app);
    const std::string help = "; see " + pathOf(chosen) + " --help";
    // A mistyped option comes first, as the option that is missing may be the one that it means.
    const std::vector<std::string> extras = app.remaining(true);
    if (!extras.empty()) return explainExtra(app, extras.front()) + help;
    if (chosen.get_parent() == nullptr &&
        error.get_exit_code() == static_cast<int>(CLI::ExitCodes::RequiredError)) {
        return "a command is required, such as info, generate or sign" + help;
    }
    return inOurWords(error.what(), chosen) + help;
}

}  // namespace lumo::cli
