// The list of rollback-resistant keys that are alive. It names their blobs, not their ids: whoever
// deletes a key need not be able to open it.
#pragma once

#include "secureapp/base/Bytes.h"
#include "secureapp/base/Environment.h"

namespace lumo::secureapp {

class RollbackRegistry {
  public:
    explicit RollbackRegistry(State& state) : state_(state) {}

    bool lists(ByteView blob) const;
    // Adds `blob`, in the place of `replaced` where that was listed.
    void add(ByteView blob, ByteView replaced);
    void remove(ByteView blob);
    void clear();

  private:
    State& state_;
};

}  // namespace lumo::secureapp
