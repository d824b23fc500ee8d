// What the cases of lumokm doctor call a keymaster with: the keys that they share, and whole
// operations as one step.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "Client.h"
#include "TagOptions.h"

namespace lumo::cli {

using Parameters = std::vector<KeyParameter>;
using km::V4_0::KeyFormat;
using km::V4_0::KeyPurpose;

// How a call ended. An accepted one has a fault where its result is not as it must be.
struct Answer {
    ErrorCode code = ErrorCode::UNKNOWN_ERROR;
    std::string fault;
};

// One use of a key, from begin to finish.
struct Use {
    KeyPurpose purpose{};
    Bytes key;
    Parameters parameters;
    Bytes input;
    Bytes signature;
    Parameters at_update;
};

class Examination {
  public:
    // Throws Failure where there is no service.
    explicit Examination(SecurityLevel level);
    // Deletes the keys that were made.
    ~Examination();
    Examination(const Examination&) = delete;
    Examination& operator=(const Examination&) = delete;

    SecurityLevel level() const { return level_; }
    Device& device() const { return *device_; }

    // The result is checked as well: a blob, and the key's origin.
    Answer generate(const Parameters& parameters, Bytes* blob = nullptr);
    Answer import(const Parameters& parameters, KeyFormat format, const Bytes& material,
                  Bytes* blob = nullptr);
    Answer importWrapped(const Bytes& wrapped, const Bytes& wrapping_key, const Bytes& masking_key);

    // Ends with the first error, which has ended the operation on the other side, too. `nonce`
    // receives the one that begin chose.
    ErrorCode use(const Use& use, Bytes* output = nullptr, Bytes* nonce = nullptr);

    // A handle to end with abort.
    ErrorCode begin(const Use& use, uint64_t* handle, Bytes* nonce = nullptr);

    // Keys that allow what the cases do with them, made when first wanted. Throws Failure where
    // that is refused.
    const Bytes& ecKey();
    const Bytes& rsaKey();
    const Bytes& aesKey();
    const Bytes& hmacKey();
    const Bytes& wrappingKey();

    // A SecureKeyWrapper for wrappingKey(), made with the keymaster itself.
    Bytes wrapped(const Bytes& masking_key);

  private:
    const Bytes& shared(const char* name, const Parameters& parameters);
    Answer keep(ErrorCode error, const Bytes& made, const km::V4_0::KeyCharacteristics& described,
                km::V4_0::KeyOrigin origin, Bytes* blob);

    SecurityLevel level_;
    sp<Device> device_;
    std::map<std::string, Bytes> shared_;
    std::vector<Bytes> made_;
};

// The code that a callback stored. Throws Failure where the service has gone.
ErrorCode codeOf(const Return<void>& result, const ErrorCode& error);

// A parameter whose value is an enumerator or a number of 32 bits.
template <typename Value>
KeyParameter makeParameter(Tag tag, Value value) {
    return makeEnum(tag, static_cast<uint32_t>(value));
}

// Parameter sets that several cases use.
Parameters ecParameters();
Parameters rsaParameters();
Parameters aesParameters(uint32_t bits);
Parameters hmacParameters();

}  // namespace lumo::cli
