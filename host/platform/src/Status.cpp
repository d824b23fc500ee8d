#include <hidl/Status.h>

namespace android::hardware {

namespace {

std::string exceptionName(int32_t exceptionCode) {
    switch (exceptionCode) {
        case Status::EX_NONE:
            return "EX_NONE";
        case Status::EX_SECURITY:
            return "EX_SECURITY";
        case Status::EX_BAD_PARCELABLE:
            return "EX_BAD_PARCELABLE";
        case Status::EX_ILLEGAL_ARGUMENT:
            return "EX_ILLEGAL_ARGUMENT";
        case Status::EX_NULL_POINTER:
            return "EX_NULL_POINTER";
        case Status::EX_ILLEGAL_STATE:
            return "EX_ILLEGAL_STATE";
        case Status::EX_NETWORK_MAIN_THREAD:
            return "EX_NETWORK_MAIN_THREAD";
        case Status::EX_UNSUPPORTED_OPERATION:
            return "EX_UNSUPPORTED_OPERATION";
        case Status::EX_HAS_REPLY_HEADER:
            return "EX_HAS_REPLY_HEADER";
        case Status::EX_TRANSACTION_FAILED:
            return "EX_TRANSACTION_FAILED";
        default:
            return std::to_string(exceptionCode);
    }
}

std::string transactionErrorName(status_t status) {
    switch (status) {
        case DEAD_OBJECT:
            return "DEAD_OBJECT";
        case BAD_VALUE:
            return "BAD_VALUE";
        case UNKNOWN_ERROR:
            return "UNKNOWN_ERROR";
        case FAILED_TRANSACTION:
            return "FAILED_TRANSACTION";
        case UNKNOWN_TRANSACTION:
            return "UNKNOWN_TRANSACTION";
        default:
            return std::to_string(status);
    }
}

}  // namespace

Status Status::fromExceptionCode(int32_t exceptionCode) {
    return fromExceptionCode(exceptionCode, "");
}

Status Status::fromExceptionCode(int32_t exceptionCode, const char* message) {
    Status status;
    status.setException(exceptionCode, message);
    return status;
}

Status Status::fromStatusT(status_t status) {
    Status result;
    result.setFromStatusT(status);
    return result;
}

void Status::setException(int32_t exceptionCode, const char* message) {
    exception_ = exceptionCode;
    transactionError_ = exceptionCode == EX_TRANSACTION_FAILED ? status_t{FAILED_TRANSACTION} : OK;
    message_ = message == nullptr ? "" : message;
}

void Status::setFromStatusT(status_t status) {
    exception_ = status == OK ? EX_NONE : EX_TRANSACTION_FAILED;
    transactionError_ = status;
    message_.clear();
}

std::string Status::description() const {
    if (isOk()) return "No error";
    std::string text = "Status(" + exceptionName(exception_) + "): '";
    if (exception_ == EX_TRANSACTION_FAILED) text += transactionErrorName(transactionError_) + ": ";
    return text + message_ + "'";
}

std::ostream& operator<<(std::ostream& out, const Status& status) {
    return out << status.description();
}

namespace details {

return_status& return_status::operator=(return_status&& other) noexcept {
    assertChecked();
    swap(other);
    return *this;
}

bool return_status::isDeadObject() const {
    const bool dead = status_.transactionError() == DEAD_OBJECT;
    checked_ = checked_ || dead;
    return dead;
}

void return_status::assertOk() const {
    if (isOk()) return;
    logAlwaysFatal(("Failed HIDL return status not checked: " + description()).c_str());
}

void return_status::swap(return_status& other) noexcept {
    std::swap(status_, other.status_);
    std::swap(checked_, other.checked_);
}

void return_status::assertChecked() const {
    if (checked_ || status_.isOk()) return;
    logAlwaysFatal(("Failed HIDL return status not checked: " + description()).c_str());
}

}  // namespace details
}  // namespace android::hardware
