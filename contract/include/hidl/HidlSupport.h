// The HIDL runtime's value types, without bodies.
#pragma once

#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <string>
#include <type_traits>
#include <vector>

struct native_handle;
typedef struct native_handle native_handle_t;

namespace android::hardware {

namespace details {

struct i_tag {};

template <typename T>
struct hidl_vec_iterator {
    using iterator_category = std::random_access_iterator_tag;
    using value_type = std::remove_const_t<T>;
    using difference_type = ptrdiff_t;
    using pointer = T*;
    using reference = T&;

    hidl_vec_iterator(T* at);
    reference operator*() const;
    pointer operator->() const;
    reference operator[](difference_type n) const;
    hidl_vec_iterator& operator++();
    hidl_vec_iterator operator++(int);
    hidl_vec_iterator& operator+=(difference_type n);
    hidl_vec_iterator operator+(difference_type n) const;
    difference_type operator-(const hidl_vec_iterator& other) const;
    bool operator==(const hidl_vec_iterator& other) const;
    bool operator!=(const hidl_vec_iterator& other) const;
};

}  // namespace details

template <typename T>
struct hidl_vec {
    using value_type = T;
    using iterator = details::hidl_vec_iterator<T>;
    using const_iterator = details::hidl_vec_iterator<const T>;

    hidl_vec();
    hidl_vec(size_t size);
    hidl_vec(const hidl_vec& other);
    hidl_vec(hidl_vec&& other) noexcept;
    hidl_vec(std::initializer_list<T> list);
    hidl_vec(const std::vector<T>& other);
    template <
        typename Iterator,
        typename = std::enable_if_t<std::is_convertible_v<
            typename std::iterator_traits<Iterator>::iterator_category, std::input_iterator_tag>>>
    hidl_vec(Iterator first, Iterator last);
    ~hidl_vec();
    hidl_vec& operator=(const hidl_vec& other);
    hidl_vec& operator=(hidl_vec&& other) noexcept;
    hidl_vec& operator=(const std::vector<T>& other);
    hidl_vec& operator=(std::initializer_list<T> list);
    operator std::vector<T>() const;
    T* data();
    const T* data() const;
    size_t size() const;
    T& operator[](size_t index);
    const T& operator[](size_t index) const;
    iterator begin();
    iterator end();
    const_iterator begin() const;
    const_iterator end() const;
    void resize(size_t size);
    void setToExternal(T* data, size_t size, bool shouldOwn = false);
    T* releaseData();
    bool operator==(const hidl_vec& other) const;
    bool operator!=(const hidl_vec& other) const;

  private:
    alignas(8) unsigned char opaque_[16];
};

struct hidl_string {
    hidl_string();
    hidl_string(const hidl_string& other);
    hidl_string(const char* text);
    hidl_string(const char* text, size_t length);
    hidl_string(const std::string& text);
    hidl_string(hidl_string&& other) noexcept;
    ~hidl_string();
    hidl_string& operator=(const hidl_string& other);
    hidl_string& operator=(const char* text);
    hidl_string& operator=(const std::string& text);
    hidl_string& operator=(hidl_string&& other) noexcept;
    const char* c_str() const;
    size_t size() const;
    bool empty() const;
    void clear();
    operator std::string() const;
    void setToExternal(const char* text, size_t size);

  private:
    alignas(8) unsigned char opaque_[16];
};

template <typename T, size_t kSize, size_t... kMore>
struct hidl_array;

template <typename T, size_t kSize>
struct hidl_array<T, kSize> {
    hidl_array() = default;
    hidl_array(const T* source);
    hidl_array(const std::array<T, kSize>& source);
    operator std::array<T, kSize>() const;
    T* data();
    const T* data() const;
    T& operator[](size_t index);
    const T& operator[](size_t index) const;
    bool operator==(const hidl_array& other) const;
    bool operator!=(const hidl_array& other) const;
    static constexpr size_t size() { return kSize; }
    static constexpr size_t elementCount() { return kSize; }

  private:
    T buffer_[kSize];
};

struct hidl_handle {
    hidl_handle();
    hidl_handle(const native_handle_t* handle);
    hidl_handle(const hidl_handle& other);
    ~hidl_handle();

  private:
    alignas(8) unsigned char opaque_[16];
};

struct hidl_death_recipient;

}  // namespace android::hardware
