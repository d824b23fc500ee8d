#include "secureapp/base/Dates.h"

namespace lumo::secureapp {

// Years begin in March, so that the leap day comes last.
Date dateOf(uint64_t days) {
    constexpr uint64_t kDaysTo1970 = 719468;  // from 0000-03-01
    constexpr uint64_t kDaysPerEra = 146097;  // 400 years
    const uint64_t whole = days + kDaysTo1970;
    const uint64_t day_of_era = whole % kDaysPerEra;
    const uint64_t year_of_era =
        (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
    const uint64_t day_of_year =
        day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
    const uint64_t month = (5 * day_of_year + 2) / 153;  // 0 is March
    const uint64_t year = year_of_era + whole / kDaysPerEra * 400 + (month < 10 ? 0 : 1);
    return {year, month < 10 ? month + 3 : month - 9, day_of_year - (153 * month + 2) / 5 + 1};
}

}  // namespace lumo::secureapp
