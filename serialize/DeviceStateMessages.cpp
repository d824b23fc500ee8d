// The messages that report the state of the device to the secure application.

#include "KeymasterSerialize.h"
#include "RequestWriter.h"

using keymasterdevice::RequestWriter;

// ---- set_device_locked ----

//   kDeviceLocked
keymaster_error_t KeymasterSerialize::serializeClientSetDeviceLocked(bool flag,
                                                                     keymaster_blob_t* request) {
    RequestWriter writer(request);
    writer.flag(MessageLabel::kDeviceLocked, flag);
    return writer.finish();
}
