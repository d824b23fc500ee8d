// The commands of the client, in groups of one file each, and the arguments that several share.
#pragma once

#include <CLI/App.hpp>  // all of CLI/CLI.hpp only where an App is made: it costs a second a file
#include <functional>
#include <string>
#include <vector>

#include "Client.h"
#include "Report.h"
#include "TagOptions.h"

namespace lumo::cli {

// The arguments of every command.
struct Common {
    bool strongbox = false;
    std::string service;  // the name of a registered one; empty: a new one of this process
    bool json = false;
    bool verbose = false;
    bool quiet = false;

    SecurityLevel level() const {
        return strongbox ? SecurityLevel::STRONGBOX : SecurityLevel::TRUSTED_ENVIRONMENT;
    }
};

// Runs a command; throws Failure where it fails.
using Action = std::function<void()>;

struct Command {
    const char* name;
    const char* summary;
    const char* notes;  // examples and notes for the command's help
    // Adds the command's arguments to its part of the command line. The action runs after parsing,
    // while `common` still lives.
    Action (*declare)(CLI::App& app, const Common& common);
};

struct CommandGroup {
    const char* title;
    std::vector<Command> commands;
};

CommandGroup deviceCommands();
CommandGroup keyCommands();
CommandGroup operationCommands();
CommandGroup stepCommands();
CommandGroup attestationCommands();
CommandGroup sharingCommands();
CommandGroup capabilitiesCommands();
CommandGroup doctorCommands();
CommandGroup errorCommands();

// A key file with the application id and data that the key is bound to.
class KeyArguments {
  public:
    void declare(CLI::App& app);

    const std::string& path() const { return path_; }
    Bytes read() const;
    // Throws Failure where the output would replace the key.
    void requireOtherFile(const std::string& output_path) const;
    Bytes appId() const { return binding_.bytesOf(Tag::APPLICATION_ID); }
    Bytes appData() const { return binding_.bytesOf(Tag::APPLICATION_DATA); }
    // Both as parameters, as far as they were given.
    std::vector<KeyParameter> binding() const { return binding_.parameters(); }

  private:
    std::string path_;
    TagOptions binding_;
};

// --in FILE and --out FILE, "-" by default.
CLI::Option* addInput(CLI::App& app, std::string& path, const std::string& help);
CLI::Option* addOutput(CLI::App& app, std::string& path, const std::string& help);
void addAuthToken(CLI::App& app, std::string& path);

// The end of a command: the report on standard output with --json, else the sentence for people on
// standard error. An empty sentence is left out.
void conclude(const Common& common, const Report& report, const std::string& sentence = "");

// The sentence about a file that a command wrote, for conclude().
Report writtenTo(const std::string& path);

// Throws Failure where a report would be mixed with the data on standard output.
void requireSeparateReport(const Common& common, const std::string& output_path);

// Throws Failure where the output is a file that is read: `what`, at `path`.
void requireOtherFile(const std::string& what, const std::string& path,
                      const std::string& output_path);

// Throws Failure where binary data would be written to a terminal.
void requireNoTerminal(const std::string& output_path);

// Level, name and author, as the keymaster tells them.
Report hardwareInfo(Device& device);

// The most that attestKey takes.
constexpr size_t kMaxChallengeBytes = 128;

// The first parameters followed by the second.
std::vector<KeyParameter> joined(std::vector<KeyParameter> first,
                                 const std::vector<KeyParameter>& second);

}  // namespace lumo::cli
