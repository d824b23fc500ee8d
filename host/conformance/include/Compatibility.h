// Included before every source of the platform's suites: what a device's headers bring along and a
// workstation's do not.
#pragma once

#include <arpa/inet.h>
#include <endian.h>

#include <cstdint>
#include <limits>
#include <sstream>
#include <tuple>
#include <utility>

inline uint64_t htonq(uint64_t value) {
    return htobe64(value);
}

inline uint64_t ntohq(uint64_t value) {
    return be64toh(value);
}

// The device's standard library assigns a tuple of two to a pair; scripts/conformance puts this
// around such a value.
template <typename First, typename Second>
std::pair<First, Second> asPair(std::tuple<First, Second> both) {
    return {std::get<0>(std::move(both)), std::get<1>(std::move(both))};
}

// A suite's own main() comes after ours, which registers the services.
#define main conformanceSuiteMain
