// The part of a key blob that is not encrypted.
#pragma once

#include <string>

#include "inspect/Item.h"

namespace lumo::inspect {

// Whether the bytes begin as key blobs do.
bool looksLikeKeyBlob(Window bytes);

Inspection inspectKeyBlob(Window blob);

// What the clear parts of two key blobs say differently although the same was asked for, in words;
// empty where nothing is. Left out is what differs by nature: the date of creation, the patch
// levels of the vendor's and the boot image, and bytes that nobody reads.
std::string keyBlobDifference(Window recorded, Window here);

}  // namespace lumo::inspect
