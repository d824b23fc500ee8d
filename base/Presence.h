// "Is there anything in it": what an optional argument has to be to count. Whether a command wants
// one, and what it says where there is none, is the command's own rule.
#pragma once

#include <hardware/keymaster_defs.h>

namespace keymasterdevice {

// Neither null nor without an array nor empty.
inline bool isPresent(const keymaster_blob_t* blob) {
    return blob != nullptr && blob->data != nullptr && blob->data_length != 0;
}

inline bool isPresent(const keymaster_key_blob_t* blob) {
    return blob != nullptr && blob->key_material != nullptr && blob->key_material_size != 0;
}

inline bool isPresent(const keymaster_key_param_set_t* set) {
    return set != nullptr && set->params != nullptr && set->length != 0;
}

// Not null and with an array, which may be empty.
inline bool hasArray(const keymaster_key_blob_t* blob) {
    return blob != nullptr && blob->key_material != nullptr;
}

}  // namespace keymasterdevice
