#pragma once

// Stand-in for the HIDL runtime's value types: vectors, strings, arrays and handles, with the
// published layouts and operations. Three hazards of the platform's are removed, where no correct
// caller can tell: a moved-from vector is empty, moving a vector onto itself keeps it, and
// assigning a view of a vector's own buffer to that vector copies before it frees. hidl_memory and
// arrays of more than one dimension are left out.

#include <cutils/native_handle.h>
#include <hidl/HidlInternal.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <ostream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace android::hidl::base::V1_0 {
struct IBase;
}

namespace android::hardware {

// ---- vectors ------------------------------------------------------------------------------------

namespace details {

// Random-access iterator of hidl_vec; T is const for the const iterator.
template <typename T>
class hidl_vec_iterator {
  public:
    using iterator_category = std::random_access_iterator_tag;
    using value_type = std::remove_const_t<T>;
    using difference_type = ptrdiff_t;
    using pointer = T*;
    using reference = T&;

    hidl_vec_iterator() = default;
    hidl_vec_iterator(T* at) : at_(at) {}

    reference operator*() const { return *at_; }
    pointer operator->() const { return at_; }
    reference operator[](difference_type n) const { return at_[n]; }

    hidl_vec_iterator& operator++() { return *this += 1; }
    hidl_vec_iterator& operator--() { return *this -= 1; }
    hidl_vec_iterator operator++(int) { return std::exchange(*this, *this + 1); }
    hidl_vec_iterator operator--(int) { return std::exchange(*this, *this - 1); }
    hidl_vec_iterator& operator+=(difference_type n) {
        at_ += n;
        return *this;
    }
    hidl_vec_iterator& operator-=(difference_type n) {
        at_ -= n;
        return *this;
    }
    hidl_vec_iterator operator+(difference_type n) const { return at_ + n; }
    hidl_vec_iterator operator-(difference_type n) const { return at_ - n; }
    friend hidl_vec_iterator operator+(difference_type n, hidl_vec_iterator it) { return it + n; }
    difference_type operator-(hidl_vec_iterator other) const { return at_ - other.at_; }

    bool operator==(hidl_vec_iterator other) const { return at_ == other.at_; }
    bool operator!=(hidl_vec_iterator other) const { return at_ != other.at_; }
    bool operator<(hidl_vec_iterator other) const { return at_ < other.at_; }
    bool operator>(hidl_vec_iterator other) const { return at_ > other.at_; }
    bool operator<=(hidl_vec_iterator other) const { return at_ <= other.at_; }
    bool operator>=(hidl_vec_iterator other) const { return at_ >= other.at_; }

  private:
    T* at_ = nullptr;
};

}  // namespace details

// An array on the heap that either owns its elements (`new T[]`) or refers to someone else's.
// Copies always own; a moved reference stays a reference. Whether data() of an empty vector is null
// depends on its history: ask size().
template <typename T>
struct hidl_vec {
    using value_type = T;
    using iterator = details::hidl_vec_iterator<T>;
    using const_iterator = details::hidl_vec_iterator<const T>;

    hidl_vec() = default;
    hidl_vec(size_t size) { resize(size); }  // value-initialised elements
    hidl_vec(const hidl_vec& other) { *this = other; }
    hidl_vec(hidl_vec&& other) noexcept { *this = std::move(other); }
    hidl_vec(std::initializer_list<T> list) : hidl_vec(list.begin(), list.end()) {}
    hidl_vec(const std::vector<T>& other) { *this = other; }

    template <
        typename Iterator,
        typename = std::enable_if_t<std::is_convertible_v<
            typename std::iterator_traits<Iterator>::iterator_category, std::forward_iterator_tag>>>
    hidl_vec(Iterator first, Iterator last) {
        adoptCopy(first, static_cast<size_t>(std::distance(first, last)));
    }

    ~hidl_vec() {
        static_assert(offsetof(hidl_vec, buffer_) == 0, "published layout");
        static_assert(offsetof(hidl_vec, size_) == 8, "published layout");
        static_assert(offsetof(hidl_vec, ownsBuffer_) == 12, "published layout");
        release();
    }

    hidl_vec& operator=(const hidl_vec& other) {
        if (this != &other) assignCopy(other.data(), other.size());
        return *this;
    }

