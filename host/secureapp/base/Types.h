// The secure application's basic types: bytes, authorizations and the one error type.
#pragma once

#include <hardware/keymaster_defs.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <vector>

namespace lumo::secureapp {

using Bytes = std::vector<uint8_t>;

// Borrowed bytes; valid as long as what they were taken from.
class ByteView {
  public:
    ByteView() = default;
    ByteView(const uint8_t* data, size_t size) : data_(data), size_(size) {}
    ByteView(const Bytes& bytes) : data_(bytes.data()), size_(bytes.size()) {}  // NOLINT: implicit

    const uint8_t* data() const { return data_; }
    size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    const uint8_t* begin() const { return data_; }
    const uint8_t* end() const { return data_ + size_; }
    uint8_t operator[](size_t i) const { return data_[i]; }
    // At most `size` bytes from `offset` on; what lies outside is left out.
    ByteView sub(size_t offset, size_t size = SIZE_MAX) const;
    Bytes copy() const { return {begin(), end()}; }

  private:
    const uint8_t* data_ = nullptr;
    size_t size_ = 0;
};

// Every refusal inside the secure application; the protocol faces turn it into a status.
class Refusal : public std::exception {
  public:
    explicit Refusal(keymaster_error_t code) : code_(code) {}
    keymaster_error_t code() const { return code_; }
    const char* what() const noexcept override { return "refused by the secure application"; }

  private:
    keymaster_error_t code_;
};

[[noreturn]] void refuse(keymaster_error_t code);

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

    size_t size() const { return params_.size(); }
    bool empty() const { return params_.empty(); }
    auto begin() const { return params_.begin(); }
    auto end() const { return params_.end(); }
    const Param& operator[](size_t i) const { return params_[i]; }

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
