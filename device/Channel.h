// The way to one secure application.
#pragma once

namespace keymasterutils {
class KeymasterUtils;
}

namespace keymasterdevice {

// What an exchange knows of its device. The transport stays the device's.
struct Channel {
    keymasterutils::KeymasterUtils& transport;
    bool strongbox;  // sends the identifiers of StrongBox
};

}  // namespace keymasterdevice
