#include "Client.h"

#include <android/log.h>
#include <endian.h>
#include <hardware/hw_auth_token.h>
#include <string.h>
#include <unistd.h>

#include <iostream>

#include "Failure.h"
#include "Files.h"
#include "ReaderStatus.h"
#include "ServiceSource.h"

namespace lumo::cli {

namespace {

void logToStderr(const __android_logger_data* data, const char* message) {
    if (data->priority < ANDROID_LOG_INFO) return;
    std::cerr << (data->tag == nullptr ? "log" : data->tag) << ": " << message << '\n';
}

// Most lines are for who asks for the log. An error of the transport is said nowhere else: a trace
// that was asked for has a gap.
void logErrorsOfTransport(const __android_logger_data* data, const char* message) {
    if (data->priority < ANDROID_LOG_ERROR || data->tag == nullptr) return;
    if (strcmp(data->tag, "lumo-transport") == 0) std::cerr << "lumokm: " << message << '\n';
}

std::function<void(const Failure&)>& fatalReport() {
    static std::function<void(const Failure&)> report;
    return report;
}

bool registered_services = false;

}  // namespace

void useRegisteredServices() {
    registered_services = true;
}

sp<Device> connect(SecurityLevel level) {
    return openDevice(level, registered_services);
}

sp<Device41> connect41(SecurityLevel level) {
    return openDevice41(level, registered_services);
}

void endProcess(const Failure& failure) {
    if (fatalReport()) fatalReport()(failure);
    _exit(static_cast<int>(failure.status()));
}

const char* serviceName(SecurityLevel level) {
    return level == SecurityLevel::STRONGBOX ? "strongbox" : "default";
}

void routeLog(bool verbose, std::function<void(const Failure&)> report) {
    fatalReport() = std::move(report);
    __android_log_set_logger(verbose ? logToStderr : logErrorsOfTransport);
}

std::optional<int32_t> readerStatusIn(ErrorCode error) {
    const auto number = static_cast<int32_t>(error);
    // Where the secure application is known to have accepted the call, it has not given the code.
    const bool of_reader =
        isReaderStatus(number) || (number == kBadValueStatus && latestCallWasAccepted());
    return of_reader ? std::optional(number) : std::nullopt;
}

void require(const std::string& doing, km::V4_1::ErrorCode error) {
    if (error == km::V4_1::ErrorCode::OK) return;
    try {
        requireWayThere();
    } catch (const Failure& failure) {  // says more than the error that became of it
        throw Failure(failure.status(), failure.what(), {error, std::nullopt, ""});
    }
    if (const auto status = readerStatusIn(static_cast<ErrorCode>(error))) {
        throw unreadableAnswer(doing, *status, reasonOf(error));
    }
    throw keymasterFailure(doing, error, reasonOf(error));
}

void require(const std::string& doing, ErrorCode error) {
    require(doing, static_cast<km::V4_1::ErrorCode>(error));
}

void require(const std::string& doing, const Return<void>& result, const ErrorCode& error) {
    if (!result.isOk()) {
        throw Failure(Exit::transport, "could not " + doing + ": " + result.description());
    }
    require(doing, error);
}

HardwareAuthToken readAuthToken(const std::string& path) {
    HardwareAuthToken token{};
    if (path.empty()) return token;
    const Bytes bytes = readSmallFile(path);
    hw_auth_token_t record;
    if (bytes.size() != sizeof(record) || bytes[0] != HW_AUTH_TOKEN_VERSION) {
        throw Failure(Exit::usage, path + " is not an auth token: it needs " +
                                       std::to_string(sizeof(record)) + " bytes of version 0");
    }
    memcpy(&record, bytes.data(), sizeof(record));
    token.challenge = record.challenge;
    token.userId = record.user_id;
    token.authenticatorId = record.authenticator_id;
    token.authenticatorType =
        km::V4_0::HardwareAuthenticatorType{be32toh(record.authenticator_type)};
    token.timestamp = be64toh(record.timestamp);
    token.mac = HidlBytes(record.hmac, record.hmac + sizeof(record.hmac));
    return token;
}

km::V4_0::KeyCharacteristics characteristicsOf(const sp<Device>& device, const Bytes& key,
                                               const Bytes& app_id, const Bytes& app_data) {
    ErrorCode error = ErrorCode::UNKNOWN_ERROR;
    km::V4_0::KeyCharacteristics characteristics;
    require("read the key's characteristics",
            device->getKeyCharacteristics(key, app_id, app_data,
                                          [&](ErrorCode code, const auto& found) {
                                              error = code;
                                              characteristics = found;
                                          }),
            error);
    return characteristics;
}

}  // namespace lumo::cli
