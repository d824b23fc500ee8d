// Reads a request: one CBOR map whose entries come in a fixed order.
//
// The reader is strict. Anything but the expected label, type, order and count, an indefinite
// length, a number not in its shortest form, or bytes left over throw
// Refusal(KM_ERROR_INVALID_ARGUMENT). Nothing is allocated for a length before that many
// bytes are known to be there.
#pragma once

#include "secureapp/base/Params.h"

namespace lumo::secureapp {

// Labels of map entries; a key parameter's label is its tag.
enum class Label : int64_t {
    kPasswordSid = 12,
    kBiometricSid = 13,
    kParamCount = 22,
    kKeyBlob = 23,
    kKeyFormat = 24,
    kKeyData = 25,
    kWrappingKeyBlob = 26,
    kWrappedKey = 27,
    kMaskingKey = 28,
    kCertificateCount = 32,
    kCertificate = 33,
    kHandle = 34,
    kInput = 35,
    kOutput = 36,
    kConsumed = 37,
    kSignature = 38,
    kActiveDate = 39,
    kExpiryDate = 40,
    kSharingSeed = 41,
    kSharingNonce = 42,
    kSharingRecords = 43,
    kSharingCheck = 44,
    kDestroyFlag = 45,
    kLockedFlag = 46,
};

// A broken-down date: second, minute, hour, day, month, year and three fields that are always -1.
constexpr size_t kDateFields = 9;

struct CborItem;

class CborReader {
  public:
    // Enters the map. `message` must outlive the reader and the views it gives out.
    explicit CborReader(ByteView message);

    // The next entry, which must have this label.
    uint64_t number(Label label);
    uint32_t number32(Label label);
    ByteView bytes(Label label);
    bool flag(Label label);
    void skipDate(Label label);
    // The count and as many key parameters.
    ParamSet params();

    // The next entry where it has this label; otherwise nothing, and it is still the next.
    ByteView optionalBytes(Label label);
    ParamSet optionalParams();

    // After the last entry: refuses a request with entries or bytes left.
    void finish() const;

  private:
    CborItem peek() const;
    CborItem next();
    CborItem value(Label label);
    bool enters(Label label);
    ParamSet paramsAfter(const CborItem& item);
    Param param();

    ByteView message_;
    size_t position_ = 0;
    uint64_t entries_left_ = 0;
};

}  // namespace lumo::secureapp
