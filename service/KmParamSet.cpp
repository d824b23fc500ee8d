#include "KmParamSet.h"

#include <cstring>
#include <new>

#include "Limits.h"

namespace keymaster::V4_0 {
namespace {

using ::android::hardware::hidl_vec;
using ::android::hardware::keymaster::V4_0::KeyParameter;
using ::android::hardware::keymaster::V4_0::Tag;

keymaster_key_param_t* allocateParams(size_t count) {
    if (count > ::keymasterdevice::kMaxParams) throw std::bad_array_new_length();
    return new keymaster_key_param_t[count]();
}

// Read as a byte: a client's message may hold other values than those of a C++ boolean.
bool isTrue(const KeyParameter::IntegerParams& value) {
    uint8_t byte = 0;
    std::memcpy(&byte, &value.boolValue, sizeof(byte));
    return byte != 0;
}

void toKeymaster(const KeyParameter& from, keymaster_key_param_t* to) {
    const auto tag = static_cast<keymaster_tag_t>(from.tag);
    to->tag = tag;
    switch (keymaster_tag_get_type(tag)) {
        case KM_ENUM:
        case KM_ENUM_REP:
        case KM_UINT:
        case KM_UINT_REP:
            to->integer = from.f.integer;
            return;
        case KM_ULONG:
        case KM_ULONG_REP:
        case KM_DATE:
            to->long_integer = from.f.longInteger;
            return;
        case KM_BOOL:
            // Kept: a false boolean is carried as an invalid entry rather than left out.
            to->boolean = isTrue(from.f);
            if (!to->boolean) to->tag = KM_TAG_INVALID;
            return;
        case KM_BIGNUM:
        case KM_BYTES:
            to->blob = {from.blob.data(), from.blob.size()};
            return;
        case KM_INVALID:
        default:
            to->tag = KM_TAG_INVALID;
            return;
    }
}

void toHidl(keymaster_key_param_t* from, KeyParameter* to) {
    to->tag = static_cast<Tag>(from->tag);
    switch (keymaster_tag_get_type(from->tag)) {
        case KM_ENUM:
        case KM_ENUM_REP:
        case KM_UINT:
        case KM_UINT_REP:
            to->f.integer = from->integer;
            return;
        case KM_ULONG:
        case KM_ULONG_REP:
        case KM_DATE:
            to->f.longInteger = from->long_integer;
            return;
        case KM_BOOL:
            // The byte as it stands: the secure application may use another than 1 for true.
            std::memcpy(&to->f.boolValue, &from->boolean, sizeof(to->f.boolValue));
            return;
        case KM_BIGNUM:
        case KM_BYTES:
            // The view is never written through; the runtime just has no other kind.
            to->blob.setToExternal(const_cast<uint8_t*>(from->blob.data), from->blob.data_length);
            return;
        case KM_INVALID:
        default:
            // Kept: the tag of the source is overwritten although the set is const for the caller,
            // who releases it right afterwards.
            from->tag = KM_TAG_INVALID;
            return;
    }
}

}  // namespace

KmParamSet::KmParamSet(const hidl_vec<KeyParameter>& from, size_t free_entries)
    : keymaster_key_param_set_t{} {
    params = allocateParams(from.size() + free_entries);
    length = from.size() + free_entries;
    for (size_t i = 0; i < from.size(); ++i) toKeymaster(from[i], &params[i]);
}

KmParamSet::KmParamSet(const hidl_vec<KeyParameter>& from) : KmParamSet(from, 0) {}

KmParamSet::KmParamSet(const hidl_vec<KeyParameter>& from, const keymaster_key_param_t& last)
    : KmParamSet(from, 1) {
    params[length - 1] = last;
}

KmParamSet::~KmParamSet() {
    delete[] params;
}

hidl_vec<KeyParameter> kmParamSet2Hidl(const keymaster_key_param_set_t& set) {
    hidl_vec<KeyParameter> result;
    if (set.length == 0 || set.params == nullptr) return result;
    result.resize(set.length);
    for (size_t i = 0; i < set.length; ++i) toHidl(&set.params[i], &result[i]);
    return result;
}

}  // namespace keymaster::V4_0
