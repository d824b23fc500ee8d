#include "secureapp/protocol/Profile.h"

namespace lumo::secureapp {
namespace {

// From TA minor version 113 on, with a HAL minor version, a secure application encodes public keys
// itself; up to version 3 it takes EC private keys as records.
std::vector<Profile> makeProfiles() {
    Profile cbor;
    cbor.name = "cbor";
    cbor.ta_minor_version = 113;
    cbor.hal_minor_version = 1;

    Profile legacy4 = cbor;
    legacy4.name = "legacy-4";
    legacy4.legacy = true;

    Profile legacy3;
    legacy3.name = "legacy-3";
    legacy3.legacy = true;
    legacy3.keymaster_version = 3;
    legacy3.ta_minor_version = 112;
    legacy3.hal_minor_version = 0;
    legacy3.blob_version = kBlobVersion3_0;
    legacy3.date_support = false;
    legacy3.converts_ec_keys = false;
    legacy3.encodes_public_keys = false;

    Profile encoding = legacy3;
    encoding.name = "legacy-3-encoding";
    encoding.ta_minor_version = 113;
    encoding.hal_minor_version = 1;
    encoding.blob_version = kBlobVersion4_0;
    encoding.date_support = true;
    encoding.encodes_public_keys = true;

    return {cbor, legacy4, legacy3, encoding};
}

const std::vector<Profile>& profiles() {
    static const std::vector<Profile> all = makeProfiles();
    return all;
}

}  // namespace

const Profile* findProfile(const std::string& name) {
    for (const Profile& profile : profiles()) {
        if (profile.name == name) return &profile;
    }
    return nullptr;
}

const std::vector<std::string>& profileNames() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> all;
        for (const Profile& profile : profiles()) all.push_back(profile.name);
        return all;
    }();
    return names;
}

}  // namespace lumo::secureapp
