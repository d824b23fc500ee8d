// Which bytes of a message are nobody's business but its sender's.
#pragma once

#include <optional>

#include "inspect/Message.h"

namespace lumo::inspect {

// The parts to hide: key material that is sent in, masking keys, application ids and data, the
// plaintext of operations, the MACs of tokens, and everything whose meaning is not known, stale
// bytes among it. Which side of an operation is plaintext depends on its purpose; without one,
// both are. A part that is zeros already says nothing, unless its meaning makes it a secret.
std::vector<Hidden> partsToHide(const Message& message, ByteView bytes,
                                std::optional<uint32_t> purpose);

// Replaces the parts by zeros.
void hide(Bytes& bytes, const std::vector<Hidden>& parts);

}  // namespace lumo::inspect
