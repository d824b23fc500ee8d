#include "OneCaller.h"

#include <android/log.h>

namespace lumo::transport {

void OneCaller::complain() {
    __android_log_assert("one caller", "lumo-transport",
                         "two threads are in one keymaster device object at once; it takes no "
                         "lock, so call it from one thread at a time, as a service with one binder "
                         "thread does");
}

}  // namespace lumo::transport
