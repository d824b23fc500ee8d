#pragma once

// Stand-in for the HIDL runtime's call results. As with the platform's, an error that nobody looked
// at ends the process when its Return dies; the knob that softens this is left out.

#include <hidl/HidlInternal.h>
#include <utils/Errors.h>
#include <utils/StrongPointer.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <utility>

namespace android::hardware {

// How a call itself went (not what the service answered). Copyable; ok by default.
class Status final {
  public:
    enum Exception : int32_t {
        EX_NONE = 0,
        EX_SECURITY = -1,
        EX_BAD_PARCELABLE = -2,
        EX_ILLEGAL_ARGUMENT = -3,
        EX_NULL_POINTER = -4,
        EX_ILLEGAL_STATE = -5,
        EX_NETWORK_MAIN_THREAD = -6,
        EX_UNSUPPORTED_OPERATION = -7,
        EX_HAS_REPLY_HEADER = -128,
        EX_TRANSACTION_FAILED = -129,
    };

    static Status ok() { return Status(); }
    static Status fromExceptionCode(int32_t exceptionCode);
    static Status fromExceptionCode(int32_t exceptionCode, const char* message);
    static Status fromStatusT(status_t status);

    void setException(int32_t exceptionCode, const char* message);
    void setFromStatusT(status_t status);

    int32_t exceptionCode() const { return exception_; }
    const char* exceptionMessage() const { return message_.c_str(); }
    // OK unless the exception is EX_TRANSACTION_FAILED.
    status_t transactionError() const {
        return exception_ == EX_TRANSACTION_FAILED ? transactionError_ : OK;
    }
    bool isOk() const { return exception_ == EX_NONE; }
    std::string description() const;

  private:
    int32_t exception_ = EX_NONE;
    status_t transactionError_ = OK;
    std::string message_;
};

std::ostream& operator<<(std::ostream& out, const Status& status);

template <typename T>
class Return;

namespace details {

// The base of every Return: a status that must be checked before it is destroyed if it is an error.
class return_status {
  public:
    return_status() = default;
    return_status(const Status& status) : status_(status) {}
    ~return_status() { assertChecked(); }

    return_status(const return_status&) = delete;
    return_status& operator=(const return_status&) = delete;
    return_status(return_status&& other) noexcept { swap(other); }
    return_status& operator=(return_status&& other) noexcept;

    bool isOk() const {
        checked_ = true;
        return status_.isOk();
    }
    bool isOkUnchecked() const { return status_.isOk(); }
    bool isDeadObject() const;
    std::string description() const { return status_.description(); }
    void assertOk() const;

  private:
    template <typename From, typename To>
    friend Return<To> StatusOf(const Return<From>& from);

    void swap(return_status& other) noexcept;
    void assertChecked() const;

    Status status_;
    mutable bool checked_ = false;
};

}  // namespace details

// The value of a call, or the status that says why there is none. Move-only; reading the value of a
// failed call ends the process.
template <typename T>
class Return : public details::return_status {
  public:
    Return(T value) : value_(std::move(value)) {}
    Return(Status status) : return_status(status), value_() {}

    operator T() const {
        assertOk();
        return value_;
    }
    T withDefault(T other) { return isOk() ? value_ : other; }

  private:
    T value_;
};

template <typename T>
class Return<sp<T>> : public details::return_status {
  public:
    Return(sp<T> value) : value_(std::move(value)) {}
    Return(T* value) : value_(value) {}
    template <typename U>
    Return(sp<U> value) : value_(value) {}
    template <typename U>
    Return(U* value) : value_(value) {}
    Return(Status status) : return_status(status) {}

    operator sp<T>() const {
        assertOk();
        return value_;
    }
    sp<T> withDefault(sp<T> other) { return isOk() ? value_ : other; }

  private:
    sp<T> value_;
};

template <>
class Return<void> : public details::return_status {
  public:
    Return() = default;
    Return(const Status& status) : return_status(status) {}
};

inline Return<void> Void() {
    return Return<void>();
}

namespace details {

// The error of one call as the result of another.
template <typename From, typename To>
Return<To> StatusOf(const Return<From>& from) {
    if (from.isOk()) logAlwaysFatal("StatusOf needs the result of a failed call");
    return Return<To>(from.status_);
}

}  // namespace details
}  // namespace android::hardware

// The published header also offers the value types.
#include <hidl/HidlSupport.h>
