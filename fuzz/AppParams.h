// Parameters of the library as the secure application is to see them.
#pragma once

#include "InputParams.h"
#include "secureapp/base/Params.h"

namespace lumo::fuzz {

inline bool hasBytes(keymaster_tag_t tag) {
    const keymaster_tag_type_t type = keymaster_tag_get_type(tag);
    return type == KM_BYTES || type == KM_BIGNUM;
}

// Whether the tag is of a type that travels.
inline bool hasKnownType(keymaster_tag_t tag) {
    switch (keymaster_tag_get_type(tag)) {
        case KM_ENUM:
        case KM_ENUM_REP:
        case KM_UINT:
        case KM_UINT_REP:
        case KM_ULONG:
        case KM_ULONG_REP:
        case KM_DATE:
        case KM_BOOL:
        case KM_BIGNUM:
        case KM_BYTES:
            return true;
        default:
            return false;
    }
}

inline secureapp::Param appParam(const keymaster_key_param_t& param) {
    secureapp::Param seen;
    seen.tag = param.tag;
    switch (keymaster_tag_get_type(param.tag)) {
        case KM_ULONG:
        case KM_ULONG_REP:
        case KM_DATE:
            seen.integer = param.long_integer;
            break;
        case KM_BOOL:
            seen.integer = 1;
            break;
        case KM_BIGNUM:
        case KM_BYTES:
            if (param.blob.data != nullptr) {
                seen.bytes.assign(param.blob.data, param.blob.data + param.blob.data_length);
            }
            break;
        default:
            seen.integer = param.integer;
    }
    return seen;
}

// Those of known types.
inline secureapp::ParamSet appParams(const InputParams& params) {
    secureapp::ParamSet set;
    for (size_t i = 0; i < params.size(); ++i) {
        if (hasKnownType(params[i].tag)) set.add(appParam(params[i]));
    }
    return set;
}

}  // namespace lumo::fuzz
