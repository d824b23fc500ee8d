// What a service manager is told that started the daemon as a service of Type=notify.
#pragma once

#include <string>

#include "secureapp/daemon/Log.h"

namespace lumo::secureapp {

// One assignment, such as "READY=1", to the datagram socket that NOTIFY_SOCKET names: a path, or
// "@" and a name in the abstract namespace. Nothing where the variable is not set; what cannot be
// told is logged.
void notifyManager(const std::string& state, const Log& log);

}  // namespace lumo::secureapp
