// The binder threads of a service process.
#pragma once

#include <cstddef>

namespace android::hardware {

void configureRpcThreadpool(size_t maxThreads, bool callerWillJoin);
void joinRpcThreadpool();

}  // namespace android::hardware
