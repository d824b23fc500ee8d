// One message of either wire, taken apart for people and for programs that handle recordings.
//
// The decoders are a reader of their own beside the library's and the secure application's, so that
// all three check each other. They accept any bytes: what cannot be read is said in `problems`, and
// nothing outside the message is looked at.
#pragma once

#include <hardware/keymaster_defs.h>

#include <string>
#include <vector>

#include "inspect/Commands.h"
#include "secureapp/base/Bytes.h"

namespace lumo::inspect {

using secureapp::Bytes;
using secureapp::ByteView;

enum class Side { kRequest, kResponse };

// What a field is to whoever hides, replaces or compares messages.
enum class Meaning {
    kValue,     // the caller's choice, or a fact of the device: the same in every run
    kLayout,    // an offset, a length: follows from the other fields
    kStale,     // never written for this message: whatever the buffer held before
    kRepeated,  // stale as well, but known: as in the parameter before, or all ones
    kUnread,    // bytes whose meaning is not known
    kKeyData,   // a key that is imported
    kMaskingKey,
    kApplication,  // application id or data that a key is bound to
    kInput,        // of an operation
    kOutput,       // of an operation
    kConsumed,     // how much of the input was
    kSignature,    // to be verified
    kKeyBlob,
    kHandle,
    kNonce,
    kPublicKey,
    kCertificate,
    kTime,
    kTokenMac,
    kSharingSeed,
    kSharingNonce,
    kSharingCheck,
    kSharingRecords,  // seeds and nonces, 64 bytes each
};

struct Field {
    std::string name;
    std::string value;  // for people, in one line
    Meaning meaning = Meaning::kValue;
    // The bytes of the value, from the start of the message. Of a CBOR string: its content.
    size_t offset = 0;
    size_t size = 0;
    // Where that place is stated: the item's head in CBOR, the pair of words (offset, length) in a
    // record; as `offset` where the value stands by itself.
    size_t stated_at = 0;
    // What the stated offset counts from; only in records.
    size_t base = 0;
    // Of a pair of words that states a place: the bytes that one of the counted things has.
    size_t unit = 0;
    uint64_t number = 0;  // the value of a number
    bool is_bytes = false;
    unsigned depth = 0;  // 1: a part of the field before it

    bool isStale() const { return meaning == Meaning::kStale || meaning == Meaning::kRepeated; }
};

// A part of a message whose bytes were replaced by zeros.
struct Hidden {
    size_t offset = 0;
    size_t size = 0;
    std::string what;
};

struct Message {
    Wire wire = Wire::kCbor;
    Side side = Side::kRequest;
    uint32_t number = 0;
    const CommandInfo* command = nullptr;  // null: unknown
    std::vector<Field> fields;             // by offset
    std::vector<std::string> problems;     // empty for a message that adds up
    // Bytes up to the last one that belongs to the message: a record's answer may be given together
    // with what lies behind it.
    size_t extent = 0;
    // Of CBOR: diagnostic notation (RFC 8949, 8) with the meanings as comments. Byte strings are
    // cut after some bytes, marked by "...".
    std::string notation;

    const Field* find(Meaning meaning) const;
};

// `hidden` says which bytes are zeros in place of others; they are shown as such.
Message decodeCbor(uint32_t number, Side side, ByteView bytes,
                   const std::vector<Hidden>& hidden = {});
// The number of a request is its first word; that of a response is not in its bytes.
Message decodeRecordRequest(ByteView bytes, const std::vector<Hidden>& hidden = {});
Message decodeRecordResponse(uint32_t number, ByteView bytes,
                             const std::vector<Hidden>& hidden = {});
// One of the three.
Message decode(Wire wire, Side side, uint32_t number, ByteView bytes,
               const std::vector<Hidden>& hidden = {});

// Lines for people, each field with the byte offset and size of its value, then the problems.
std::string toText(const Message& message, const std::string& indent = "");

std::string toHex(ByteView bytes);

}  // namespace lumo::inspect
