#include "Traces.h"

#include <algorithm>

#include "Failure.h"
#include "Files.h"
#include "Report.h"
#include "inspect/Parameters.h"

namespace lumo::cli {

namespace {

// Above the line of the largest exchange that the transport can carry.
constexpr size_t kMaxLineBytes = 64 << 20;

// What a foreign file says is shown, but not obeyed by the terminal.
std::string harmless(std::string text) {
    const auto control = [](unsigned char c) { return c < 0x20 || c == 0x7F; };
    std::replace_if(text.begin(), text.end(), control, '?');
    return text;
}

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
                return true;
            }
            searched_ = pending_.size();
            if (pending_.size() > kMaxLineBytes) {
                throw Failure(Exit::usage, input_.name() + " is no trace: a line is too long");
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
};

}  // namespace

TraceCounts readTrace(const std::string& path,
                      const std::function<bool(size_t number, const inspect::Exchange&,
                                               const std::string& line)>& use) {
    Lines lines(path);
    TraceCounts counts;
    std::string why;
    for (std::string line; lines.next(line);) {
        ++counts.lines;
        try {
            if (!use(counts.lines, inspect::parseLine(line), line)) return counts;
        } catch (const inspect::TraceError& error) {
            ++counts.unreadable;
            why = harmless(error.what());
            remark(lines.name() + ", line " + std::to_string(counts.lines) + ": " + why);
        }
    }
    if (counts.unreadable != 0 && counts.unreadable == counts.lines) {
        throw Failure(Exit::usage, lines.name() + " is no trace: " + why);
    }
    return counts;
}

std::string headOf(size_t number, const inspect::Exchange& exchange) {
    constexpr size_t kDateLength = sizeof("2026-01-31T") - 1;
    const bool strongbox = exchange.level == KM_SECURITY_LEVEL_STRONGBOX;
    std::string outcome = inspect::errorName(exchange.code);
    if (exchange.code != 0) outcome += " (" + std::to_string(exchange.code) + ")";
    std::string head = std::to_string(number) + "  " +
                       inspect::timeText(exchange.time).substr(kDateLength) + "  " +
                       harmless(exchange.source) + " " + std::to_string(exchange.process) + "/" +
                       std::to_string(exchange.link) + "  " +
                       inspect::describeCommand(exchange.wire, exchange.number) + "  " +
                       (strongbox ? "strongbox" : "trusted environment") + "  " + outcome + "  " +
                       std::to_string(exchange.duration.count()) + " us";
    if (!exchange.reason.empty()) head += "\n    " + harmless(exchange.reason);
    return head;
}

}  // namespace lumo::cli
