#include "Client.h"

#include <Keymaster41Device.h>
#include <Keymaster4Device.h>
#include <android/log.h>
#include <endian.h>
#include <hardware/hw_auth_token.h>
#include <lumo/Properties.h>
#include <lumo/Transport.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <iostream>

#include "Failure.h"
#include "Files.h"

namespace lumo::cli {

namespace {

// The properties that the service waits for when it starts.
const std::vector<std::string> kNeededProperties = {
    "ro.build.version.security_patch",
    "ro.vendor.build.security_patch",
    "ro.build.version.release",
};

void requireProperties() {
    const PropertyFile& file = loadProperties();
    const std::string advice = "; LUMO_PROPERTIES names another file";
    if (!file.error.empty()) throw Failure(Exit::usage, file.error + advice);
    const std::vector<std::string> missing = missingProperties(kNeededProperties);
    if (missing.empty()) return;
    throw Failure(Exit::usage,
                  "the property " + missing.front() + " is not in " + file.path + advice);
}

Exit statusOf(TransportStatus::Kind kind) {
    switch (kind) {
        case TransportStatus::ok:
            return Exit::ok;
        case TransportStatus::usage:
            return Exit::usage;
        case TransportStatus::transport:
            return Exit::transport;
        case TransportStatus::state:
            return Exit::state;
    }
    return Exit::other;
}

void require(const TransportStatus& status) {
    if (status.kind != TransportStatus::ok) throw Failure(statusOf(status.kind), status.message);
}

void requireService(SecurityLevel level) {
    requireProperties();
    require(checkTransport(static_cast<keymaster_security_level_t>(level)));
}

void logToStderr(const __android_logger_data* data, const char* message) {
    if (data->priority < ANDROID_LOG_INFO) return;
    std::cerr << (data->tag == nullptr ? "log" : data->tag) << ": " << message << '\n';
}

void logNowhere(const __android_logger_data* /*data*/, const char* /*message*/) {}

std::function<void(const Failure&)>& fatalReport() {
    static std::function<void(const Failure&)> report;
    return report;
}

// Ends the process as a Failure would.
[[noreturn]] void endAfterFatalLog(const std::string& message) {
    const TransportStatus status = lastTransportFailure();
    const bool known = status.kind != TransportStatus::ok;
    const std::string why = known ? status.message
                                  : message +
                                        "; restart the secure application if it was told other "
                                        "versions before, see LUMO_PROPERTIES";
    const Failure failure(known ? statusOf(status.kind) : Exit::transport,
                          "the keymaster service cannot go on: " + why);
    if (fatalReport()) fatalReport()(failure);
    _exit(static_cast<int>(failure.status()));
}

}  // namespace

sp<Device> connect(SecurityLevel level) {
    requireService(level);
    return level == SecurityLevel::STRONGBOX ? ::keymaster::V4_0::CreateSbKeymasterDevice()
                                             : ::keymaster::V4_0::CreateKeymasterDevice();
}

sp<Device41> connect41(SecurityLevel level) {
    requireService(level);
    return level == SecurityLevel::STRONGBOX ? ::keymaster::V4_1::CreateSbKeymasterDevice()
                                             : ::keymaster::V4_1::CreateKeymasterDevice();
}

void routeLog(bool verbose, std::function<void(const Failure&)> report) {
    fatalReport() = std::move(report);
    __android_log_set_logger(verbose ? logToStderr : logNowhere);
}

// Where the transport knows why, that says more than the error that became of it.
void require(const std::string& doing, km::V4_1::ErrorCode error) {
    if (error == km::V4_1::ErrorCode::OK) return;
    require(lastTransportFailure());
    throw keymasterFailure(doing, error);
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

// In place of liblog's, which would write lines of its own and abort.
void __android_log_assert(const char* /*condition*/, const char* /*tag*/, const char* format, ...) {
    char message[1024] = "";
    va_list arguments;
    va_start(arguments, format);
    if (format != nullptr) vsnprintf(message, sizeof(message), format, arguments);
    va_end(arguments);
    lumo::cli::endAfterFatalLog(message);
}
