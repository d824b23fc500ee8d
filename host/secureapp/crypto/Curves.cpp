#include "secureapp/crypto/Curves.h"

#include <openssl/objects.h>

#include <algorithm>

namespace lumo::secureapp {
namespace {

template <typename Matches>
const Curve* find(Matches matches) {
    const auto found = std::find_if(curves().begin(), curves().end(), matches);
    return found == curves().end() ? nullptr : &*found;
}

}  // namespace

const std::array<Curve, 4>& curves() {
    static const std::array<Curve, 4> all = {{
        {KM_EC_CURVE_P_224, 224, NID_secp224r1, {0x2B, 0x81, 0x04, 0x00, 0x21}},
        {KM_EC_CURVE_P_256,
         256,
         NID_X9_62_prime256v1,
         {0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x03, 0x01, 0x07}},
        {KM_EC_CURVE_P_384, 384, NID_secp384r1, {0x2B, 0x81, 0x04, 0x00, 0x22}},
        {KM_EC_CURVE_P_521, 521, NID_secp521r1, {0x2B, 0x81, 0x04, 0x00, 0x23}},
    }};
    return all;
}

const Curve* findCurve(uint64_t curve) {
    return find([curve](const Curve& each) { return each.curve == curve; });
}

const Curve* findCurveOfBits(uint64_t bits) {
    return find([bits](const Curve& each) { return each.bits == bits; });
}

const Curve* findCurveOfNid(int nid) {
    return find([nid](const Curve& each) { return each.nid == nid; });
}

const Curve* findCurveOfOid(ByteView oid) {
    return find([oid](const Curve& each) {
        return std::equal(each.oid.begin(), each.oid.end(), oid.begin(), oid.end());
    });
}

}  // namespace lumo::secureapp
