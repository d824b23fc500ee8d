#pragma once

// Stand-in for the service manager's client side: the objects that this process registered itself.
// There is no service manager, so nothing is declared in a manifest or waited for.

#include <string>
#include <vector>

namespace android::hardware {

// The names under which objects of that interface, or of one that extends it, are registered;
// sorted.
std::vector<std::string> getAllHalInstanceNames(const std::string& descriptor);

}  // namespace android::hardware
