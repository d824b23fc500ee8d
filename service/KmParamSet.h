// Conversions between HIDL key parameters and the keymaster HAL's records. Neither direction copies
// blob bytes: the result refers to the source's memory, so the source must outlive it.
#pragma once

#include <android/hardware/keymaster/4.0/types.h>
#include <hardware/keymaster_defs.h>

#include <cstddef>

namespace keymaster::V4_0 {

// HIDL parameters as a keymaster parameter set. Owns the array; entries of type big number or bytes
// point into the HIDL vector. No entry is dropped: one that cannot be carried (an unknown type, or
// a boolean that is false) stays with the tag KM_TAG_INVALID. Throws std::bad_alloc.
class KmParamSet : public keymaster_key_param_set_t {
  public:
    explicit KmParamSet(
        const ::android::hardware::hidl_vec<::android::hardware::keymaster::V4_0::KeyParameter>&
            from);
    // With `last` behind them, taken as it stands.
    KmParamSet(const ::android::hardware::hidl_vec<
                   ::android::hardware::keymaster::V4_0::KeyParameter>& from,
               const keymaster_key_param_t& last);
    ~KmParamSet();
    KmParamSet(const KmParamSet&) = delete;
    KmParamSet& operator=(const KmParamSet&) = delete;

  private:
    KmParamSet(const ::android::hardware::hidl_vec<
                   ::android::hardware::keymaster::V4_0::KeyParameter>& from,
               size_t free_entries);
};

// A keymaster parameter set as HIDL parameters, whose blobs are views of the set's. A set without
// entries or without an array gives an empty vector. An entry of an unknown type keeps its tag and
// a default value in the result and gets KM_TAG_INVALID in `set`.
[[nodiscard]] ::android::hardware::hidl_vec<::android::hardware::keymaster::V4_0::KeyParameter>
kmParamSet2Hidl(const keymaster_key_param_set_t& set);

}  // namespace keymaster::V4_0
