// The command that shows what a file is.
#include "Failure.h"
#include "Files.h"
#include "InspectCommands.h"
#include "inspect/Recognition.h"

namespace lumo::cli {

namespace {

using inspect::Inspection;
using inspect::Item;

struct Arguments {
    std::string file;
    std::string kind;
    std::string command;
    bool request = false;
    bool response = false;

    inspect::Hints hints() const;
};

inspect::Hints Arguments::hints() const {
    inspect::Hints hints;
    hints.kind = kind;
    if (!kind.empty() && !inspect::isKind(kind)) {
        throw Failure(Exit::usage, "--as: '" + kind + "' is none of " + inspect::kindNames());
    }
    if (request) hints.side = inspect::Side::kRequest;
    if (response) hints.side = inspect::Side::kResponse;
    if (command.empty()) return hints;
    hints.command = inspect::findCommand(command);
    if (hints.command == nullptr) {
        throw Failure(Exit::usage, "--command: there is no command '" + command + "', only " +
                                       inspect::commandNames());
    }
    return hints;
}

Report reportOf(const std::vector<Item>& items) {
    Report all = Report::array();
    for (const Item& item : items) {
        Report one = {{"offset", item.offset}, {"size", item.size}, {"name", item.name}};
        if (!item.value.empty()) one["value"] = item.value;
        if (item.stale) one["stale"] = true;
        if (!item.parts.empty()) one["parts"] = reportOf(item.parts);
        all.push_back(std::move(one));
    }
    return all;
}

Report reportOf(const Inspection& found) {
    Report report = {{"kind", found.kind}};
    if (!found.side.empty()) report["side"] = found.side;
    if (!found.command.empty()) report["command"] = found.command;
    report["size"] = found.size;
    report["fields"] = reportOf(found.items);
    report["remarks"] = found.remarks;
    report["faults"] = describe(found.faults);
    return report;
}

std::string textOf(const Inspection& found) {
    std::string text = titleOf(found) + "\n  byte   size  field\n" + toText(found.items);
    for (const std::string& remark : found.remarks) text += "note: " + remark + "\n";
    for (const inspect::Fault& fault : found.faults) {
        text += "does not add up: " + toText(fault) + "\n";
    }
    return text;
}

}  // namespace

Action declareInspect(CLI::App& app, const Common& common) {
    const auto arguments = std::make_shared<Arguments>();
    app.add_option("FILE", arguments->file, "what to look into, - for standard input")
        ->required()
        ->type_name("");
    app.add_option("--as", arguments->kind, "take it for this in place of recognising it")
        ->type_name("KIND");
    app.add_option("--command", arguments->command, "the command that a message belongs to")
        ->type_name("NAME|NUMBER");
    auto* const request = app.add_flag("--request", arguments->request, "it is a request");
    app.add_flag("--response", arguments->response, "it is a response")->excludes(request);
    return [arguments, &common] {
        const inspect::Hints hints = arguments->hints();
        const Bytes file = readSmallFile(arguments->file);
        std::string why;
        const auto found = inspect::inspectBytes(inspect::Window(file), hints, why);
        if (!found) {
            const bool standard = arguments->file == "-";
            throw Failure(Exit::usage,
                          (standard ? "standard input" : arguments->file) + ": " + why);
        }
        if (common.json) {
            print(reportOf(*found), true);
        } else {
            const std::string text = textOf(*found);
            writeFile("-", Bytes(text.begin(), text.end()));
        }
        if (!found->faults.empty()) throw ReportedFailure(Exit::check);
    };
}

const char kInspectNotes[] =
    "No keymaster is asked. KIND: key-blob, cbor, record, auth-token,\n"
    "verification-token, chain, key-description, wrapped-key or trace. Files of\n"
    "hexadecimal digits are taken for the bytes that they stand for. The response of\n"
    "a record does not say what it is: give --command and --response. Exit status 5\n"
    "says that something does not add up.\n\n"
    "Examples:\n"
    "  lumokm inspect ec.key\n"
    "  lumokm inspect chain.pem --json\n"
    "  lumokm inspect body --command begin --response";

}  // namespace lumo::cli
