// lumokm error: what the published codes mean.

#include <algorithm>
#include <cctype>

#include "Command.h"
#include "ErrorTexts.h"
#include "Failure.h"
#include "Report.h"

namespace lumo::cli {

namespace {

using km::V4_1::ErrorCode;

std::string numberOf(ErrorCode error) {
    return std::to_string(static_cast<int32_t>(error));
}

// "-33", "33" (a code is never positive), "INVALID_KEY_BLOB", "KM_ERROR_INVALID_KEY_BLOB" and any
// mix of cases.
const ErrorText& textFor(const std::string& wanted) {
    std::string name;
    for (const char letter : wanted) {
        name += static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
    }
    constexpr char kPrefix[] = "KM_ERROR_";
    if (name.rfind(kPrefix, 0) == 0) name.erase(0, sizeof(kPrefix) - 1);
    for (const ErrorText& text : errorTexts()) {
        const std::string number = numberOf(text.error);
        if (name == toString(text.error) || name == number || "-" + name == number) return text;
    }
    throw Failure(Exit::usage, "there is no error code '" + wanted +
                                   "'; lumokm error without an argument lists all");
}

Report describe(const ErrorText& text) {
    return {{"code", static_cast<int32_t>(text.error)},
            {"name", toString(text.error)},
            {"meaning", text.meaning},
            {"saidBy", namesOf(text.speakers)},
            {"try", text.advice}};
}

Report listAll() {
    Report all = Report::array();
    for (const ErrorText& text : errorTexts()) all.push_back(describe(text));
    return all;
}

void printList() {
    Report lines = Report::object();
    for (const ErrorText& text : errorTexts()) {
        lines[numberOf(text.error) + " " + toString(text.error)] = text.meaning;
    }
    print(lines, false);
}

Action declareError(CLI::App& app, const Common& common) {
    const auto wanted = std::make_shared<std::string>();
    app.add_option("code", *wanted, "its number or name; without one, all are listed")
        ->type_name("NUMBER|NAME");
    return [wanted, &common] {
        if (!wanted->empty()) {
            print(describe(textFor(*wanted)), common.json);
        } else if (common.json) {
            print({{"errors", listAll()}}, true);
        } else {
            printList();
        }
    };
}

}  // namespace

CommandGroup errorCommands() {
    return {"Help",
            {{"error", "Explain an error code",
              "saidBy names who can say the code: the library, its way to the secure application "
              "(transport), or the secure application. None: no part of this stack says it.\n\n"
              "Example:\n  lumokm error -33\n  lumokm error KEY_REQUIRES_UPGRADE --json",
              declareError}}};
}

}  // namespace lumo::cli
