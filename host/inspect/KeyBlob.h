// The part of a key blob that is not encrypted.
#pragma once

#include "inspect/Item.h"

namespace lumo::inspect {

// Whether the bytes begin as key blobs do.
bool looksLikeKeyBlob(Window bytes);

Inspection inspectKeyBlob(Window blob);

}  // namespace lumo::inspect
