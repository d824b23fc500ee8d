#include <algorithm>

#include "secureapp/base/Params.h"
#include "secureapp/base/Refusal.h"
#include "secureapp/operations/OperationCipher.h"

namespace lumo::secureapp {
namespace {

class GcmOperation : public Operation {
  public:
    GcmOperation(CipherStream stream, size_t tag_bytes, const ParamSet& out_params)
        : stream_(std::move(stream)), tag_bytes_(tag_bytes) {
        out_params_ = out_params;
    }

    void update(const ParamSet& params, ByteView input, Bytes& out) override {
        addAssociatedData(params);
        data_seen_ = data_seen_ || !input.empty();
        process(input, out);
    }

  protected:
    virtual void process(ByteView input, Bytes& out) = 0;

    CipherStream stream_;
    const size_t tag_bytes_;

  private:
    // Every entry of the call, in order, before the call's data and before any earlier data.
    void addAssociatedData(const ParamSet& params) {
        for (const Param& param : params) {
            if (param.tag != KM_TAG_ASSOCIATED_DATA) continue;
            if (data_seen_) {
                refuse(KM_ERROR_INVALID_TAG,
                       "ASSOCIATED_DATA came after the first data; it goes before all of it");
            }
            stream_.addAssociatedData(param.bytes);
        }
    }

    bool data_seen_ = false;
};

class GcmEncryption : public GcmOperation {
  public:
    using GcmOperation::GcmOperation;

    Bytes finish(const ParamSet& params, ByteView input, ByteView) override {
        Bytes out;
        update(params, input, out);
        const Bytes tag = stream_.tag(tag_bytes_);
        append(out, tag);
        return out;
    }

  private:
    void process(ByteView input, Bytes& out) override { stream_.add(input, out); }
};

// The tag is the last bytes of all input, wherever updates split it: that many bytes are always
// held back.
class GcmDecryption : public GcmOperation {
  public:
    using GcmOperation::GcmOperation;

    Bytes finish(const ParamSet& params, ByteView input, ByteView) override {
        Bytes out;
        update(params, input, out);
        if (held_.size() < tag_bytes_) {
            refuse(KM_ERROR_INVALID_INPUT_LENGTH, "the ciphertext has ", held_.size(),
                   " bytes, its tag alone has ", tag_bytes_);
        }
        if (!stream_.tagFits(held_)) {
            refuse(KM_ERROR_VERIFICATION_FAILED,
                   "the AES-GCM tag does not fit ciphertext, nonce, associated data and key");
        }
        return out;
    }

  private:
    void process(ByteView input, Bytes& out) override {
        const size_t total = held_.size() + input.size();
        const size_t ready = total > tag_bytes_ ? total - tag_bytes_ : 0;
        const size_t ready_held = std::min(ready, held_.size());
        const size_t ready_input = ready - ready_held;
        out.reserve(out.size() + ready + EVP_MAX_BLOCK_LENGTH);
        stream_.add(ByteView(held_).sub(0, ready_held), out);
        stream_.add(input.sub(0, ready_input), out);
        held_.erase(held_.begin(), held_.begin() + static_cast<ptrdiff_t>(ready_held));
        held_.insert(held_.end(), input.begin() + ready_input, input.end());
    }

    Bytes held_;  // at most the tag's length
};

}  // namespace

std::unique_ptr<Operation> makeGcmOperation(CipherStream stream, bool encrypt, size_t tag_bytes,
                                            const ParamSet& out_params) {
    if (encrypt) return std::make_unique<GcmEncryption>(std::move(stream), tag_bytes, out_params);
    return std::make_unique<GcmDecryption>(std::move(stream), tag_bytes, out_params);
}

}  // namespace lumo::secureapp
