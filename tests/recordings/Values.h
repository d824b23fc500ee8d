// What a row writes for an argument, and how bytes are shown.
//
// Bytes are terms joined by `+`: hexadecimal digits; HH*COUNT, a repeated byte, where COUNT may be
// a difference such as 40960-12; w(1,0x2,-3), little-endian 32-bit words;
// kb(SIZE,MAJOR.MINOR,FIELD...) a key blob of zeroes but for the magic, the version and fields of
// the form OFFSET:BYTES=VALUE; `-` for nothing. A blob is bytes, or `-/LENGTH` for a null pointer
// with a length, or BYTES/LENGTH for another length than the bytes have. A parameter set is
// [TAG=VALUE,...], tags in hexadecimal, with the same two forms; a value is bytes or a number, by
// the type of its tag.
#pragma once

#include <hardware/keymaster_defs.h>

#include <deque>
#include <string>
#include <vector>

#include "ScriptedTransport.h"

namespace lumo::test {

// Splits at `separator` outside brackets.
std::vector<std::string> split(const std::string& text, char separator);
// A number in any base that C writes, or a difference of such.
uint64_t parseNumber(const std::string& text);
size_t parseSize(const std::string& text);
Bytes parseBytes(const std::string& text);

// A blob or a parameter set with what it points at.
struct BlobValue {
    explicit BlobValue(const std::string& text);
    BlobValue(const BlobValue&) = delete;
    Bytes bytes;
    keymaster_blob_t blob;
    keymaster_key_blob_t key;
};
struct ParamsValue {
    explicit ParamsValue(const std::string& text);
    ParamsValue(const ParamsValue&) = delete;
    std::vector<keymaster_key_param_t> params;
    keymaster_key_param_set_t set;
    std::deque<BlobValue> blobs;
};

// Hexadecimal digits; a byte that stands 12 times or more in a row is HH*COUNT. In groups of so
// many bytes, or of any number for 0.
std::string showBytes(const Bytes& bytes, size_t group = 0);
std::string hexNumber(uint64_t value);
// null/LENGTH for a null pointer.
std::string show(const uint8_t* data, size_t length);
std::string show(const keymaster_key_param_set_t& set);

}  // namespace lumo::test
