// Reading traces, for the commands that show them or send them again.
#pragma once

#include <functional>
#include <string>

#include "Command.h"
#include "inspect/TraceLine.h"

namespace lumo::cli {

struct TraceCounts {
    size_t lines = 0;  // without empty ones
    size_t unreadable = 0;
};

// Calls `use` with each line that can be read, numbered from 1, until it returns false. The others
// are named on standard error: a process that is killed while it writes leaves a part of a line.
// Throws Failure where the file cannot be read, or none of its lines can, or there are none.
TraceCounts readTrace(const std::string& path,
                      const std::function<bool(size_t number, const inspect::Exchange&,
                                               const std::string& line)>& use);

// Ends a command that is done, but could not read all lines. Nothing is lost in silence: whoever
// looks at the exit status alone learns of it, too.
void requireAllRead(const Common& common, const TraceCounts& counts);

// "12  11:02:03.000001  client 77/1  begin (0x210f)  trusted environment  OK  45 us", without a
// line end.
std::string headOf(size_t number, const inspect::Exchange& exchange);

}  // namespace lumo::cli
