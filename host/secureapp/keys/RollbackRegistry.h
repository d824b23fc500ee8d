// The list of rollback-resistant keys that are not deleted. It lists their blobs, not their ids,
// because a key can be deleted by a caller who cannot open it.
//
// Upgrading gives a key another blob, which its owner may fail to store. So the old and the new
// blob share one registration: both open until the new one is first used.
#pragma once

#include <optional>
#include <vector>

#include "secureapp/base/Bytes.h"
#include "secureapp/base/Environment.h"

namespace lumo::secureapp {

class RollbackRegistry {
  public:
    explicit RollbackRegistry(State& state) : state_(state) {}

    bool lists(ByteView blob);
    // Whether there is room for another key.
    bool hasRoom();
    // Registers a new key. KM_ERROR_ROLLBACK_RESISTANCE_UNAVAILABLE where there is no room.
    void add(ByteView blob);
    // Registers `blob` beside `replaced`, the same key's.
    void addBeside(ByteView replaced, ByteView blob);
    // The key is used through this blob: the older ones that it replaces are dropped.
    void use(ByteView blob);
    // Removes the key with all its blobs.
    void remove(ByteView blob);
    // Works on a damaged record too.
    void clear();

  private:
    // The record as it was read last, and where its digests are.
    struct Index {
        Bytes record;
        std::vector<uint32_t> sorted;  // offsets of the digests, in the order of the digests
        std::vector<size_t> groups;    // offsets of keys with several blobs
    };

    // Read again only when the record has changed.
    const Index& current();

    State& state_;
    Index index_;
    std::optional<Bytes> stamp_;  // of the record that `index_` was read from
};

}  // namespace lumo::secureapp
