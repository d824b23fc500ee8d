// Writes manual pages and completions of the tools: lumo-manual DIRECTORY.
//   man/man1/lumokm.1, man/man1/lumokm-COMMAND.1, man/man8/lumo-secureapp.8
//   bash-completion/completions/lumokm, .../lumo-secureapp

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

void writeClient(const fs::path& directory) {
    lumo::cli::visitCommandLine([&](const CLI::App& app) {
        const std::string name = app.get_name();
        write(directory / "man/man1" / (name + ".1"),
              manPage({name, '1', name, "lumo-secureapp(8)"}, app));
        for (const CLI::App* command : app.get_subcommands({})) {
            const std::string page = name + "-" + command->get_name();
            write(directory / "man/man1" / (page + ".1"),
                  manPage({page, '1', name + " " + command->get_name(), name + "(1)"}, *command));
        }
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
