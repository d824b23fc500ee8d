#include "CommandLine.h"

#include <string.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <new>
#include <sstream>

#include "Command.h"
#include "Failure.h"
#include "Files.h"
#include "HelpText.h"
#include "ParseFailures.h"
#include "Report.h"
#include "ServiceSource.h"
#include "Version.h"

namespace lumo::cli {

namespace {

constexpr char kDescription[] =
    "lumokm: the keymaster service on files, as a platform client calls it";

constexpr char kFooter[] =
    "'-' is standard input or output. lumokm COMMAND --help shows examples.\n\n"
    "Environment:\n"
    "  LUMO_TRANSPORT   how the secure application is reached (sim)\n"
    "  LUMO_STATE_DIR   where the one in this process keeps its secrets\n"
    "  LUMO_PROPERTIES  system properties, in build.prop syntax\n\n"
    "Exit status:\n"
    "  0 ok   2 usage   3 refused by the keymaster   4 transport   5 a check failed\n"
    "  6 state   1 anything else\n\n"
    "With --json every command prints one JSON object on standard output, failures\n"
    "too: {\"error\": {\"command\", \"exit\", \"status\", \"code\", \"name\", \"reason\",\n"
    "\"message\"}}, code, name and reason where there are any.";

// One line for people; with --json an object for scripts as well.
int report(const Failure& failure, const std::string& command, bool as_json) {
    std::string message = failure.what();
    std::replace(message.begin(), message.end(), '\n', ' ');
    say("lumokm: " + (command.empty() ? "" : command + ": ") + message);
    const int status = static_cast<int>(failure.status());
    if (!as_json) return status;
    Report error = {{"command", command}, {"exit", status}, {"status", nameOf(failure.status())}};
    const auto& [code, reader_status, reason] = failure.outcome();
    if (code) {
        error["code"] = static_cast<int32_t>(*code);
        error["name"] = toString(*code);
    }
    if (reader_status) error["readerStatus"] = *reader_status;
    if (!reason.empty()) error["reason"] = reason;
    error["message"] = message;
    try {
        print({{"error", error}}, true);
    } catch (const Failure&) {  // standard output cannot be written; the line above is out
    }
    return status;
}

// Parsing may fail before it reaches the flag.
bool asksForJson(int argc, char** argv) {
    return std::any_of(argv, argv + argc,
                       [](const char* word) { return word == std::string("--json"); });
}

std::vector<CommandGroup> allCommands() {
    std::vector<CommandGroup> all = {
        deviceCommands(),       keyCommands(),         operationCommands(),
        stepCommands(),         attestationCommands(), sharingCommands(),
        capabilitiesCommands(), doctorCommands(),      errorCommands()};
    for (CommandGroup& group : furtherCommands()) all.push_back(std::move(group));
    return all;
}

// The one command that is named among the words; none where no word names one, or several do.
const char* onlyCommand(int argc, char** argv) {
    const char* only = nullptr;
    for (const CommandGroup& group : allCommands()) {
        for (const Command& command : group.commands) {
            const auto times = std::count_if(argv + 1, argv + argc, [&](const char* word) {
                return strcmp(word, command.name) == 0;
            });
            if (times == 0) continue;
            if (times > 1 || only != nullptr) return nullptr;
            only = command.name;
        }
    }
    return only;
}

class CommandLine {
  public:
    // Knows all commands, or only the one of that name.
    explicit CommandLine(const char* only = nullptr) : app_(kDescription, "lumokm") {
        app_.set_version_flag("--version", "lumokm " LUMO_KEYMASTER_VERSION);
        app_.add_flag("--strongbox", common_.strongbox, "use the StrongBox keymaster");
        app_.add_option("--service", common_.service,
                        "use the registered service of this name: default or strongbox")
            ->check(CLI::IsMember({"default", "strongbox"}))
            ->excludes("--strongbox");
        app_.add_flag("--json", common_.json, "print results as JSON");
        app_.add_flag("-v,--verbose", common_.verbose, "show the library's log");
        app_.add_flag("-q,--quiet", common_.quiet, "say nothing on standard error but what fails")
            ->excludes("--verbose");
        declareWayThere(app_);
        app_.require_subcommand(1);
        app_.formatter(std::make_shared<HelpFormatter>());
        app_.footer(kFooter);
        for (const CommandGroup& group : allCommands()) {
            for (const Command& command : group.commands) {
                if (only == nullptr || strcmp(only, command.name) == 0) add(group.title, command);
            }
        }
    }

    const CLI::App& app() const { return app_; }

    // Whether the words can be carried out as they are: help is not wanted and nothing is wrong.
    bool accepts(int argc, char** argv) {
        try {
            app_.parse(argc, argv);
            return true;
        } catch (const CLI::ParseError&) {
            return false;
        }
    }

    int run(int argc, char** argv) {
        try {
            app_.parse(argc, argv);
        } catch (const CLI::Success& success) {
            return printHelp(success);
        } catch (const CLI::ParseError& error) {
            return report(Failure(Exit::usage, explain(app_, error)), commandIn(app_),
                          asksForJson(argc, argv));
        }
        return carryOut();
    }

    // After parsing.
    int carryOut() {
        if (!common_.service.empty()) {
            common_.strongbox = common_.service == "strongbox";
            useRegisteredServices();
        }
        if (common_.quiet) beQuiet();
        routeLog(common_.verbose, [this](const Failure& failure) { reportFailure(failure); });
        if (common_.verbose) watchWayThere();
        try {
            action_();
            return static_cast<int>(Exit::ok);
        } catch (const ReportedFailure& failure) {
            return static_cast<int>(failure.status);
        } catch (const Failure& failure) {
            return reportFailure(failure);
        } catch (const std::bad_alloc&) {
            return reportFailure(Failure(Exit::other, "out of memory"));
        } catch (const std::exception& error) {
            return reportFailure(Failure(Exit::other, error.what()));
        }
    }

  private:
    // Help, or the version.
    int printHelp(const CLI::Success& wanted) const {
        std::ostringstream text;
        const int status = app_.exit(wanted, text, text);
        try {
            const std::string words = text.str();
            writeFile("-", Bytes(words.begin(), words.end()));
        } catch (const Failure& failure) {
            return report(failure, "", false);
        }
        return status;
    }

    void add(const std::string& group, const Command& command) {
        CLI::App* sub = app_.add_subcommand(command.name, command.summary);
        sub->group(group)->fallthrough();
        sub->footer(std::string(command.notes) + "\n\nWith every command: " + commonOptions());
        sub->callback([this, action = command.declare(*sub, common_)] { action_ = action; });
    }

    // The options that stand before or behind any command.
    std::string commonOptions() const {
        std::string names;
        for (const CLI::Option* option : app_.get_options()) {
            if (option == app_.get_help_ptr() || option->check_lname("version")) continue;
            names += (names.empty() ? "" : ", ") + option->get_name();
        }
        return names + ".";
    }

    int reportFailure(const Failure& failure) const {
        return report(failure, commandIn(app_), common_.json);
    }

    Common common_;
    CLI::App app_;
    Action action_;
};

}  // namespace

void visitCommandLine(const std::function<void(const CLI::App& app)>& visit) {
    visit(CommandLine().app());
}

int run(int argc, char** argv) {
    // Declaring every command takes longer than carrying most of them out. Help and mistakes are
    // answered with all of them known.
    if (const char* only = onlyCommand(argc, argv)) {
        CommandLine command_line(only);
        if (command_line.accepts(argc, argv)) return command_line.carryOut();
    }
    return CommandLine().run(argc, argv);
}

}  // namespace lumo::cli
