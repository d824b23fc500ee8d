#include <mini/Keys.h>

std::tuple<ErrorCode, Blob> makeKey(const android::sp<IKeymasterDevice>& device) {
    std::vector<KeyParameter> params(3);
    params[0].tag = Tag::ALGORITHM, params[0].f.algorithm = Algorithm::EC;
    params[1].tag = Tag::EC_CURVE, params[1].f.ecCurve = EcCurve::P_256;
    params[2].tag = Tag::APPLICATION_ID, params[2].blob = {'i', 'd'};
    std::tuple<ErrorCode, Blob> made;
    device->generateKey(params, [&](ErrorCode error, const Blob& key, const KeyCharacteristics&) {
        made = {error, key};
    });
    return made;
}
