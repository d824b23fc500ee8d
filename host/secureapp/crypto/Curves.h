// The elliptic curves of keymaster keys.
#pragma once

#include <hardware/keymaster_defs.h>

#include <array>

#include "secureapp/base/Bytes.h"

namespace lumo::secureapp {

struct Curve {
    keymaster_ec_curve_t curve;
    uint32_t bits;  // the key size
    int nid;        // libcrypto's number
    Bytes oid;      // the content octets
};

const std::array<Curve, 4>& curves();

// Null for an unknown one.
const Curve* findCurve(uint64_t curve);
const Curve* findCurveOfBits(uint64_t bits);
const Curve* findCurveOfNid(int nid);
const Curve* findCurveOfOid(ByteView oid);

}  // namespace lumo::secureapp
