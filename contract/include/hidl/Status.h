// What a HIDL method returns, without bodies.
#pragma once

#include <hidl/HidlSupport.h>

#include <string>
#include <type_traits>

namespace android::hardware {

class Status final {
  public:
    static Status ok();
    static Status fromExceptionCode(int32_t exception);
    static Status fromExceptionCode(int32_t exception, const char* message);
    static Status fromStatusT(status_t status);
    bool isOk() const;
    std::string description() const;
};

namespace details {

class return_status {
  public:
    return_status();
    return_status(const Status& status);
    return_status(const return_status&) = delete;
    return_status& operator=(const return_status&) = delete;
    return_status(return_status&& other) noexcept;
    return_status& operator=(return_status&& other) noexcept;
    ~return_status();
    bool isOk() const;
    bool isDeadObject() const;
    std::string description() const;
};

}  // namespace details

template <typename T>
class Return : public details::return_status {
  public:
    Return(T value);
    Return(Status status);
    operator T() const;
    T withDefault(T value);
};

template <typename T>
class Return<sp<T>> : public details::return_status {
  public:
    Return(sp<T> value);
    Return(T* value);
    Return(Status status);
    operator sp<T>() const;
    sp<T> withDefault(sp<T> value);
};

template <>
class Return<void> : public details::return_status {
  public:
    Return();
    Return(const Status& status);
};

Return<void> Void();

}  // namespace android::hardware
