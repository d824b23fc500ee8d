#include "inspect/Item.h"

#include <algorithm>

#include "inspect/AuthorizationSchema.h"
#include "inspect/Parameters.h"

namespace lumo::inspect {

namespace {

std::string rightAligned(size_t number, size_t columns) {
    const std::string digits = std::to_string(number);
    return std::string(columns - std::min(columns, digits.size()), ' ') + digits;
}

void appendLines(const std::vector<Item>& items, size_t depth, std::string& text) {
    for (const Item& item : items) {
        text += rightAligned(item.offset, 6) + rightAligned(item.size, 7) + "  " +
                std::string(2 * depth, ' ') + item.name +
                (item.value.empty() ? "" : ": " + item.value) + (item.stale ? " (stale)" : "") +
                "\n";
        appendLines(item.parts, depth + 1, text);
    }
}

}  // namespace

std::string toText(const std::vector<Item>& items) {
    std::string text;
    appendLines(items, 0, text);
    return text;
}

std::string titleOf(const Inspection& found) {
    return found.kind + (found.side.empty() ? "" : ", " + found.side) +
           (found.command.empty() ? "" : " of " + found.command) + ", " + countOfBytes(found.size);
}

std::string toText(const Fault& fault) {
    std::string where;
    const auto join = [&where](const std::string& part) {
        where += (where.empty() ? "" : ", ") + part;
    };
    if (fault.certificate) join("certificate " + std::to_string(*fault.certificate));
    if (fault.byte) join("byte " + std::to_string(*fault.byte));
    if (fault.tag) {
        const SchemaField* field = schemaField(*fault.tag);
        const std::string name = field == nullptr ? "unknown" : field->name;
        join("tag " + std::to_string(*fault.tag) + " (" + name + ")");
    }
    return where.empty() ? fault.why : where + ": " + fault.why;
}

}  // namespace lumo::inspect
