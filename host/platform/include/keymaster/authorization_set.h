#pragma once

// Stand-in for libkeymaster's AuthorizationSet: a parameter set that owns its parameters and their
// bytes. Serialisation, typed tags and the set operations are left out. Unlike the platform's, a
// set may be loaded from or extended with its own content.

#include <hardware/keymaster_defs.h>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace keymaster {

// Wipes a block from malloc before it goes back to the heap.
struct WipeAndFree {
    size_t size = 0;
    void operator()(void* block) const;
};

// The inherited record can be read (and passed on) as it stands, but only until the set changes:
// then its pointers go stale. All memory is wiped before it is freed. Not thread safe.
class AuthorizationSet : public keymaster_key_param_set_t {
  public:
    // OK is 0: compare is_valid() with it.
    enum Error { OK, ALLOCATION_FAILURE, MALFORMED_DATA };

    AuthorizationSet() : keymaster_key_param_set_t{nullptr, 0} {}
    AuthorizationSet(const keymaster_key_param_t* elems, size_t count);
    explicit AuthorizationSet(const keymaster_key_param_set_t& set);
    AuthorizationSet(const AuthorizationSet& other);
    AuthorizationSet(AuthorizationSet&& other) noexcept;
    AuthorizationSet& operator=(const AuthorizationSet& other);
    AuthorizationSet& operator=(AuthorizationSet&& other) noexcept;
    ~AuthorizationSet() = default;

    Error is_valid() const { return error_; }

    // Replaces the content by deep copies; the set is valid again. False, with an empty and invalid
    // set, if memory runs out, or if a pointer is null where its length is not 0.
    bool Reinitialize(const keymaster_key_param_t* elems, size_t count);
    bool Reinitialize(const AuthorizationSet& set) { return Reinitialize(set.params, set.length); }
    bool Reinitialize(const keymaster_key_param_set_t& set) {
        return Reinitialize(set.params, set.length);
    }

    // Appends deep copies. Fails as Reinitialize does, and always on an invalid set.
    bool push_back(keymaster_key_param_t elem);
    bool push_back(const keymaster_key_param_set_t& set);

    void Clear();

    const keymaster_key_param_t* data() const { return params; }
    const keymaster_key_param_t* begin() const { return params; }
    const keymaster_key_param_t* end() const { return params + length; }
    size_t size() const { return length; }
    bool empty() const { return length == 0; }

    // A parameter with KM_TAG_INVALID if the index is out of range.
    keymaster_key_param_t& operator[](int at);
    keymaster_key_param_t operator[](int at) const;

    // Index of the first parameter with this tag after `begin`, or -1.
    int find(keymaster_tag_t tag, int begin = -1) const;
    bool Contains(keymaster_tag_t tag) const { return find(tag) != -1; }

  private:
    using Block = std::unique_ptr<void, WipeAndFree>;

    bool replaceBy(const keymaster_key_param_set_t& first, const keymaster_key_param_set_t& second);
    bool fail(Error error);
    void adopt(Block block, size_t count);

    Block block_;  // the parameters, then the bytes that they point to
    Error error_ = OK;
    keymaster_key_param_t outOfRange_ = {};
};

}  // namespace keymaster
