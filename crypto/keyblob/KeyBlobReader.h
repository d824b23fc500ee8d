// Reads the clear part of key blobs.
#pragma once

#include <hardware/keymaster_defs.h>

#include <cstddef>
#include <cstdint>

#include "KeyBlobLayout.h"

namespace keymasterdevice {

// The bytes of a blob, borrowed. The caller of a getter has made sure that the blob reaches past
// the field, with holds().
class KeyBlobView {
  public:
    explicit KeyBlobView(const keymaster_key_blob_t& blob)
        : bytes_(blob.key_material), size_(blob.key_material ? blob.key_material_size : 0) {}

    bool holds(size_t end) const { return size_ >= end; }
    uint8_t byteAt(size_t offset) const { return bytes_[offset]; }
    uint32_t wordAt(size_t offset) const { return static_cast<uint32_t>(little(offset, 4)); }
    uint64_t longAt(size_t offset) const { return little(offset, 8); }

  private:
    uint64_t little(size_t offset, size_t width) const;

    const uint8_t* bytes_;
    size_t size_;
};

// Whether KM_TAG_EARLY_BOOT_ONLY is looked for in blobs of a version that has it.
enum class EarlyBootRule { kRead, kIgnore };

// Builds the hardware- and software-enforced sets from the blob. Their arrays come from malloc and
// are the caller's; an empty set has a non-null array too.
//
// Null `characteristics` is KM_ERROR_OK at once. KM_ERROR_INVALID_KEY_BLOB: too short for the
// fields of its version. KM_ERROR_INVALID_ARGUMENT: a set does not have the number of entries that
// the blob declares, or an array has more elements than room; logged. Also
// KM_ERROR_MEMORY_ALLOCATION_FAILED, logged. After an error the hardware-enforced set, if it was
// good, is the caller's all the same; what was not reached stays as it was.
keymaster_error_t readCharacteristics(const keymaster_key_blob_t& blob, EarlyBootRule rule,
                                      keymaster_key_characteristics_t* characteristics);

}  // namespace keymasterdevice
