// Names that the library needs and that not every release of the platform's
// hardware/keymaster_defs.h has; KM_TAG_HARDWARE_TYPE is in none. The values are the published
// ones. They are constants under names of our own, because an enumerator would clash in a tree
// whose header has it.
#pragma once

#include <hardware/keymaster_defs.h>

#include <cstdint>

namespace keymasterdevice {

// Missing in the tenth release. The level is a word: that release's enumeration cannot hold it.
inline constexpr uint32_t kSecurityLevelStrongBox = 2;
inline constexpr auto kTagRollbackResistance = static_cast<keymaster_tag_t>(KM_BOOL | 303);
inline constexpr auto kTagEarlyBootOnly = static_cast<keymaster_tag_t>(KM_BOOL | 305);

// Missing in the tenth and the eleventh.
inline constexpr auto kTagHardwareType = static_cast<keymaster_tag_t>(KM_ENUM | 304);
inline constexpr auto kTagTrustedUserPresenceRequired = static_cast<keymaster_tag_t>(KM_BOOL | 507);
inline constexpr auto kTagVendorPatchlevel = static_cast<keymaster_tag_t>(KM_UINT | 718);
inline constexpr auto kTagBootPatchlevel = static_cast<keymaster_tag_t>(KM_UINT | 719);

}  // namespace keymasterdevice
