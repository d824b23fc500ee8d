#pragma once

// System properties of a workstation. They come from a file in build.prop syntax: one `name=value`
// in a line, spaces around either ignored, empty lines and lines that begin with '#' ignored. The
// file is the one that the environment variable LUMO_PROPERTIES names (/dev/null for none), or the
// project's own if that is unset or empty.
//
// The file is loaded into libbase's in-process store once, at the first property_get,
// WaitForPropertyCreation or call below; android::base::GetProperty alone does not load it. What
// android::base::SetProperty set before that stays. The store has no lock: load and set properties
// before starting threads.

#include <string>
#include <vector>

namespace lumo {

struct PropertyFile {
    std::string path;
    std::string error;  // one line that names the file (and line); empty if it was loaded
};

// Loads the properties if that has not happened yet. Nothing of a faulty file is used.
const PropertyFile& loadProperties();

// Those of the names that do not exist, in the order given.
std::vector<std::string> missingProperties(const std::vector<std::string>& names);

}  // namespace lumo
