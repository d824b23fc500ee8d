// Dates of the Gregorian calendar.
#pragma once

#include <cstdint>

namespace lumo::secureapp {

constexpr uint64_t kSecondsPerDay = 86400;

struct Date {
    uint64_t year, month, day;
};

// The date of a day since 1970-01-01. The C library's functions end in 2038 where time_t has 32
// bits.
Date dateOf(uint64_t days);

}  // namespace lumo::secureapp
