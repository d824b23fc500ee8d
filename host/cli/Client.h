// The keymaster service, reached as a platform client reaches it.
#pragma once

#include <android/hardware/keymaster/4.1/IKeymasterDevice.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Bytes.h"
#include "Failure.h"
#include "Vocabulary.h"

namespace lumo::cli {

using ::android::sp;
using ::android::hardware::hidl_vec;
using ::android::hardware::Return;
using km::V4_0::ErrorCode;
using km::V4_0::HardwareAuthToken;
using km::V4_0::SecurityLevel;
using Device = km::V4_0::IKeymasterDevice;
using Device41 = km::V4_1::IKeymasterDevice;

// The service object of a level, 4.0 or 4.1: a new one, or after useRegisteredServices() the one
// that is registered under the level's name. What would make the service end the process or wait
// forever is checked first: Failure says what is missing.
sp<Device> connect(SecurityLevel level);
sp<Device41> connect41(SecurityLevel level);
void useRegisteredServices();

// Lines of the library's log go to standard error, or nowhere. A fatal one is passed to `report` as
// a Failure and then ends the process with that Failure's status.
void routeLog(bool verbose, std::function<void(const Failure&)> report);

// Throws the Failure of a call that did not end in OK; `doing` completes "could not ...".
void require(const std::string& doing, ErrorCode error);
void require(const std::string& doing, km::V4_1::ErrorCode error);

// The same for a call with a callback that stores its error in `error`.
void require(const std::string& doing, const Return<void>& result, const ErrorCode& error);

// The number that the library's reader of answers gave in place of a code; none where `error` is
// the code of this thread's latest call.
std::optional<int32_t> readerStatusIn(ErrorCode error);

// The token in a file of 69 bytes; the empty token if `path` is empty. Throws Failure.
HardwareAuthToken readAuthToken(const std::string& path);

// The characteristics of a key, by the application id and data it is bound to.
km::V4_0::KeyCharacteristics characteristicsOf(const sp<Device>& device, const Bytes& key,
                                               const Bytes& app_id, const Bytes& app_data);

}  // namespace lumo::cli
