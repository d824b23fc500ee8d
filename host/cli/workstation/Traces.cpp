#include "Traces.h"

#include "Failure.h"
#include "Files.h"
#include "Report.h"
#include "inspect/Parameters.h"
#include "inspect/UnreadableLines.h"
#include "inspect/Values.h"

namespace lumo::cli {

namespace {

// Above the line of the largest exchange that the transport can carry.
constexpr size_t kMaxLineBytes = 64 << 20;

// What some editors put at the beginning of a file.
const std::string kByteOrderMark = "\xEF\xBB\xBF";

class Lines {
  public:
    explicit Lines(const std::string& path) : input_(path) {}

    bool next(std::string& line) {
        for (;;) {
            const size_t end = pending_.find('\n', searched_);
            if (end != std::string::npos) {
                line = pending_.substr(0, end);
                pending_.erase(0, end + 1);
                searched_ = 0;
                ++read_;
                return true;
            }
            searched_ = pending_.size();
            if (pending_.size() > kMaxLineBytes) {
                throw Failure(Exit::usage, input_.name() + " is no trace: line " +
                                               std::to_string(read_ + 1) + " has more than 64 MiB");
            }
            uint8_t buffer[1 << 16];
            const size_t size = input_.read(buffer, sizeof(buffer));
            if (size == 0) break;
            pending_.append(buffer, buffer + size);
        }
        line = std::move(pending_);
        pending_.clear();
        return !line.empty();
    }

    const std::string& name() const { return input_.name(); }

  private:
    Input input_;
    std::string pending_;
    size_t searched_ = 0;
    size_t read_ = 0;  // lines
};

}  // namespace

TraceCounts readTrace(const std::string& path,
                      const std::function<bool(size_t number, const inspect::Exchange&,
                                               const std::string& line)>& use) {
    Lines lines(path);
    TraceCounts counts;
    inspect::UnreadableLines unreadable;
    std::string line;
    for (size_t number = 1; lines.next(line); ++number) {
        if (number == 1 && line.compare(0, kByteOrderMark.size(), kByteOrderMark) == 0) {
            line.erase(0, kByteOrderMark.size());
        }
        if (line.empty()) continue;
        ++counts.lines;
        try {
            if (!use(number, inspect::parseLine(line), line)) break;
        } catch (const inspect::TraceError& error) {
            unreadable.add(number, inspect::printable(error.what()));
        }
    }
    counts.unreadable = unreadable.count();
    if (counts.lines == 0)
        throw Failure(Exit::usage, lines.name() + " is no trace: no line is in it");
    const std::vector<std::string> sentences = unreadable.sentences();
    if (counts.unreadable == counts.lines) {
        throw Failure(Exit::usage, lines.name() + " is no trace: " + sentences.front());
    }
    for (const std::string& sentence : sentences) remark(lines.name() + ", " + sentence);
    return counts;
}

void requireAllRead(const Common& common, const TraceCounts& counts) {
    if (counts.unreadable == 0) return;
    const std::string words = std::to_string(counts.unreadable) + " of " +
                              std::to_string(counts.lines) + " lines could not be read";
    if (!common.json) throw Failure(Exit::check, words);
    say("lumokm: " + words);
    throw ReportedFailure(Exit::check);
}

std::string headOf(size_t number, const inspect::Exchange& exchange) {
    constexpr size_t kDateLength = sizeof("2026-01-31T") - 1;
    const bool strongbox = exchange.level == KM_SECURITY_LEVEL_STRONGBOX;
    std::string outcome = inspect::errorName(exchange.code);
    if (exchange.code != 0) outcome += " (" + std::to_string(exchange.code) + ")";
    std::string head = std::to_string(number) + "  " +
                       inspect::timeText(exchange.time).substr(kDateLength) + "  " +
                       inspect::printable(exchange.source) + " " +
                       std::to_string(exchange.process) + "/" + std::to_string(exchange.link) +
                       "  " + inspect::describeCommand(exchange.wire, exchange.number) + "  " +
                       (strongbox ? "strongbox" : "trusted environment") + "  " + outcome + "  " +
                       std::to_string(exchange.duration.count()) + " us";
    if (!exchange.reason.empty()) head += "\n    " + inspect::printable(exchange.reason);
    return head;
}

}  // namespace lumo::cli
