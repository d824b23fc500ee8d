#include "inspect/UnreadableLines.h"

#include <algorithm>

namespace lumo::inspect {

void UnreadableLines::add(size_t number, const std::string& why) {
    constexpr size_t kMostReasons = 5;
    ++count_;
    const auto known = std::find_if(reasons_.begin(), reasons_.end(),
                                    [&](const Reason& reason) { return reason.why == why; });
    if (known != reasons_.end()) {
        ++known->more;
    } else if (reasons_.size() < kMostReasons) {
        reasons_.push_back({number, 0, why});
    } else {
        ++others_;
    }
}

std::vector<std::string> UnreadableLines::sentences() const {
    std::vector<std::string> all;
    for (const Reason& reason : reasons_) {
        const std::string more =
            reason.more == 0 ? "" : " and " + std::to_string(reason.more) + " more";
        all.push_back("line " + std::to_string(reason.first) + more + ": " + reason.why);
    }
    if (others_ != 0) all.push_back(std::to_string(others_) + " other lines cannot be read either");
    return all;
}

}  // namespace lumo::inspect
