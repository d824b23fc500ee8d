// What a device-core method fills for the service object: released when the HIDL callback has
// returned, on every path. The records are the keymaster HAL's own, so each can be passed wherever
// the device core wants one.
#pragma once

#include <hardware/keymaster_defs.h>

#include "Outputs.h"

namespace keymaster::V4_0 {

// A record that starts empty and releases its contents at the end of its life.
template <typename Record>
struct Output : Record {
    Output() : Record{} {}
    ~Output() { ::keymasterdevice::releaseOutput(this); }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
};

// The device core wants an entry array from its caller and replaces it by the new chain's: the
// placeholder stands in for that array and is never freed.
struct OutputChain : keymaster_cert_chain_t {
    OutputChain() {
        entries = &placeholder;
        entry_count = 1;
    }
    ~OutputChain() {
        if (entries != &placeholder) ::keymasterdevice::releaseOutput(this);
    }
    OutputChain(const OutputChain&) = delete;
    OutputChain& operator=(const OutputChain&) = delete;

    keymaster_blob_t placeholder{};
};

}  // namespace keymaster::V4_0
