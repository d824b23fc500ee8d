// Authorizations, one by one and in lists.
#pragma once

#include <hardware/keymaster_defs.h>

#include <initializer_list>
#include <optional>
#include <utility>
#include <vector>

#include "secureapp/base/Bytes.h"
#include "secureapp/base/NewerNames.h"

namespace lumo::secureapp {

// One authorization. Numbers, enumerations, dates and booleans (1) are in `integer`; byte strings
// and big numbers in `bytes`.
struct Param {
    keymaster_tag_t tag = KM_TAG_INVALID;
    uint64_t integer = 0;
    Bytes bytes;

    bool operator==(const Param& other) const {
        return tag == other.tag && integer == other.integer && bytes == other.bytes;
    }
};

Param intParam(keymaster_tag_t tag, uint64_t value);
Param boolParam(keymaster_tag_t tag);
Param bytesParam(keymaster_tag_t tag, ByteView value);

// An ordered list of authorizations, repeated tags included.
class ParamSet {
  public:
    ParamSet() = default;
    ParamSet(std::initializer_list<Param> params) : params_(params) {}

    void add(Param param) { params_.push_back(std::move(param)); }
    void add(const ParamSet& others);
    void removeAll(keymaster_tag_t tag);

    void reserve(size_t count) { params_.reserve(count); }

    size_t size() const { return params_.size(); }
    bool empty() const { return params_.empty(); }
    auto begin() const { return params_.begin(); }
    auto end() const { return params_.end(); }
    const Param& operator[](size_t i) const { return params_[i]; }

    // At most `count` entries from `first` on.
    ParamSet part(size_t first, size_t count) const;

    bool contains(keymaster_tag_t tag) const { return find(tag) != nullptr; }
    bool contains(keymaster_tag_t tag, uint64_t value) const;
    size_t count(keymaster_tag_t tag) const;
    // The first entry of the tag, or null.
    const Param* find(keymaster_tag_t tag) const;
    std::optional<uint64_t> integer(keymaster_tag_t tag) const;
    std::vector<uint64_t> integers(keymaster_tag_t tag) const;
    // The first entry's bytes; empty when the tag is absent.
    ByteView bytes(keymaster_tag_t tag) const;

  private:
    std::vector<Param> params_;
};

}  // namespace lumo::secureapp
