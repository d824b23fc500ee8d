// The two services of the system that rows script: dates and the driver of file-based encryption.
#pragma once

#include <string>

namespace lumo::test {

struct SystemScript {
    int failing_gmtime = 0;  // the call to gmtime that fails; 0: none
    int open_errno = 0;
    int ioctl_errno = 0;
    std::string driver_calls;  // what the driver saw
};
// Until the next call of this function, /dev/vaultlink is the script's.
SystemScript& scriptSystem();
SystemScript& systemScript();

}  // namespace lumo::test
