// What the library sends, on both wires, read by the other party's readers.
//
// Input: a byte that picks the method, one of switches, two for the room of a CBOR request, then
// what the method is called with: parameters, three byte strings, a number. Beyond not crashing: a
// request that goes out says exactly what the call did; where none goes out the call fails, and it
// is one that could not be sent.

#include <array>

#include "AppParams.h"
#include "EnumBits.h"
#include "KeymasterHalDevice.h"
#include "Outputs.h"
#include "QuietLog.h"
#include "ScriptedTransport.h"
#include "secureapp/base/Refusal.h"
#include "secureapp/protocol/CborReader.h"
#include "secureapp/protocol/RecordReader.h"

namespace {

using keymasterdevice::errorToWord;
using keymasterdevice::ErrorWord;
using keymasterdevice::KeymasterHalDevice;
using lumo::fuzz::appParam;
using lumo::fuzz::appParams;
using lumo::fuzz::exactCopy;
using lumo::fuzz::hasBytes;
using lumo::fuzz::hasKnownType;
using lumo::fuzz::Input;
using lumo::fuzz::InputParams;
using lumo::fuzz::Outputs;
using lumo::secureapp::ByteView;
using lumo::secureapp::CborReader;
using lumo::secureapp::Label;
using lumo::secureapp::Param;
using lumo::secureapp::ParamSet;
using lumo::secureapp::RecordReader;
using lumo::test::Bytes;
using lumo::test::ScriptedTransport;

enum Switch : uint8_t { kRecords = 1, kStrongBox = 2, kNullSet = 4 };

// A call's arguments. The strings lie in blocks of exactly their size.
struct Arguments {
    explicit Arguments(Input& input, bool null_set) : params(input) {
        for (size_t i = 0; i < strings.size(); ++i) {
            strings[i] = input.string<Bytes>();
            exact[i] = exactCopy(strings[i]);
            blobs[i] = {exact[i].get(), strings[i].size()};
        }
        number = input.number(8);
        set = null_set ? nullptr : params.get();
    }
    keymaster_key_blob_t key() const { return {blobs[0].data, blobs[0].data_length}; }

    InputParams params;
    const keymaster_key_param_set_t* set;
    std::array<Bytes, 3> strings;
    std::array<std::unique_ptr<uint8_t[]>, 3> exact;
    std::array<keymaster_blob_t, 3> blobs;
    uint64_t number;
};

// What a request says, in the order in which the call names it. Strings that a call leaves out are
// empty.
struct Message {
    ParamSet params;
    std::vector<Bytes> strings;
    std::vector<uint64_t> numbers;

