// Dates of keymaster parameters, in milliseconds since 1970-01-01 UTC, as text.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace lumo::cli {

// "2030-01-31", "2030-01-31T12:00:00Z" or milliseconds since 1970, to the last.
std::optional<uint64_t> parseDate(const std::string& text);
// "2030-01-31T12:00:00.000Z"; a number of milliseconds where the year has more than four digits.
std::string dateText(uint64_t milliseconds);

}  // namespace lumo::cli