    hidl_vec& operator=(hidl_vec&& other) noexcept {
        if (this == &other) return *this;
        // A view of our own buffer would dangle once the buffer is freed.
        if (ownsBuffer_ && !other.ownsBuffer_ && contains(other.data())) {
            return *this = static_cast<const hidl_vec&>(other);
        }
        release();
        buffer_ = std::exchange(other.buffer_, nullptr);
        size_ = std::exchange(other.size_, 0);
        ownsBuffer_ = std::exchange(other.ownsBuffer_, true);
        return *this;
    }

    hidl_vec& operator=(const std::vector<T>& other) {
        assignCopy(other.begin(), other.size());
        return *this;
    }

    hidl_vec& operator=(std::initializer_list<T> list) {
        assignCopy(list.begin(), list.size());
        return *this;
    }

    operator std::vector<T>() const { return std::vector<T>(data(), data() + size_); }

    T* data() { return buffer_; }
    const T* data() const { return buffer_; }
    size_t size() const { return size_; }

    T& operator[](size_t index) { return data()[index]; }
    const T& operator[](size_t index) const { return data()[index]; }

    iterator begin() { return data(); }
    iterator end() { return data() + size_; }
    const_iterator begin() const { return data(); }
    const_iterator end() const { return data() + size_; }

    // Copies the elements that fit into a fresh owned buffer; the others are value-initialised. A
    // view becomes an owned copy.
    void resize(size_t size) {
        hidl_vec fresh = own(new T[checkedSize(size)](), size);
        const size_t kept = std::min(size, this->size());
        if (ownsBuffer_) {
            std::move(data(), data() + kept, fresh.data());
        } else {
            std::copy(data(), data() + kept, fresh.data());
        }
        *this = std::move(fresh);
    }

    // Refers to `data` from now on. With shouldOwn the vector frees it later with delete[].
    void setToExternal(T* data, size_t size, bool shouldOwn = false) {
        release();
        buffer_ = data;
        size_ = checkedSize(size);
        ownsBuffer_ = shouldOwn;
    }

    // Hands the elements to the caller, who frees them with delete[]; a view is copied first. The
    // vector can still be read while they live.
    T* releaseData() {
        if (!ownsBuffer_ && size_ == 0) return nullptr;
        if (!ownsBuffer_) resize(size_);
        ownsBuffer_ = false;
        return buffer_;
    }

    bool operator==(const hidl_vec& other) const {
        return size_ == other.size_ && std::equal(data(), data() + size_, other.data());
    }
    bool operator!=(const hidl_vec& other) const { return !(*this == other); }

  private:
    static uint32_t checkedSize(size_t size) {
        if (size > std::numeric_limits<uint32_t>::max()) {
            details::logAlwaysFatal("hidl_vec can't hold more than 2^32 - 1 elements");
        }
        return static_cast<uint32_t>(size);
    }

    static hidl_vec own(T* data, size_t size) {
        hidl_vec fresh;
        fresh.setToExternal(data, size, true);
        return fresh;
    }

    bool contains(const T* at) const {
        const std::less<const T*> before;
        return buffer_ != nullptr && !before(at, data()) && before(at, data() + size_);
    }

    void release() {
        if (ownsBuffer_) delete[] static_cast<T*>(buffer_);
    }

    // Copies before the old buffer is freed: the source may lie in it. Elements are not cleared
    // first, and those of a trivial type are copied as one block.
    template <typename Iterator>
    void adoptCopy(Iterator from, size_t count) {
        hidl_vec copy = own(new T[checkedSize(count)], count);
        if constexpr (std::is_same_v<typename std::iterator_traits<Iterator>::value_type, T>) {
            std::copy_n(from, count, copy.data());
        } else {
            std::transform(from, std::next(from, static_cast<ptrdiff_t>(count)), copy.data(),
                           [](const auto& element) { return static_cast<T>(element); });
        }
        *this = std::move(copy);
    }

    // Assigning nothing leaves data() null, as default construction does.
    template <typename Iterator>
    void assignCopy(Iterator from, size_t count) {
        if (count == 0) return setToExternal(nullptr, 0, true);
        adoptCopy(from, count);
    }

