// Published tags, origins and errors that the keymaster records' header of a release may lack, as
// this application's own constants. The values are the published ones.
#pragma once

#include <hardware/keymaster_defs.h>

#include <cstdint>

namespace lumo::secureapp {

inline constexpr auto kTagHardwareType = static_cast<keymaster_tag_t>(KM_ENUM | 304);
inline constexpr auto kTagTrustedUserPresenceRequired = static_cast<keymaster_tag_t>(KM_BOOL | 507);
inline constexpr auto kTagVendorPatchlevel = static_cast<keymaster_tag_t>(KM_UINT | 718);
inline constexpr auto kTagBootPatchlevel = static_cast<keymaster_tag_t>(KM_UINT | 719);
inline constexpr auto kTagStorageKey = static_cast<keymaster_tag_t>(KM_BOOL | 722);
inline constexpr auto kTagConfirmationToken = static_cast<keymaster_tag_t>(KM_BYTES | 1005);

inline constexpr uint32_t kOriginSecurelyImported = 4;

inline constexpr auto kErrorHardwareTypeUnavailable = static_cast<keymaster_error_t>(-68);
inline constexpr auto kErrorProofOfPresenceRequired = static_cast<keymaster_error_t>(-69);
inline constexpr auto kErrorConcurrentProofOfPresenceRequested =
    static_cast<keymaster_error_t>(-70);
inline constexpr auto kErrorStorageKeyUnsupported = static_cast<keymaster_error_t>(-77);

}  // namespace lumo::secureapp
