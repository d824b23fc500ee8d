// One request and response in CBOR.
//
// A command reads: encode, send, decode, and error(). The first failure sticks: the steps after it
// do nothing, so that a request which did not encode is not sent, and a response that did not come
// is not decoded.
#pragma once

#include <hardware/keymaster_defs.h>

#include <utility>

#include "Channel.h"
#include "Commands.h"
#include "EnumBits.h"
#include "KeymasterSerialize.h"

namespace keymasterdevice {

class CborExchange {
  public:
    // Brings up the link and takes the transport's request buffer for `command`. The transport must
    // outlive the exchange.
    CborExchange(const Channel& channel, const Command& command);
    ~CborExchange() = default;
    CborExchange(const CborExchange&) = delete;
    CborExchange& operator=(const CborExchange&) = delete;

    // Writes the request with one of the encoders of KeymasterSerialize, which gets `args`.
    template <typename Encoder, typename... Args>
    void encode(Encoder encoder, Args&&... args) {
        if (ok()) error_ = errorToWord((codec_.*encoder)(std::forward<Args>(args)..., &request_));
    }
    // In place of encode(), for a request without a body.
    void encodeNothing() { request_.data_length = 0; }

    void send();

    // Takes the response apart with one of the decoders of KeymasterSerialize, which writes to
    // `outputs` as it says. Left out where the bytes of a response do not matter.
    template <typename Decoder, typename... Outputs>
    void decode(Decoder decoder, Outputs&&... outputs) {
        if (ok()) {
            error_ = errorToWord((codec_.*decoder)(response_, std::forward<Outputs>(outputs)...));
        }
    }

    bool ok() const { return error_ == KM_ERROR_OK; }
    // The first failure: of the link, the encoder, the transport or the decoder.
    [[nodiscard]] keymaster_error_t error() const { return errorFromWord(error_); }

  private:
    keymasterutils::KeymasterUtils& transport_;
    KeymasterSerialize codec_;
    keymaster_blob_t request_ = {nullptr, 0};  // the transport's memory, as is the response
    keymaster_blob_t response_ = {nullptr, 0};
    ErrorWord error_ = KM_ERROR_OK;
};

}  // namespace keymasterdevice
