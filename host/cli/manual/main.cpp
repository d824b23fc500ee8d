// Writes manual pages and completions of the tools: lumo-manual DIRECTORY.
//   man/man1/lumokm.1, man/man1/lumokm-COMMAND.1, man/man8/lumo-secureapp.8
//   bash-completion/completions/lumokm, .../lumo-secureapp

#include <CLI/CLI.hpp>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "CommandLine.h"
#include "Completion.h"
#include "ManPage.h"
#include "secureapp/daemon/Options.h"

namespace {

namespace fs = std::filesystem;
using lumo::manual::bashCompletion;
using lumo::manual::manPage;

void write(const fs::path& path, const std::string& text) {
    fs::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary);
    out << text;
    out.close();
    if (!out) throw std::runtime_error("cannot write " + path.string());
}

// A page for each command below `app`, whose own page is `parent`, and for each below that.
void writeCommands(const fs::path& directory, const CLI::App& app,
                   const lumo::manual::Page& parent) {
    for (const CLI::App* command : app.get_subcommands({})) {
        const std::string name = command->get_name();
        const lumo::manual::Page page = {parent.name + "-" + name, '1', parent.command + " " + name,
                                         parent.name + "(1)"};
        write(directory / (page.name + ".1"), manPage(page, *command));
        writeCommands(directory, *command, page);
    }
}

void writeClient(const fs::path& directory) {
    lumo::cli::visitCommandLine([&](const CLI::App& app) {
        const std::string& name = app.get_name();
        write(directory / "man/man1" / (name + ".1"),
              manPage({name, '1', name, "lumo-secureapp(8)"}, app));
        writeCommands(directory / "man/man1", app, {name, '1', name, ""});
        write(directory / "bash-completion/completions" / name, bashCompletion(app));
    });
}

void writeDaemon(const fs::path& directory) {
    lumo::secureapp::Options options;
    CLI::App app;
    lumo::secureapp::declareOptions(app, options);
    const std::string name = app.get_name();
    write(directory / "man/man8" / (name + ".8"), manPage({name, '8', name, "lumokm(1)"}, app));
    write(directory / "bash-completion/completions" / name, bashCompletion(app));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "lumo-manual: give one directory to write into\n";
        return 2;
    }
    try {
        writeClient(argv[1]);
        writeDaemon(argv[1]);
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "lumo-manual: " << error.what() << '\n';
        return 1;
    }
}
