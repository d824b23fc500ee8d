#include "Command.h"

#include <sys/stat.h>
#include <unistd.h>

#include "Failure.h"
#include "Files.h"

namespace lumo::cli {

namespace {

constexpr TagOption kBindingOptions[] = {
    {"--app-id", Tag::APPLICATION_ID, "application id that the key is bound to"},
    {"--app-data", Tag::APPLICATION_DATA, "application data that the key is bound to"},
};

}  // namespace

void KeyArguments::declare(CLI::App& app) {
    app.add_option("-k,--key", path_, "key blob")->required()->type_name("FILE");
    binding_.declare(app, kBindingOptions, "Options");
}

Bytes KeyArguments::read() const {
    return readSmallFile(path_);
}

void KeyArguments::requireOtherFile(const std::string& output_path) const {
    lumo::cli::requireOtherFile("key", path_, output_path);
}

void requireOtherFile(const std::string& what, const std::string& path,
                      const std::string& output_path) {
    struct stat read;
    struct stat written;
    if (stat(path.c_str(), &read) != 0 || stat(output_path.c_str(), &written) != 0) return;
    if (read.st_dev != written.st_dev || read.st_ino != written.st_ino) return;
    if (!S_ISREG(read.st_mode)) return;  // a terminal, a pipe
    throw Failure(Exit::usage,
                  "the output would replace the " + what + " " + path + "; give another --out");
}

void conclude(const Common& common, const Report& report, const std::string& sentence) {
    if (common.json) {
        print(report, true);
    } else if (!sentence.empty()) {
        remark(sentence);
    }
}

Report writtenTo(const std::string& path) {
    return {{"out", path}};
}

CLI::Option* addInput(CLI::App& app, std::string& path, const std::string& help) {
    path = "-";
    return app.add_option("-i,--in", path, help)->type_name("FILE")->capture_default_str();
}

CLI::Option* addOutput(CLI::App& app, std::string& path, const std::string& help) {
    path = "-";
    return app.add_option("-o,--out", path, help)->type_name("FILE")->capture_default_str();
}

void addAuthToken(CLI::App& app, std::string& path) {
    app.add_option("--auth-token", path, "auth token, 69 bytes packed")->type_name("FILE");
}

void requireSeparateReport(const Common& common, const std::string& output_path) {
    if (!common.json || output_path != "-") return;
    throw Failure(Exit::usage, "--json needs standard output for itself; give --out FILE");
}

void requireNoTerminal(const std::string& output_path) {
    if (output_path != "-" || isatty(STDOUT_FILENO) == 0) return;
    throw Failure(Exit::usage, "the output is binary and does not go to a terminal; give --out");
}

std::vector<KeyParameter> joined(std::vector<KeyParameter> first,
                                 const std::vector<KeyParameter>& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

}  // namespace lumo::cli
