#include "ExchangeLog.h"

#include <android/log.h>

#include <atomic>
#include <string>

#include "inspect/Parameters.h"
#include "lumo/Transport.h"

namespace lumo::transport {
namespace {

constexpr char kLogTag[] = "lumo-transport";

std::atomic<bool> wanted_by_someone{false};

std::string outcome(const ExchangeReason& reason) {
    const auto number = static_cast<int32_t>(reason.code);
    std::string code = inspect::errorName(number);
    if (number != KM_ERROR_OK) code += " (" + std::to_string(number) + ")";
    return reason.text.empty() ? code : code + ": " + reason.text;
}

}  // namespace

void setExchangeLog(bool wanted) {
    wanted_by_someone = wanted;
}

bool exchangesAreLogged() {
    return wanted_by_someone;
}

void logExchange(inspect::Wire wire, uint32_t command, size_t request, size_t response) {
    const char* const second = wire == inspect::Wire::kCbor ? "bytes back" : "bytes of room";
    __android_log_print(ANDROID_LOG_INFO, kLogTag, "%s: %zu bytes sent, %zu %s, %s",
                        inspect::describeCommand(wire, command).c_str(), request, response, second,
                        outcome(lastExchangeReason()).c_str());
}

}  // namespace lumo::transport
