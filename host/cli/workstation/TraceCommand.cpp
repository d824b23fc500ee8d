// lumokm trace: shows what LUMO_TRACE or --trace recorded.

#include <cstdint>

#include "Failure.h"
#include "Files.h"
#include "TraceCommands.h"
#include "Traces.h"
#include "inspect/Parameters.h"

namespace lumo::cli {

namespace {

bool addsUp(const inspect::Exchange& exchange) {
    return exchange.decodedRequest().problems.empty() &&
           exchange.decodedResponse().problems.empty();
}

struct Filters {
    std::string command;
    std::string level;
    bool errors = false;
    uint64_t from = 1;
    uint64_t to = UINT64_MAX;

    bool keep(size_t number, const inspect::Exchange& exchange,
              const inspect::CommandInfo* wanted) const {
        if (number < from || number > to) return false;
        if (errors && exchange.code == 0 && addsUp(exchange)) return false;
        const bool strongbox = exchange.level == KM_SECURITY_LEVEL_STRONGBOX;
        if (!level.empty() && strongbox != (level == "strongbox")) return false;
        return wanted == nullptr || inspect::findCommand(exchange.wire, exchange.number) == wanted;
    }
};

const inspect::CommandInfo* wantedCommand(const std::string& name) {
    if (name.empty()) return nullptr;
    const inspect::CommandInfo* command = inspect::findCommand(name);
    if (command != nullptr) return command;
    throw Failure(Exit::usage, "--command: there is no command '" + name + "'; there are " +
                                   inspect::commandNames() + ", or give a number such as 0x2108");
}

std::string sideText(const char* name, const inspect::Message& message, size_t size) {
    return std::string("  ") + name + ", " + inspect::countOfBytes(size) + "\n" +
           inspect::toText(message, "  ");
}

std::string problemsText(const char* name, const inspect::Message& message) {
    std::string text;
    for (const std::string& problem : message.problems) {
        text += std::string("    ! ") + name + ", " + problem + "\n";
    }
    return text;
}

std::string textOf(size_t number, const inspect::Exchange& exchange, bool brief) {
    std::string text = headOf(number, exchange) + "\n";
    if (brief) {
        return text + problemsText("request", exchange.decodedRequest()) +
               problemsText("response", exchange.decodedResponse());
    }
    text += sideText("request", exchange.decodedRequest(), exchange.request.size());
    if (!exchange.response) return text + "  no response\n\n";
    return text + sideText("response", exchange.decodedResponse(), exchange.response->size()) +
           "\n";
}

}  // namespace

Action declareTrace(CLI::App& app, const Common& common) {
    struct Arguments {
        std::string path;
        Filters filters;
        bool brief = false;
    };
    const auto arguments = std::make_shared<Arguments>();
    Filters& filters = arguments->filters;
    app.add_option("FILE", arguments->path, "the trace; - is standard input")
        ->required()
        ->type_name("");
    app.add_option("--command", filters.command, "only this command, by name or number")
        ->type_name("NAME");
    app.add_option("--level", filters.level, "only this level: tee or strongbox")
        ->check(CLI::IsMember({"tee", "strongbox"}))
        ->type_name("LEVEL");
    app.add_flag("--errors", filters.errors, "only what did not succeed or does not add up");
    // Without the check -1 would be the last number that there is.
    const auto line_number = CLI::Range(uint64_t{1}, uint64_t{UINT32_MAX}).description("");
    app.add_option("--from", filters.from, "from this line of the file on")
        ->check(line_number)
        ->type_name("N");
    app.add_option("--to", filters.to, "up to this line of the file")
        ->check(line_number)
        ->type_name("N");
    app.add_flag("--brief", arguments->brief, "one line an exchange, without the messages");
    return [arguments, &common] {
        const auto* wanted = wantedCommand(arguments->filters.command);
        const Filters& asked = arguments->filters;
        if (asked.from > asked.to) {
            throw Failure(Exit::usage, "--from " + std::to_string(asked.from) + " is behind --to " +
                                           std::to_string(asked.to));
        }
        // Where a line that comes later fails, the failure is to be the one object that is printed.
        Output output("-", Output::Kind::data,
                      common.json ? Output::Flow::held : Output::Flow::direct);
        const auto write = [&](const std::string& text) {
            output.write(reinterpret_cast<const uint8_t*>(text.data()), text.size());
        };
        if (common.json) write("{\"exchanges\":[");
        bool first = true;
        const TraceCounts counts = readTrace(
            arguments->path,
            [&](size_t number, const inspect::Exchange& exchange, const std::string& line) {
                if (number > asked.to) return false;
                if (!asked.keep(number, exchange, wanted)) return true;
                if (common.json) {
                    write((first ? "\n" : ",\n") + line);
                } else {
                    write(textOf(number, exchange, arguments->brief));
                }
                first = false;
                return true;
            });
        if (common.json) {
            write("\n],\"unreadable\":" + std::to_string(counts.unreadable) + "}\n");
        }
        output.commit();
        if (first) remark("no line is as asked for");
        requireAllRead(common, counts);
    };
}

}  // namespace lumo::cli
