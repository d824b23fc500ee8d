// SecureKeyWrapper, the DER structure that a key travels in to a secure import.
#pragma once

#include "inspect/Item.h"

namespace lumo::inspect {

Inspection inspectWrappedKey(Window der);

}  // namespace lumo::inspect
