#include "LegacyDevice.h"

#include <cstdlib>

namespace lumo::test {

void LegacyDevice::restart() {
    script().reset(0xEE);
    script().legacy = true;
}

keymaster_key_blob_t keyOf(const Bytes& bytes) {
    return {bytes.data(), bytes.size()};
}

keymaster_blob_t blobOf(const Bytes& bytes) {
    return {bytes.data(), bytes.size()};
}

keymaster_key_param_set_t setOf(std::vector<keymaster_key_param_t>& params) {
    return {params.data(), params.size()};
}

void Outputs::release() {
    std::free(const_cast<uint8_t*>(key.key_material));
    std::free(const_cast<uint8_t*>(data.data));
    keymaster_free_param_set(&params);
    keymaster_free_characteristics(&characteristics);
    for (size_t i = 0; i < chain.entry_count; ++i) {
        std::free(const_cast<uint8_t*>(chain.entries[i].data));
    }
    std::free(chain.entries);
    key = {};
    data = {};
    chain = {};
}

Bytes bytesOf(const keymaster_key_blob_t& key) {
    return {key.key_material, key.key_material + key.key_material_size};
}

Bytes bytesOf(const keymaster_blob_t& blob) {
    return {blob.data, blob.data + blob.data_length};
}

Bytes plainKeyBlob(size_t size) {
    Bytes blob = words({0x4B4D4B44, 0, 0, 4});
    blob.resize(size);
    return blob;
}

Bytes fill(size_t count, uint8_t value) {
    return Bytes(count, value);
}

}  // namespace lumo::test
