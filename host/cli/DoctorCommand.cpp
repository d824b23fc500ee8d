// The command that tries the keymaster.

#include <algorithm>
#include <chrono>
#include <cmath>

#include "Command.h"
#include "DoctorCases.h"
#include "Files.h"
#include "ReaderStatus.h"
#include "Report.h"
#include "ServiceSource.h"

namespace lumo::cli {

namespace {

struct Verdict {
    const DoctorCase& row;
    bool passed = false;
    std::optional<ErrorCode> code;
    std::optional<int32_t> reader_status;  // in place of a code
    std::string why;                       // of one that did not pass
    double milliseconds = 0;
};

std::string nameOf(ErrorCode code) {
    return toString(static_cast<km::V4_1::ErrorCode>(code)) + " (" +
           std::to_string(static_cast<int32_t>(code)) + ")";
}

std::string wanted(const DoctorCase& row) {
    if (row.refusals.empty()) return nameOf(ErrorCode::OK);
    std::string names;
    for (const ErrorCode code : row.refusals) names += (names.empty() ? "" : " or ") + nameOf(code);
    return names;
}

bool isWanted(const DoctorCase& row, ErrorCode code) {
    if (row.refusals.empty()) return code == ErrorCode::OK;
    return std::find(row.refusals.begin(), row.refusals.end(), code) != row.refusals.end();
}

bool isOfLevel(const DoctorCase& row, SecurityLevel level) {
    switch (row.levels) {
        case Levels::kBoth:
            return true;
        case Levels::kTrustedEnvironment:
            return level == SecurityLevel::TRUSTED_ENVIRONMENT;
        case Levels::kStrongbox:
            return level == SecurityLevel::STRONGBOX;
    }
    return true;
}

Verdict tryOut(const DoctorCase& row, Examination& examination) {
    Verdict verdict{row, false, std::nullopt, std::nullopt, "", 0};
    const auto start = std::chrono::steady_clock::now();
    try {
        const Answer answer = row.call(examination);
        verdict.reader_status = readerStatusIn(answer.code);
        const bool is_wanted = !verdict.reader_status && isWanted(row, answer.code);
        if (!verdict.reader_status) verdict.code = answer.code;
        verdict.passed = is_wanted && answer.fault.empty();
        if (!is_wanted) {
            verdict.why = (verdict.reader_status ? unreadableText(*verdict.reader_status)
                                                 : nameOf(answer.code)) +
                          ", in place of " + wanted(row);
            const std::string reason = reasonOf(static_cast<km::V4_1::ErrorCode>(answer.code));
            if (!reason.empty()) verdict.why += ": " + reason;
        } else {
            verdict.why = answer.fault;
        }
    } catch (const Failure& failure) {
        const CallOutcome& outcome = failure.outcome();
        if (outcome.code) verdict.code = static_cast<ErrorCode>(*outcome.code);
        verdict.reader_status = outcome.reader_status;
        verdict.why = failure.what();
        // What failed on the way to the keymaster is told without the code that became of it.
        if (verdict.code && verdict.why.find(nameOf(*verdict.code)) == std::string::npos) {
            verdict.why = nameOf(*verdict.code) + ": " + verdict.why;
        }
    }
    const std::chrono::duration<double, std::milli> taken =
        std::chrono::steady_clock::now() - start;
    verdict.milliseconds = taken.count();
    return verdict;
}

std::string inColumn(std::string text, size_t width) {
    text.resize(std::max(text.size(), width), ' ');
    return text;
}

constexpr size_t kMethodColumn = 25;

std::string lineOf(const DoctorCase& row, const char* result, const std::string& why) {
    return std::string(result) + "  " + inColumn(row.method, kMethodColumn) +
           (row.call == nullptr    ? "not tried: "
            : row.refusals.empty() ? "accepts: "
                                   : "refuses: ") +
           row.what + (why.empty() ? "" : ": " + why) + "\n";
}

Report describe(const Verdict& verdict) {
    const DoctorCase& row = verdict.row;
    Report report = {{"method", row.method},
                     {"case", row.what},
                     {"expected", row.refusals.empty() ? "accepted" : "refused"},
                     {"result", verdict.passed ? "pass" : "fail"}};
    if (verdict.code) {
        report["code"] = static_cast<int32_t>(*verdict.code);
        report["name"] = toString(static_cast<km::V4_1::ErrorCode>(*verdict.code));
    }
    if (verdict.reader_status) report["readerStatus"] = *verdict.reader_status;
    if (!verdict.why.empty()) report["why"] = verdict.why;
    report["milliseconds"] = std::round(verdict.milliseconds * 1000) / 1000;
    return report;
}

Action declareDoctor(CLI::App& /*app*/, const Common& common) {
    return [&common] {
        Examination examination(common.level());
        Report cases = Report::array();
        size_t passed = 0, failed = 0, not_tried = 0;
        const auto show = [&](const std::string& line) {
            if (!common.json) writeFile("-", Bytes(line.begin(), line.end()));
        };
        for (const DoctorCase& row : doctorCases()) {
            if (!isOfLevel(row, common.level())) continue;
            if (row.call == nullptr) {
                not_tried++;
                cases.push_back(
                    {{"method", row.method}, {"result", "not tried"}, {"why", row.what}});
                show(lineOf(row, "----", ""));
                continue;
            }
            const Verdict verdict = tryOut(row, examination);
            (verdict.passed ? passed : failed)++;
            cases.push_back(describe(verdict));
            show(lineOf(row, verdict.passed ? "pass" : "FAIL", verdict.why));
        }
        if (common.json) {
            print({{"securityLevel", toString(common.level())},
                   {"passed", passed},
                   {"failed", failed},
                   {"notTried", not_tried},
                   {"cases", cases}},
                  true);
        } else {
            show(std::to_string(passed) + " passed, " + std::to_string(failed) + " failed, " +
                 std::to_string(not_tried) + " not tried\n");
        }
        if (failed > 0) throw ReportedFailure(Exit::check);
    };
}

constexpr char kDoctorNotes[] =
    "Calls each method of the interfaces 4.0 and 4.1, at least once to be accepted and, where the "
    "method refuses anything, once to be refused. It makes keys and removes them. It never deletes "
    "all keys, locks the device, ends early boot or destroys ids. The HMAC key is agreed on "
    "between "
    "the levels, as at boot.\n\n"
    "Exit status 0 says that every case passed, 5 that one did not.\n\n"
    "Examples:\n"
    "  lumokm doctor\n"
    "  lumokm doctor --strongbox --json";

}  // namespace

CommandGroup doctorCommands() {
    return {"Diagnosis",
            {{"doctor", "Try every method of the keymaster, and say what fails", kDoctorNotes,
              declareDoctor}}};
}

}  // namespace lumo::cli
