// Releasing and emptying what the device core hands out: key blobs, blobs, parameter sets,
// characteristics and certificate chains.
//
// Delivered outputs are released with free by whoever received them. The CBOR decoders allocate
// with array new and the records with malloc; both are one heap on the platform. Before delivery a
// parameter set or chain that a decoder builds is held with one of the two deleters.
#pragma once

#include <hardware/keymaster_defs.h>

#include <cstdlib>

namespace keymasterdevice {

// Whether the value of a parameter is bytes on the heap.
inline bool ownsBlob(const keymaster_key_param_t& param) {
    const keymaster_tag_type_t type = keymaster_tag_get_type(param.tag);
    return type == KM_BIGNUM || type == KM_BYTES;
}

// Free what an output holds and leave it null and zero. An output that holds nothing is fine.
void releaseOutput(keymaster_blob_t* blob);
void releaseOutput(keymaster_key_blob_t* blob);
void releaseOutput(keymaster_key_param_set_t* set);
void releaseOutput(keymaster_key_characteristics_t* characteristics);
void releaseOutput(keymaster_cert_chain_t* chain);

// Set an output to null and zero without freeing anything; a null output is skipped.
template <typename Output>
void clearOutput(Output* output) {
    if (output != nullptr) *output = {};
}

// Releases a chain that was not delivered: the certificates with free, the array with delete[], the
// holder with delete. Every entry has been cleared or filled.
struct CertificateChain_Delete {
    void operator()(keymaster_cert_chain_t* chain) const;
};

}  // namespace keymasterdevice

// Releases the contents of a parameter set that was not delivered: blob values and array with
// delete[]. The set itself stays with its owner, empty. Every element has been filled.
struct keymasterKeyParamSetDelete {
    void operator()(keymaster_key_param_set_t* set) const;
};
