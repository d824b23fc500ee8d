// One operation with a key: begin, any number of updates, finish.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Client.h"
#include "Files.h"

namespace lumo::cli {

// The arguments of begin; the tokens are sent with every call of the operation that takes them.
struct OperationRequest {
    km::V4_0::KeyPurpose purpose{};
    Bytes key;
    std::vector<KeyParameter> parameters;
    HardwareAuthToken token{};
    km::V4_0::VerificationToken verification_token{};
};

// Receives output in the order in which it comes.
using Sink = std::function<void(const Bytes& output)>;

// Aborts the operation where it was not finished. Every call throws Failure where it is refused,
// which also ends the operation.
class Operation {
  public:
    // Largest input of one update.
    static constexpr size_t kMaxUpdateBytes = 16384;
    // Parameters travel in a part of the request that is smaller than the one for data.
    static constexpr size_t kMaxAssociatedDataBytes = 4096;

    Operation(sp<Device> device, OperationRequest request);
    // Goes on with an operation that another process began; it is not aborted with this object.
    Operation(sp<Device> device, uint64_t handle, const HardwareAuthToken& token,
              const km::V4_0::VerificationToken& verification_token);
    ~Operation();
    Operation(const Operation&) = delete;
    Operation& operator=(const Operation&) = delete;

    // What begin gave back.
    const std::vector<KeyParameter>& parameters() const { return parameters_; }
    uint64_t handle() const { return handle_; }
    // Leaves it open for others to go on with.
    void release() { live_ = false; }

    // Data that is authenticated and not encrypted; before any of the other.
    void authenticate(Input& associated_data);

    void process(Input& input, const Sink& sink);

    // One call each; the first returns the number of bytes that were consumed.
    size_t update(const std::vector<KeyParameter>& parameters, const Bytes& input,
                  const Sink& sink);
    void finish(const std::vector<KeyParameter>& parameters, const Bytes& signature,
                const Sink& sink, const Bytes& input = {});
    void abort();

  private:
    void requireStep(const Return<void>& result, const ErrorCode& error);

    sp<Device> device_;
    OperationRequest request_;
    std::string doing_;
    std::vector<KeyParameter> parameters_;
    uint64_t handle_ = 0;
    bool live_ = false;
};

}  // namespace lumo::cli
