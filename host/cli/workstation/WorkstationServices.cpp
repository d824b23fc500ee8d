// Service objects of this process, over the workstation's transport.
#include "WorkstationServices.h"

#include <Keymaster41Device.h>
#include <Keymaster4Device.h>
#include <android-base/properties.h>
#include <android/log.h>
#include <lumo/Properties.h>
#include <lumo/Transport.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

#include <memory>

#include "Dates.h"
#include "Failure.h"
#include "LibraryVersion.h"
#include "ServiceSource.h"

namespace lumo::cli {

namespace {

// The properties that the service waits for when it starts.
const std::vector<std::string> kNeededProperties = {
    "ro.build.version.security_patch",
    "ro.vendor.build.security_patch",
    "ro.build.version.release",
};

std::string environmentOr(const char* variable, const char* fallback) {
    const char* value = getenv(variable);
    return value == nullptr || *value == '\0' ? fallback : value;
}

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

constexpr char kStateVariable[] = "LUMO_STATE_DIR";
constexpr char kTransportVariable[] = "LUMO_TRANSPORT";

// The options that were given in place of variables.
struct Given {
    bool state = false;
    bool transport = false;
    bool unredacted = false;
} given;

// Who gave the option has not set the variable that the transport names.
std::string inOptionsWords(const std::string& message) {
    const std::string variable = std::string(kTransportVariable) + "=";
    if (!given.transport || message.rfind(variable, 0) != 0) return message;
    return "--transport " + message.substr(variable.size());
}

void require(const TransportStatus& status) {
    if (status.kind == TransportStatus::ok) return;
    throw Failure(statusOf(status.kind), inOptionsWords(status.message));
}

// The library binds keys to version 0 without a word to its caller where a property does not read
// as a version.
void remarkOnVersions() {
    const auto check = [](const char* property, bool (*good)(const std::string&),
                          const char* form) {
        const std::string value = ::android::base::GetProperty(property, "");
        if (good(value)) return;
        remark(std::string(property) + " is '" + value + "' and not " + form +
               ", so that keys are bound to version 0; see " + loadProperties().path);
    };
    const auto is_release = [](const std::string& text) {
        return !text.empty() && text[0] >= '0' && text[0] <= '9';
    };
    const auto is_day = [](const std::string& text) {
        constexpr size_t kDayLength = 10;  // parseDate also takes times
        return text.size() == kDayLength && parseDate(text).has_value();
    };
    check("ro.build.version.release", is_release, "a version such as 11");
    check("ro.build.version.security_patch", is_day, "a date such as 2020-12-05");
    check("ro.vendor.build.security_patch", is_day, "a date such as 2020-12-05");
}

// An option in place of an environment variable, for this process and what it loads. An empty value
// would mean the default, as an empty variable does.
CLI::Option* addVariable(CLI::App& app, const char* option, const char* variable,
                         const std::string& help) {
    return app
        .add_option_function<std::string>(
            option, [variable](const std::string& value) { setenv(variable, value.c_str(), 1); },
            help + "; in place of " + variable)
        ->check(CLI::Validator(
            [](const std::string& value) {
                return value.empty() ? "it is empty; leave it out or name one" : "";
            },
            ""));
}

// Throws where a service object could not start. What was opened for it stays open while the result
// lives.
std::unique_ptr<TransportCheck> requireService(SecurityLevel level) {
    requireProperties();
    requireFittingOptions();
    auto check = std::make_unique<TransportCheck>(static_cast<keymaster_security_level_t>(level));
    require(check->status());
    static const bool said = [] {
        remarkOnVersions();
        return true;
    }();
    static_cast<void>(said);
    remarkOnNewDevice();
    return check;
}

[[noreturn]] void endAfterFatalLog(const std::string& message) {
    const TransportStatus status = lastTransportFailure();
    const ExchangeReason& latest = lastExchangeReason();
    Exit exit = Exit::transport;
    std::string why = message;
    if (status.kind != TransportStatus::ok) {
        exit = statusOf(status.kind);
        why = status.message;
    } else if (!latest.text.empty()) {
        why += ": " + latest.text;
    } else {
        why +=
            "; restart the secure application if it was given other versions before, see "
            "LUMO_PROPERTIES";
    }
    endProcess(Failure(exit, "the keymaster service cannot go on: " + why));
}

// What a device's service process does before clients come: one 4.1 object for a level.
void registerOnce(SecurityLevel level) {
    if (Device::tryGetService(serviceName(level)) != nullptr) return;
    const auto opened = requireService(level);
    const sp<Device41> made = level == SecurityLevel::STRONGBOX
                                  ? ::keymaster::V4_1::CreateSbKeymasterDevice()
                                  : ::keymaster::V4_1::CreateKeymasterDevice();
    if (made->registerAsService(serviceName(level)) != ::android::OK) {
        throw Failure(Exit::other,
                      std::string("cannot register the service ") + serviceName(level));
    }
}

}  // namespace

void requireFittingOptions() {
    if (given.unredacted && environmentOr("LUMO_TRACE", "").empty()) {
        throw Failure(Exit::usage, "--unredacted is for a trace; give --trace FILE as well");
    }
    if (given.state && environmentOr(kTransportVariable, "").rfind("unix:", 0) == 0) {
        throw Failure(Exit::usage,
                      "--state is that of a secure application in this process; the daemon has its "
                      "own, see lumo-secureapp --state");
    }
}

void remarkOnNewDevice() {
    static std::string said;
    const std::string made = newStateDirectory();
    if (made != said) remark("made a new device in " + made);
    said = made;
}

sp<Device> openDevice(SecurityLevel level, bool registered) {
    if (registered) {
        registerOnce(level);
        return Device::getService(serviceName(level));
    }
    const auto opened = requireService(level);
    return level == SecurityLevel::STRONGBOX ? ::keymaster::V4_0::CreateSbKeymasterDevice()
                                             : ::keymaster::V4_0::CreateKeymasterDevice();
}

sp<Device41> openDevice41(SecurityLevel level, bool registered) {
    if (registered) {
        registerOnce(level);
        return Device41::getService(serviceName(level));
    }
    const auto opened = requireService(level);
    return level == SecurityLevel::STRONGBOX ? ::keymaster::V4_1::CreateSbKeymasterDevice()
                                             : ::keymaster::V4_1::CreateKeymasterDevice();
}

bool latestCallWasAccepted() {
    return lastExchangeReason().code == KM_ERROR_OK;
}

void declareWayThere(CLI::App& app) {
    addVariable(app, "--state", kStateVariable, "state directory of the one in this process")
        ->type_name("DIR")
        ->each([](const std::string& /*directory*/) { given.state = true; });
    addVariable(app, "--transport", kTransportVariable, "how the secure application is reached")
        ->type_name("NAME")
        ->each([](const std::string& /*name*/) { given.transport = true; });
    addVariable(app, "--trace", "LUMO_TRACE", "append every exchange to this file")
        ->type_name("FILE");
    app.add_flag_callback(
        "--unredacted",
        [] {
            given.unredacted = true;
            setenv("LUMO_TRACE_UNREDACTED", "1", 1);
        },
        "let the trace have keys, plaintext and tokens as well");
}

void requireWayThere() {
    require(lastTransportFailure());
}

void watchWayThere() {
    logExchanges(true);
}

std::string reasonOf(km::V4_1::ErrorCode error) {
    const ExchangeReason& latest = lastExchangeReason();
    const bool is_its_own = static_cast<int32_t>(latest.code) == static_cast<int32_t>(error);
    // The library makes many codes of a damaged answer.
    return is_its_own || latest.cause == ExchangeReason::fault ? latest.text : "";
}

void describeWayThere(Report& report, SecurityLevel level) {
    report["libraryVersion"] = libraryVersion();
    report["transport"] = environmentOr(kTransportVariable, "sim");
    const TransportFacts facts = requireService(level)->facts();
    report["protocol"] = {{"encoding", facts.records ? "records" : "CBOR"},
                          {"keymasterVersion", facts.keymaster_version},
                          {"taMinorVersion", facts.ta_minor_version},
                          {"halMinorVersion", facts.hal_minor_version}};
    if (facts.state_directory.empty()) {
        report["stateKeptBy"] = "the daemon at " + environmentOr(kTransportVariable, "");
    } else {
        report["stateDirectory"] = facts.state_directory;
    }
    report["properties"] = loadProperties().path;
}

void describeMessageLimits(Report& limits, SecurityLevel level) {
    const TransportFacts facts = requireService(level)->facts();
    if (facts.largest_request != 0) limits["requestBytes"] = facts.largest_request;
    if (facts.largest_response != 0) limits["responseBytes"] = facts.largest_response;
}

}  // namespace lumo::cli

// In place of liblog's, which would write lines of its own and abort.
void __android_log_assert(const char* /*condition*/, const char* /*tag*/, const char* format, ...) {
    char message[1024] = "";
    va_list arguments;
    va_start(arguments, format);
    if (format != nullptr) {
        // The analyzer loses the va_start above when it has seen another file before this one.
        // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
        vsnprintf(message, sizeof(message), format, arguments);
    }
    va_end(arguments);
    lumo::cli::endAfterFatalLog(message);
}
