// A line in the log for each exchange, for who wants to watch: see logExchanges().
#pragma once

#include <cstddef>
#include <cstdint>

#include "inspect/Commands.h"

namespace lumo::transport {

void setExchangeLog(bool wanted);
bool exchangesAreLogged();

// Of the calling thread's latest exchange, before another one is made. For a record `response` is
// the room for the answer.
void logExchange(inspect::Wire wire, uint32_t command, size_t request, size_t response);

}  // namespace lumo::transport
