#include "Failure.h"

#include <string.h>

#include "ErrorTexts.h"
#include "ReaderStatus.h"

namespace lumo::cli {

namespace {

using ::android::hardware::keymaster::V4_1::ErrorCode;

std::string adviceFor(ErrorCode error) {
    const ErrorText* text = findErrorText(error);
    return text == nullptr ? "-v shows the library's log" : text->advice;
}

Exit statusOf(ErrorCode error) {
    if (error == ErrorCode::VERIFICATION_FAILED) return Exit::check;
    if (error == ErrorCode::SECURE_HW_COMMUNICATION_FAILED) return Exit::transport;
    return Exit::refused;
}

}  // namespace

const char* nameOf(Exit status) {
    switch (status) {
        case Exit::ok:
            return "ok";
        case Exit::other:
            return "other";
        case Exit::usage:
            return "usage";
        case Exit::refused:
            return "refused";
        case Exit::transport:
            return "transport";
        case Exit::check:
            return "check";
        case Exit::state:
            return "state";
    }
    return "other";
}

Failure keymasterFailure(const std::string& doing, ErrorCode error, const std::string& reason) {
    std::string message = "could not " + doing + ": " + toString(error) + " (" +
                          std::to_string(static_cast<int32_t>(error)) + ")";
    if (!reason.empty()) message += ": " + reason;
    if (reason.find("; ") == std::string::npos) message += "; " + adviceFor(error);
    return Failure(statusOf(error), message, {error, std::nullopt, reason});
}

Failure unreadableAnswer(const std::string& doing, int32_t status, const std::string& reason) {
    const std::string why = reason.empty() ? std::string("; ") + kUnreadableAdvice : ": " + reason;
    return Failure(Exit::transport, "could not " + doing + ": " + unreadableText(status) + why,
                   {std::nullopt, status, reason});
}

Failure fileFailure(const std::string& action, const std::string& path, int error_number) {
    return Failure(Exit::other, "cannot " + action + " " + path + ": " + strerror(error_number));
}

}  // namespace lumo::cli
