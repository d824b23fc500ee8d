// What a device-core method fills for the service object: released with free when the HIDL callback
// has returned, on every path. The records inside are the keymaster HAL's own, so each can be
// passed wherever the device core wants one.
#pragma once

#include <hardware/keymaster_defs.h>

#include <cstdint>
#include <cstdlib>

namespace keymaster::V4_0 {

// The interfaces say const, but the receiver owns the memory.
inline void release(const void* memory) {
    std::free(const_cast<void*>(memory));
}

// Frees the blobs of a set, then its array.
inline void releaseParams(keymaster_key_param_set_t* set) {
    for (size_t i = 0; set->params != nullptr && i < set->length; ++i) {
        // Big numbers and bytes: their types differ in the lowest type bit alone.
        const auto tag = static_cast<uint32_t>(set->params[i].tag);
        if (((tag & 0xF0000000U) | 0x10000000U) != 0x90000000U) continue;
        release(set->params[i].blob.data);
        set->params[i].blob.data = nullptr;
    }
    release(set->params);
    *set = {};
}

inline void releaseContents(keymaster_blob_t* blob) {
    release(blob->data);
}
inline void releaseContents(keymaster_key_blob_t* blob) {
    release(blob->key_material);
}
inline void releaseContents(keymaster_key_param_set_t* set) {
    releaseParams(set);
}
inline void releaseContents(keymaster_key_characteristics_t* sets) {
    releaseParams(&sets->hw_enforced);
    releaseParams(&sets->sw_enforced);
}

// A record that starts empty and releases its contents at the end of its life.
template <typename Record>
struct Output : Record {
    Output() { static_cast<Record&>(*this) = {}; }
    ~Output() { releaseContents(this); }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
};

// The device core wants an entry array from its caller and replaces it by the new chain's: the
// placeholder is there for that and is never freed.
struct OutputChain : keymaster_cert_chain_t {
    OutputChain() {
        entries = &placeholder;
        entry_count = 1;
    }
    ~OutputChain() {
        if (entries == &placeholder) return;
        for (size_t i = 0; entries != nullptr && i < entry_count; ++i) release(entries[i].data);
        release(entries);
    }
    OutputChain(const OutputChain&) = delete;
    OutputChain& operator=(const OutputChain&) = delete;

    keymaster_blob_t placeholder{};
};

}  // namespace keymaster::V4_0
