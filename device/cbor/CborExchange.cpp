#include "CborExchange.h"

#include <KeymasterUtils.h>

namespace keymasterdevice {

CborExchange::CborExchange(const Channel& channel, const Command& command)
    : transport_(channel.transport), codec_(&channel.transport) {
    error_ = errorToWord(transport_.hsm_init());
    if (!ok()) return;
    // Kept: the result of init is ignored; a request without a buffer does not encode.
    static_cast<void>(transport_.init(command.cborId(channel.strongbox), &request_));
}

void CborExchange::send() {
    if (ok()) error_ = errorToWord(transport_.sendCmd(request_, &response_));
}

}  // namespace keymasterdevice