    details::hidl_pointer<T> buffer_ = nullptr;
    uint32_t size_ = 0;
    bool ownsBuffer_ = true;
};

static_assert(sizeof(hidl_vec<uint8_t>) == 16 && alignof(hidl_vec<uint8_t>) == 8,
              "published layout");
static_assert(std::is_standard_layout_v<hidl_vec<uint8_t>>, "published layout");

// ---- strings ------------------------------------------------------------------------------------

// Text with its length and a terminator after it; owned, or referring to someone else's. The
// comparisons are those of C strings: what follows an embedded NUL does not count.
struct hidl_string {
    hidl_string() = default;
    ~hidl_string() { release(); }
    hidl_string(const hidl_string& other) { *this = other; }
    hidl_string(const char* text) { *this = text; }  // null means empty
    hidl_string(const char* text, size_t length) { assignCopy(text, length); }
    hidl_string(const std::string& text) { *this = text; }
    hidl_string(hidl_string&& other) noexcept { *this = std::move(other); }

    hidl_string& operator=(const hidl_string& other);
    hidl_string& operator=(const char* text);
    hidl_string& operator=(const std::string& text);
    hidl_string& operator=(hidl_string&& other) noexcept;

    const char* c_str() const { return buffer_; }  // never null
    size_t size() const { return size_; }          // without the terminator
    bool empty() const { return size_ == 0; }
    void clear() { setToExternal("", 0); }
    operator std::string() const { return std::string(c_str(), size_); }

    // Refers to `text`, which must have a terminator at index `size`.
    void setToExternal(const char* text, size_t size);

  private:
    void release();
    void assignCopy(const char* text, size_t length);

    details::hidl_pointer<const char> buffer_ = "";
    uint32_t size_ = 0;
    bool ownsBuffer_ = false;
};

static_assert(sizeof(hidl_string) == 16 && alignof(hidl_string) == 8, "published layout");

#define LUMO_HIDL_STRING_COMPARISON(op)                                   \
    inline bool operator op(const hidl_string& a, const hidl_string& b) { \
        return strcmp(a.c_str(), b.c_str()) op 0;                         \
    }                                                                     \
    inline bool operator op(const hidl_string& a, const char* b) {        \
        return strcmp(a.c_str(), b) op 0;                                 \
    }                                                                     \
    inline bool operator op(const char* a, const hidl_string& b) {        \
        return strcmp(a, b.c_str()) op 0;                                 \
    }
LUMO_HIDL_STRING_COMPARISON(==)
LUMO_HIDL_STRING_COMPARISON(!=)
LUMO_HIDL_STRING_COMPARISON(<)
LUMO_HIDL_STRING_COMPARISON(<=)
LUMO_HIDL_STRING_COMPARISON(>)
LUMO_HIDL_STRING_COMPARISON(>=)
#undef LUMO_HIDL_STRING_COMPARISON

inline std::ostream& operator<<(std::ostream& out, const hidl_string& text) {
    return out << text.c_str();
}

// ---- arrays -------------------------------------------------------------------------------------

template <typename T, size_t kSize, size_t... kMoreSizes>
struct hidl_array;

// A bare buffer: `hidl_array<T, N> a;` is not initialised, `a{}` is zeros.
template <typename T, size_t kSize>
struct hidl_array<T, kSize> {
    hidl_array() = default;
    hidl_array(const T* source) { std::copy_n(source, kSize, buffer_); }  // kSize elements
    hidl_array(const std::array<T, kSize>& source) : hidl_array(source.data()) {}

    operator std::array<T, kSize>() const {
        std::array<T, kSize> copy;
        std::copy_n(buffer_, kSize, copy.begin());
        return copy;
    }

    T* data() { return buffer_; }
    const T* data() const { return buffer_; }
    T& operator[](size_t index) { return buffer_[index]; }
    const T& operator[](size_t index) const { return buffer_[index]; }

    bool operator==(const hidl_array& other) const {
        return std::equal(buffer_, buffer_ + kSize, other.buffer_);
    }
    bool operator!=(const hidl_array& other) const { return !(*this == other); }

    static constexpr size_t size() { return kSize; }
    static constexpr size_t elementCount() { return kSize; }

