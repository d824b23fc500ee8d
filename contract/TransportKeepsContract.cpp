// The workstation's transport and builder have every operation that the library may rely on, with
// the promised arguments and results. Compiled, never run.
#include <hardware/keymaster_defs.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>

namespace promised {
#include "include/KeymasterBuffer.h"
#include "include/KeymasterUtils.h"
}  // namespace promised

#include "../host/transport/include/KeymasterBuffer.h"
#include "../host/transport/include/KeymasterUtils.h"

namespace {

// An operation without the class that it belongs to; a const one serves as well.
template <typename Class, typename Result, typename... Arguments>
auto shape(Result (Class::*)(Arguments...)) -> Result (*)(Arguments...);
template <typename Class, typename Result, typename... Arguments>
auto shape(Result (Class::*)(Arguments...) const) -> Result (*)(Arguments...);

#define KEEPS(Class, operation)                                                \
    static_assert(std::is_same_v<decltype(shape(&promised::Class::operation)), \
                                 decltype(shape(&Class::operation))>,          \
                  "the workstation's " #Class "::" #operation " differs from the promise")

KEEPS(keymasterutils::KeymasterUtils, isLegacy);
KEEPS(keymasterutils::KeymasterUtils, hsm_init);
KEEPS(keymasterutils::KeymasterUtils, init);
KEEPS(keymasterutils::KeymasterUtils, sendCmd);
KEEPS(keymasterutils::KeymasterUtils, getKeymasterVersion);
KEEPS(keymasterutils::KeymasterUtils, getKeymasterTaMinorVersion);
KEEPS(keymasterutils::KeymasterUtils, getKeymasterHalMinorVersion);
KEEPS(keymasterutils::KeymasterUtils, vaultlink_dev_init);
KEEPS(keymasterutils::KeymasterUtils, send_cmd);
KEEPS(keymasterutils::KeymasterUtils, km_memscpy);
static_assert(std::is_constructible_v<keymasterutils::KeymasterUtils, keymaster_security_level_t>);
static_assert(std::has_virtual_destructor_v<keymasterutils::KeymasterUtils>);

KEEPS(keymasterdevice::KeymasterBuffer, append_to_buf);
KEEPS(keymasterdevice::KeymasterBuffer, get_offset);
KEEPS(keymasterdevice::KeymasterBuffer, get_buf_size_remaining);
KEEPS(keymasterdevice::KeymasterBuffer, set_indirect_buf);
KEEPS(keymasterdevice::KeymasterBuffer, append_to_indirect_buf);
KEEPS(keymasterdevice::KeymasterBuffer, get_indirect_buf_offset_from_main);
KEEPS(keymasterdevice::KeymasterBuffer, reset_indirect_buf);
KEEPS(keymasterdevice::KeymasterBuffer, get_curr_addr);
static_assert(std::is_constructible_v<keymasterdevice::KeymasterBuffer, void*, uint32_t>);
static_assert(std::has_virtual_destructor_v<keymasterdevice::KeymasterBuffer>);

}  // namespace
