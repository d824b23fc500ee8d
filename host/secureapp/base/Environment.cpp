#include "secureapp/base/Environment.h"

#include <utility>

namespace lumo::secureapp {

namespace {

void requireSize(const std::string& name, const Bytes& secret, size_t count) {
    if (secret.size() == count) return;
    throw StateError("the record '" + name + "' has " + std::to_string(secret.size()) +
                     " bytes instead of " + std::to_string(count) +
                     "; put a copy of it back, or remove the state to start anew");
}

}  // namespace

LastingSecret::LastingSecret(State& state, RandomSource& random, std::string name, size_t count)
    : state_(state), name_(std::move(name)) {
    const std::optional<Bytes> present = state_.read(name_);
    stored_ = present.has_value();
    bytes_ = present ? *present : random.bytes(count);
    requireSize(name_, bytes_, count);
}

const Bytes& LastingSecret::bytes() {
    if (stored_) return bytes_;
    state_.update(name_, [&](const std::optional<Bytes>& present) {
        Bytes stored = present.value_or(bytes_);
        requireSize(name_, stored, bytes_.size());
        return bytes_ = std::move(stored);
    });
    stored_ = true;
    return bytes_;
}

Bytes lastingSecret(State& state, RandomSource& random, const std::string& name, size_t count) {
    return LastingSecret(state, random, name, count).bytes();
}

}  // namespace lumo::secureapp