    void add(ByteView bytes) { strings.push_back(bytes.copy()); }
    bool operator==(const Message& other) const {
        return std::equal(params.begin(), params.end(), other.params.begin(), other.params.end()) &&
               strings == other.strings && numbers == other.numbers;
    }
};

constexpr size_t kMaxInput = 16384;
constexpr size_t kMaxStrongBoxInput = 18432;

Bytes upTo(const Bytes& bytes, size_t size) {
    return {bytes.begin(),
            bytes.begin() + static_cast<std::ptrdiff_t>(std::min(bytes.size(), size))};
}

struct Method {
    ErrorWord (*call)(KeymasterHalDevice& device, Arguments& in, Outputs& out);
    void (*cbor)(CborReader& request, Message& read);
    void (*record)(const RecordReader& request, Message& read);
    size_t header_words;
    // The strings and numbers that the request is to have, by their place in the arguments.
    std::vector<size_t> strings;
    bool has_number;
    bool has_params;
};

const Method kMethods[] = {
    {[](auto& d, auto& in, auto& o) -> ErrorWord {
         return errorToWord(d.generate_key(in.set, &o.key, &o.characteristics));
     },
     [](auto& r, auto& m) { m.params = r.params(); },
     [](auto& r, auto& m) { m.params = r.params(1); },
     3,
     {},
     false,
     true},
    {[](auto& d, auto& in, auto& o) -> ErrorWord {
         // Without an algorithm a record has no form; an AES key travels as its bytes.
         in.params.add(keymaster_param_enum(KM_TAG_ALGORITHM, KM_ALGORITHM_AES));
         return errorToWord(
             d.import_key(in.set, KM_KEY_FORMAT_RAW, &in.blobs[1], &o.key, &o.characteristics));
     },
     [](auto& r, auto& m) {
         m.params = r.params();
         REQUIRE(r.number32(Label::kKeyFormat) == KM_KEY_FORMAT_RAW);
         m.add(r.bytes(Label::kKeyData));
     },
     [](auto& r, auto& m) {
         REQUIRE(r.word(1) == KM_KEY_FORMAT_RAW);
         m.params = r.params(2);
         m.add(r.item(4));
     },
     6,
     {1},
     false,
     true},
    {[](auto& d, auto& in, auto& o) -> ErrorWord {
         return errorToWord(d.import_wrapped_key(in.set, in.number, ~in.number, in.strings[0],
                                                 in.strings[1], in.strings[2], &o.key,
                                                 &o.characteristics));
     },
     [](auto& r, auto& m) {
         m.params = r.params();
         m.numbers.push_back(r.number(Label::kPasswordSid));
         REQUIRE(r.number(Label::kBiometricSid) == ~m.numbers.back());
         m.add(r.bytes(Label::kWrappedKey));
         m.add(r.bytes(Label::kWrappingKeyBlob));
         m.add(r.bytes(Label::kMaskingKey));
     },
     [](auto& r, auto& m) {
         m.numbers.push_back(r.longWord(1));
         REQUIRE(r.longWord(3) == ~m.numbers.back());
         m.add(r.item(7));
         m.add(r.item(5));
         m.add(r.item(9));
         m.params = r.params(11);
     },
     13,
     {0, 1, 2},
     true,
     true},
    {[](auto& d, auto& in, auto& o) -> ErrorWord {
         const keymaster_key_blob_t key = in.key();
         return errorToWord(d.upgrade_key(&key, in.set, &o.key));
     },
     [](auto& r, auto& m) {
         m.params = r.params();
         m.add(r.bytes(Label::kKeyBlob));
     },
     [](auto& r, auto& m) {
         m.add(r.item(1));
         m.params = r.params(3);
     },
     5,
     {0},
     false,
     true},
    {[](auto& d, auto& in, auto& o) -> ErrorWord {
         const keymaster_key_blob_t key = in.key();
         return errorToWord(d.attest_key(&key, in.set, &o.chain));
     },
     [](auto& r, auto& m) {
         m.params = r.params();
         m.add(r.bytes(Label::kKeyBlob));
         r.skipDate(Label::kActiveDate);
         r.skipDate(Label::kExpiryDate);
     },
     [](auto& r, auto& m) {
         m.add(r.item(1));
         m.params = r.params(3);
     },
     23,
     {0},
     false,
     true},
    {[](auto& d, auto& in, auto& o) -> ErrorWord {
         const keymaster_key_blob_t key = in.key();
         return errorToWord(d.begin_operation(KM_PURPOSE_SIGN, &key, in.set, &o.params, &o.handle));
     },
     [](auto& r, auto& m) {
         // The purpose is the last parameter.
         const ParamSet all = r.params();
         REQUIRE(all.size() != 0 && all[all.size() - 1].tag == KM_TAG_PURPOSE &&
                 all[all.size() - 1].integer == KM_PURPOSE_SIGN);
         m.params = all.part(0, all.size() - 1);
         m.add(r.bytes(Label::kKeyBlob));
     },
     [](auto& r, auto& m) {
         REQUIRE(r.word(1) == KM_PURPOSE_SIGN);
         m.add(r.item(2));
         m.params = r.params(4);
     },
     6,
     {0},
     false,
     true},
    {[](auto& d, auto& in, auto& o) -> ErrorWord {
         return errorToWord(
             d.update_operation(in.number, in.set, &in.blobs[1], &o.consumed, &o.params, &o.data));
     },
     [](auto& r, auto& m) {
         m.numbers.push_back(r.number(Label::kHandle));
         m.params = r.optionalParams();
         m.strings.push_back(r.optionalBytes(Label::kInput).copy());
     },
     [](auto& r, auto& m) {
         m.numbers.push_back(r.longWord(1));
         m.params = r.params(3);
         m.add(r.item(5));
     },
     7,
     {1},
     true,
     true},
    {[](auto& d, auto& in, auto& o) -> ErrorWord {
         return errorToWord(
             d.finish_operation(in.number, in.set, &in.blobs[1], &in.blobs[2], &o.params, &o.data));
     },
     [](auto& r, auto& m) {
         m.numbers.push_back(r.number(Label::kHandle));
         m.params = r.optionalParams();
         m.strings.push_back(r.optionalBytes(Label::kInput).copy());
         m.strings.push_back(r.optionalBytes(Label::kSignature).copy());
     },
     [](auto& r, auto& m) {
         m.numbers.push_back(r.longWord(1));
         m.params = r.params(3);
         m.add(r.item(5));
         m.add(r.item(7));
     },
     9,
     {1, 2},
     true,
     true},
    {[](auto& d, auto& in, auto& /*o*/) -> ErrorWord {
         return errorToWord(d.abort_operation(in.number));
     },
     [](auto& r, auto& m) { m.numbers.push_back(r.number(Label::kHandle)); },
     [](auto& r, auto& m) { m.numbers.push_back(r.longWord(1)); },
     3,
     {},
     true,
     false},
    {[](auto& d, auto& in, auto& /*o*/) -> ErrorWord {
         const keymaster_key_blob_t key = in.key();
         // A key of this size belongs to the driver of file-based encryption.
         if (key.key_material_size == 64) return KM_ERROR_UNIMPLEMENTED;
         return errorToWord(d.delete_key(&key));
     },
     [](auto& r, auto& m) { m.add(r.bytes(Label::kKeyBlob)); },
     [](auto& r, auto& m) { m.add(r.item(1)); },
     3,
     {0},
     false,
     false},
    {[](auto& d, auto& in, auto& o) -> ErrorWord {
         const keymaster_key_blob_t key = in.key();
         return errorToWord(d.export_key(KM_KEY_FORMAT_X509, &key, &in.blobs[1], nullptr, &o.data));
     },
     [](auto& r, auto& m) {
         const ParamSet binding = r.params();
         m.add(r.bytes(Label::kKeyBlob));
         m.add(binding.bytes(KM_TAG_APPLICATION_ID));
         REQUIRE(r.number32(Label::kKeyFormat) == KM_KEY_FORMAT_X509);
     },
     [](auto& r, auto& m) {
         m.add(r.item(1));
         REQUIRE(r.word(3) == KM_KEY_FORMAT_X509);
         m.add(r.item(4));
     },
     8,
     {0, 1},
     false,
     false},
    {[](auto& d, auto& in, auto& o) -> ErrorWord {
         std::vector<hmac_sharing_params_t> shares(in.strings[0].size() / 64);
         if (!shares.empty()) std::memcpy(shares.data(), in.blobs[0].data, shares.size() * 64);
         in.strings[0].resize(shares.size() * 64);
         return errorToWord(d.compute_shared_hmac(std::move(shares), o.check));
     },
     [](auto& r, auto& m) { m.add(r.bytes(Label::kSharingRecords)); },
     [](auto& r, auto& m) { m.add(r.itemAt(r.word(1), r.word(2) * 64)); },
     3,
     {0},
     false,
     false},
    {[](auto& d, auto& in, auto& /*o*/) -> ErrorWord { return errorToWord(d.configure(in.set)); },
     [](auto& r, auto& m) { m.params = r.params(); },
     [](auto& r, auto& m) { m.params = r.params(1); },
     3,
     {},
     false,
     true},
};

// As records carry them: a false boolean counts as absent, and a parameter that equals the one
// before it, word by word, as one with it.
ParamSet asRecords(const InputParams& params) {
    ParamSet seen;
    const keymaster_key_param_t* previous = nullptr;
    for (size_t i = 0; i < params.size(); ++i) {
        const keymaster_key_param_t& param = params[i];
        if (!hasKnownType(param.tag)) continue;
        const bool no_bytes = hasBytes(param.tag) && param.blob.data_length == 0;
        const bool repeated = previous != nullptr && previous->tag == param.tag &&
                              (hasBytes(param.tag) ? no_bytes && previous->blob.data_length == 0
                               : keymaster_tag_get_type(param.tag) == KM_BOOL
                                   ? previous->boolean == param.boolean
                                   : appParam(*previous) == appParam(param));
        previous = &param;
        const bool absent = keymaster_tag_get_type(param.tag) == KM_BOOL && !param.boolean;
        if (!repeated && !absent) seen.add(appParam(param));
    }
    return seen;
}

// Whether no message carries these parameters.
bool cannotTravel(const InputParams& params, bool records) {
    for (size_t i = 0; i < params.size(); ++i) {
        const keymaster_tag_type_t type = keymaster_tag_get_type(params[i].tag);
        if (type == KM_INVALID) return true;
        const bool null_bytes = hasBytes(params[i].tag) && params[i].blob.data == nullptr;
        if (records && null_bytes && params[i].blob.data_length != 0) return true;
    }
    return false;
}

// Kept: CBOR counts a parameter of an unknown type and does not write it.
bool isMiscounted(const InputParams& params) {
    for (size_t i = 0; i < params.size(); ++i) {
        if (!hasKnownType(params[i].tag)) return true;
    }
    return false;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const lumo::fuzz::QuietLog log;
    Input input(data, size);
    const Method& method = kMethods[input.byte() % std::size(kMethods)];
    const uint8_t switches = input.byte();
    const bool records = (switches & kRecords) != 0;
    const bool strongbox = (switches & kStrongBox) != 0;
    ScriptedTransport& transport = ScriptedTransport::instance();
    transport.reset();
    transport.legacy = records;
    if (const uint16_t room = input.twoBytes(); room != 0) transport.cbor_capacity = room;
    KeymasterHalDevice device(strongbox ? KM_SECURITY_LEVEL_STRONGBOX
                                        : KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT);
    Arguments in(input, (switches & kNullSet) != 0);
    Outputs out;
    const ErrorWord error = method.call(device, in, out);
    if (out.data.data == nullptr) out.data.data_length = 0;
    if (out.key.key_material == nullptr) out.key.key_material_size = 0;
    if (transport.sentCount() == 0) {
        REQUIRE(error != KM_ERROR_OK);
        return 0;
    }
    const bool carries_params = method.has_params && in.set != nullptr;
    REQUIRE(!carries_params || !cannotTravel(in.params, records));
    if (!records && carries_params && isMiscounted(in.params)) return 0;

    Message expected;
    if (carries_params) expected.params = records ? asRecords(in.params) : appParams(in.params);
    for (const size_t i : method.strings) expected.strings.push_back(in.strings[i]);
    if (method.has_number) expected.numbers.push_back(in.number);
    const bool is_update = method.header_words == 7;
    const bool is_finish = method.header_words == 9;
    if (is_update || (is_finish && records)) {
        const size_t most = records && strongbox ? kMaxStrongBoxInput : kMaxInput;
        expected.strings[0] = upTo(expected.strings[0], most);
    }

    const Bytes request = transport.calls.empty() ? Bytes() : [&] {
        for (const auto& call : transport.calls) {
            if (call.name == "sendCmd" || call.name == "send_cmd") return call.request;
        }
        return Bytes();
    }();
    Message read;
    try {
        if (records) {
            method.record(RecordReader(request, method.header_words), read);
        } else {
            CborReader reader(request);
            method.cbor(reader, read);
            reader.finish();
        }
    } catch (const lumo::secureapp::Refusal&) {
        BROKEN("the other party reads the request");
    }
    REQUIRE(read == expected);
    return 0;
}
