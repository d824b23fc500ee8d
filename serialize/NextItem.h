// Fetching items from a message, for the readers of this folder.
#pragma once

#include <cstring>

#include "CborHelpers.h"

namespace keymasterdevice {

// QCBOR leaves the fields alone that do not apply, such as the label outside a map. All ones there
// are no label's type and no value's type.
inline void fillWithOnes(QCBORItem* item) {
    std::memset(item, 0xFF, sizeof(*item));
}

// Fetches the next item. The reader's error becomes QCBOR's code; returns whether that is success.
inline bool fetchNext(CborReader* reader, QCBORItem* item) {
    fillWithOnes(item);
    reader->error = QCBORDecode_GetNext(reader->decoder, item);
    return reader->error == QCBOR_SUCCESS;
}

}  // namespace keymasterdevice
