// lumokm error: what the published codes mean.

#include <algorithm>
#include <cctype>

#include "Command.h"
#include "ErrorTexts.h"
#include "Failure.h"
#include "ReaderStatus.h"
#include "Report.h"

namespace lumo::cli {

namespace {

using km::V4_1::ErrorCode;

std::string numberOf(ErrorCode error) {
    return std::to_string(static_cast<int32_t>(error));
}

// "-33", "0xffffffdf", "-0x21"; nothing for what is no number of 32 bits.
std::optional<int32_t> parseCode(const std::string& text) {
    const bool negative = text.rfind('-', 0) == 0;
    const auto number = parseNumber(text.substr(negative ? 1 : 0), UINT32_MAX);
    if (!number) return std::nullopt;
    const auto word = static_cast<uint32_t>(*number);
    // Two's complement, as C writes a negative number in hexadecimal digits.
    return static_cast<int32_t>(negative ? 0U - word : word);
}

// A number, "INVALID_KEY_BLOB", "KM_ERROR_INVALID_KEY_BLOB" and any mix of cases. "33" is taken for
// the code -33, as no other thing has that number.
const ErrorText& textFor(const std::string& wanted) {
    if (const auto number = parseCode(wanted)) {
        const ErrorText* text = findErrorText(ErrorCode{*number});
        if (text == nullptr)
            text =
                findErrorText(ErrorCode{static_cast<int32_t>(0U - static_cast<uint32_t>(*number))});
        if (text != nullptr) return *text;
    }
    std::string name;
    for (const char letter : wanted) {
        name += static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
    }
    constexpr char kPrefix[] = "KM_ERROR_";
    if (name.rfind(kPrefix, 0) == 0) name.erase(0, sizeof(kPrefix) - 1);
    for (const ErrorText& text : errorTexts()) {
        if (name == toString(text.error)) return text;
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

// In place of a code, for an answer that could not be read.
Report describe(const ReaderStatus& status) {
    Report report = {{"readerStatus", status.number}};
    if (*status.name != 0) report["name"] = status.name;
    report["meaning"] = std::string("the answer could not be read: ") + status.meaning;
    report["saidBy"] = namesOf(kLibrary);
    report["try"] = kUnreadableAdvice;
    return report;
}

// A number may be a code and a reader's status. The report is about the likelier one, the code but
// for positive numbers; a remark names the other.
Report describe(const std::string& wanted) {
    const auto number = parseCode(wanted);
    const ReaderStatus* status = number ? findReaderStatus(*number) : nullptr;
    if (status == nullptr) return describe(textFor(wanted));
    if (!isReaderStatus(*number)) {
        remark("in place of a code " + wanted +
               " says that the answer could not be read: " + status->meaning);
        return describe(textFor(wanted));
    }
    const std::string code = "-" + std::to_string(*number);
    remark("the code " + code + " is " + toString(textFor(code).error) + ", see lumokm error " +
           code);
    return describe(*status);
}

template <typename Row>
Report listOf(const std::vector<Row>& rows) {
    Report all = Report::array();
    for (const Row& row : rows) all.push_back(describe(row));
    return all;
}

void printList() {
    Report lines = Report::object();
    for (const ErrorText& text : errorTexts()) {
        lines[numberOf(text.error) + " " + toString(text.error)] = text.meaning;
    }
    Report statuses = Report::object();
    for (const ReaderStatus& status : readerStatuses()) {
        statuses[std::to_string(status.number) + (*status.name != 0 ? " " : "") + status.name] =
            status.meaning;
    }
    lines["In place of a code, where the answer could not be read"] = statuses;
    print(lines, false);
}

Action declareError(CLI::App& app, const Common& common) {
    const auto wanted = std::make_shared<std::string>();
    app.add_option("code", *wanted, "its number or name; without one, all are listed")
        ->type_name("NUMBER|NAME");
    return [wanted, &common] {
        if (!wanted->empty()) {
            print(describe(*wanted), common.json);
        } else if (common.json) {
            print({{"errors", listOf(errorTexts())}, {"readerStatuses", listOf(readerStatuses())}},
                  true);
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
              "(transport), or the secure application. None: no part of this stack says it. A code "
              "is never "
              "positive: small positive numbers say in place of one that an answer could not be "
              "read.\n\n"
              "Example:\n  lumokm error -33\n  lumokm error KEY_REQUIRES_UPGRADE --json",
              declareError}}};
}

}  // namespace lumo::cli
