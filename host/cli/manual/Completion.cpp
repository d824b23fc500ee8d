#include "Completion.h"

#include <algorithm>

#include "HelpText.h"

namespace lumo::manual {

namespace {

std::string functionName(const CLI::App& app) {
    std::string name = "_" + app.get_name();
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

std::vector<std::string> namesOf(const CLI::Option& option) {
    std::vector<std::string> names;
    for (const std::string& name : option.get_snames()) names.push_back("-" + name);
    for (const std::string& name : option.get_lnames()) names.push_back("--" + name);
    return names;
}

std::string optionNames(const CLI::App& app) {
    std::string names;
    for (const CLI::Option* option : app.get_options()) {
        for (const std::string& name : option->get_lnames()) names += " --" + name;
    }
    return names;
}

// The words that a value is chosen from, separated by spaces; empty for any other value.
std::string wordsFor(const CLI::Option& option) {
    const std::string syntax = cli::syntaxOf(option);
    std::string form = syntax.substr(std::min(syntax.find(' ') + 1, syntax.size()));
    const bool is_list = form.find('|') != std::string::npos && form.find(':') == std::string::npos;
    if (!is_list) return "";
    std::replace(form.begin(), form.end(), '|', ' ');
    return form;
}

// The patterns of a case for each name of an option: "sign:-k|sign:--key".
std::string patternsOf(const CLI::Option& option, const std::string& command) {
    std::string patterns;
    for (const std::string& name : namesOf(option)) {
        patterns.append(patterns.empty() ? "" : "|").append(command).append(":").append(name);
    }
    return patterns;
}

// A case that sets the words that are offered, or adds to them where `assign` is "+=".
void addCase(std::string& cases, const std::string& patterns, const char* assign,
             const std::string& words) {
    cases.append("        ").append(patterns).append(") words").append(assign);
    cases.append("\"").append(words).append("\" ;;\n");
}

bool takesValue(const CLI::Option& option) {
    return !option.get_positional() && option.get_items_expected_max() != 0;
}

// Cases for the values of the options of one command, or of the program itself. A value that is not
// chosen from words is left to the shell.
std::string valueCases(const CLI::App& app, const std::string& command) {
    std::string cases;
    std::string others;
    for (const CLI::Option* option : app.get_options()) {
        if (!takesValue(*option)) continue;
        const std::string patterns = patternsOf(*option, command);
        const std::string words = wordsFor(*option);
        if (words.empty()) {
            others.append(others.empty() ? "" : "|").append(patterns);
        } else {
            addCase(cases, patterns, "=", words);
        }
    }
    if (!others.empty()) cases.append("        ").append(others).append(") return ;;\n");
    return cases;
}

}  // namespace

std::string bashCompletion(const CLI::App& app) {
    std::string commands;
    std::string values = valueCases(app, "*");
    std::string options;
    std::string kinds;  // of the commands that have commands of their own
    for (const CLI::App* command : app.get_subcommands({})) {
        const std::string name = command->get_name();
        commands += (commands.empty() ? "" : " ") + name;
        values += valueCases(*command, name);
        std::string offered = optionNames(*command);
        std::string own;
        for (const CLI::App* kind : command->get_subcommands({})) {
            own += (own.empty() ? "" : " ") + kind->get_name();
            values += valueCases(*kind, name);
            offered += optionNames(*kind);
        }
        if (!own.empty()) addCase(kinds, name, "=", own);
        addCase(options, name, "+=", offered);
    }
    const std::string function = functionName(app);
    return "# Completion of " + app.get_name() + " in bash; made from what its help says.\n" +
           function + "() {\n" +
           "    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}\n"
           "    local command='' commands=\"" +
           commands +
           "\" words='' before='' word\n"
           "    for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
           "        [[ $word != -* && \" $commands \" == *\" $word \"* ]] && command=$word && "
           "break\n"
           "    done\n"
           "    COMPREPLY=()\n"
           "    case $command:$previous in\n" +
           values +
           "    esac\n"
           "    if [[ -n $words ]]; then\n"
           "        [[ $current == *,* ]] && before=${current%,*},\n"
           "    elif [[ $current == -* ]]; then\n"
           "        words=\"" +
           optionNames(app) +
           "\"\n"
           "        case $command in\n" +
           options +
           "        esac\n"
           "    elif [[ -z $command ]]; then\n"
           "        words=$commands\n"
           "    else\n"
           "        case $command in\n" +
           kinds +
           "        esac\n"
           "    fi\n"
           "    for word in $words; do\n"
           "        [[ $word == \"${current#\"$before\"}\"* ]] && COMPREPLY+=(\"$before$word\")\n"
           "    done\n"
           "}\n"
           "complete -o bashdefault -o default -F " +
           function + " " + app.get_name() + "\n";
}

}  // namespace lumo::manual
