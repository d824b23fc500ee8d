// Memory that runs out when the input says so.
//
// What the code under test allocates passes here: malloc and operator new as the linker wraps them
// in everything that is linked statically, and libcrypto's own hook where it has one.
#pragma once

#include <cstdint>

namespace lumo::fuzz {

// While it lives, the `nth` allocation of this thread fails, and only that one; 0 fails none.
class FailingAllocation {
  public:
    explicit FailingAllocation(uint32_t nth);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    // Whether the allocation came and failed.
    bool happened() const;
};

// While it lives, nothing fails and nothing is counted: for what stands around the code under test.
class AllocationsSucceed {
  public:
    AllocationsSucceed();
    ~AllocationsSucceed();
    AllocationsSucceed(const AllocationsSucceed&) = delete;
    AllocationsSucceed& operator=(const AllocationsSucceed&) = delete;

  private:
    bool before_;
};

}  // namespace lumo::fuzz
