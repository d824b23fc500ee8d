#include "secureapp/keys/RollbackRegistry.h"

#include <algorithm>

#include "secureapp/crypto/Digest.h"

namespace lumo::secureapp {
namespace {

// The SHA-256 of each blob, one behind the other.
constexpr char kRecord[] = "rollback-registry";

// The position of `entry` in the list; the list's size when it is not there.
size_t findEntry(const Bytes& list, const Bytes& entry) {
    for (size_t at = 0; at + entry.size() <= list.size(); at += entry.size()) {
        if (ByteView(list).sub(at, entry.size()).copy() == entry) return at;
    }
    return list.size();
}

void erase(Bytes& list, const Bytes& entry) {
    const size_t at = findEntry(list, entry);
    if (at == list.size()) return;
    const auto first = list.begin() + static_cast<std::ptrdiff_t>(at);
    list.erase(first, first + static_cast<std::ptrdiff_t>(entry.size()));
}

}  // namespace

bool RollbackRegistry::lists(ByteView blob) const {
    const Bytes list = state_.read(kRecord).value_or(Bytes());
    return findEntry(list, sha256(blob)) != list.size();
}

void RollbackRegistry::add(ByteView blob, ByteView replaced) {
    state_.update(kRecord, [&](const std::optional<Bytes>& present) {
        Bytes list = present.value_or(Bytes());
        erase(list, sha256(replaced));
        const Bytes entry = sha256(blob);
        append(list, entry);
        return std::optional<Bytes>(list);
    });
}

void RollbackRegistry::remove(ByteView blob) {
    if (!lists(blob)) return;
    state_.update(kRecord, [&](const std::optional<Bytes>& present) {
        Bytes list = present.value_or(Bytes());
        erase(list, sha256(blob));
        return std::optional<Bytes>(list);
    });
}

void RollbackRegistry::clear() {
    state_.update(kRecord, [](const std::optional<Bytes>&) { return std::optional<Bytes>(); });
}

}  // namespace lumo::secureapp