  private:
    T buffer_[kSize];
};

static_assert(sizeof(hidl_array<uint8_t, 32>) == 32 && alignof(hidl_array<uint8_t, 32>) == 1,
              "published layout");
static_assert(std::is_trivially_copyable_v<hidl_array<uint8_t, 32>>, "published layout");

// ---- handles ------------------------------------------------------------------------------------

// File descriptors and integers passed between processes. Copies clone and own them.
struct hidl_handle {
    hidl_handle() = default;
    ~hidl_handle() { release(); }
    hidl_handle(const native_handle_t* handle) : handle_(handle) {}  // does not own
    hidl_handle(const hidl_handle& other) { *this = other; }
    hidl_handle(hidl_handle&& other) noexcept { *this = std::move(other); }

    hidl_handle& operator=(const hidl_handle& other);
    hidl_handle& operator=(const native_handle_t* handle);
    hidl_handle& operator=(hidl_handle&& other) noexcept;

    void setTo(native_handle_t* handle, bool shouldOwn = false);

    const native_handle_t* operator->() const { return handle_; }
    operator const native_handle_t*() const { return handle_; }
    const native_handle_t* getNativeHandle() const { return handle_; }

  private:
    void release();

    details::hidl_pointer<const native_handle_t> handle_ = nullptr;
    bool ownsHandle_ = false;
};

static_assert(sizeof(hidl_handle) == 16 && alignof(hidl_handle) == 8, "published layout");

struct hidl_death_recipient : public virtual RefBase {
    virtual void serviceDied(uint64_t cookie, const wp<hidl::base::V1_0::IBase>& who) = 0;
};

// ---- enumerations -------------------------------------------------------------------------------

template <typename Enum>
using hidl_bitfield = std::underlying_type_t<Enum>;

namespace details {
// The values of an enumeration in the order of their declaration; interface types specialise it.
template <typename Enum>
constexpr std::array<Enum, 0> hidl_enum_values = {};
}  // namespace details

// for (Tag tag : hidl_enum_range<Tag>()) ...
template <typename Enum>
struct hidl_enum_range {
    constexpr auto begin() const { return details::hidl_enum_values<Enum>.begin(); }
    constexpr auto end() const { return details::hidl_enum_values<Enum>.end(); }
    constexpr auto cbegin() const { return begin(); }
    constexpr auto cend() const { return end(); }
};

// ---- texts --------------------------------------------------------------------------------------

template <typename T, typename = std::enable_if_t<std::is_arithmetic_v<T>>>
std::string toString(T value) {
    return std::to_string(value);
}

inline std::string toString(const hidl_string& text) {
    return '"' + std::string(text.c_str()) + '"';
}

template <typename T>
std::string toString(const hidl_vec<T>& elements);

namespace details {

template <typename Elements>
std::string elementsToString(const Elements& elements) {
    std::string text = "[" + std::to_string(elements.size()) + "]{";
    for (size_t i = 0; i < elements.size(); ++i) {
        if (i != 0) text += ", ";
        text += toString(elements[i]);
    }
    return text + "}";
}

// The names of the values whose bits are all set, joined by " | ", then the remaining bits, then
// all bits in parentheses.
template <typename Enum>
std::string bitsToString(std::underlying_type_t<Enum> bits) {
    using Bits = std::underlying_type_t<Enum>;
    std::string text;
    Bits named = 0;
    const auto append = [&text](const std::string& part) {
        text += (text.empty() ? "" : " | ") + part;
    };
    for (const Enum value : hidl_enum_range<Enum>()) {
        if ((bits & static_cast<Bits>(value)) != static_cast<Bits>(value)) continue;
        append(toString(value));
        named = static_cast<Bits>(named | static_cast<Bits>(value));
    }
    if (bits != named) append(toHexString(static_cast<Bits>(bits & ~named)));
    return text + " (" + toHexString(bits) + ")";
}

}  // namespace details

// "[count]{a, b, ...}"
template <typename T>
std::string toString(const hidl_vec<T>& elements) {
    return details::elementsToString(elements);
}

template <typename T, size_t kSize>
std::string toString(const hidl_array<T, kSize>& elements) {
    return details::elementsToString(elements);
}

}  // namespace android::hardware

// The published header includes Status and Return; they need the types above.
#include <hidl/Status.h>
