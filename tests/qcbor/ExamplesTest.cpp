// RFC 8949, appendix A, decoded.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "CborText.h"

namespace {

// Bytes, and the items as `decoded` writes them.
using Examples = std::vector<std::pair<std::string, std::string>>;

Examples parse(const char* table) {
    Examples examples;
    std::istringstream in(table);
    std::string hex;
    std::string items;
    while (in >> hex >> std::ws && std::getline(in, items, ';')) {
        examples.emplace_back(hex, items + ' ');
    }
    return examples;
}

const Examples kItems = parse(R"(
00 0:0; 01 0:1; 0a 0:10; 17 0:23; 1818 0:24; 1819 0:25; 1864 0:100; 1903e8 0:1000;
1a000f4240 0:1000000; 1b000000e8d4a51000 0:1000000000000; 1bffffffffffffffff 0:18446744073709551615u;
c249010000000000000000 0:#2/4 bigh'010000000000000000';
c349010000000000000000 0:#3/8 -bigh'010000000000000000';
20 0:-1; 29 0:-10; 3863 0:-100; 3903e7 0:-1000; f4 0:type20; f5 0:type21; f6 0:type22; f7 0:type23;
c074323031332d30332d32315432303a30343a30305a 0:#0/1 date"2013-03-21T20:04:00Z";
c11a514b67b0 0:#1/2 epoch1363896240+0; d74401020304 0:#23/800000 h'01020304';
d818456449455446 0:#24/1000000 h'6449455446';
d82076687474703a2f2f7777772e6578616d706c652e636f6d 0:#32/100000000 "http://www.example.com";
40 0:h''; 4401020304 0:h'01020304'; 60 0:""; 6161 0:"a"; 6449455446 0:"IETF"; 62225c 0:""\";
62c3bc 0:"ü"; 63e6b0b4 0:"水"; 64f0908591 0:"𐅑";
80 0:[0; 83010203 0:[3 1:1 1:2 1:3; 8301820203820405 0:[3 1:1 1:[2 2:2 2:3 1:[2 2:4 2:5;
98190102030405060708090a0b0c0d0e0f101112131415161718181819 0:[25 1:1 1:2 1:3 1:4 1:5 1:6 1:7 1:8 1:9 1:10 1:11 1:12 1:13 1:14 1:15 1:16 1:17 1:18 1:19 1:20 1:21 1:22 1:23 1:24 1:25;
a0 0:{0; a201020304 0:{2 1:1=2 1:3=4; a26161016162820203 0:{2 1:"a"=1 1:"b"=[2 2:2 2:3;
826161a161626163 0:[2 1:"a" 1:{1 2:"b"="c";
a56161614161626142616361436164614461656145 0:{5 1:"a"="A" 1:"b"="B" 1:"c"="C" 1:"d"="D" 1:"e"="E";
)");

// Floats, simple values without a name, and what is refused: indefinite lengths, great negatives.
const Examples kRareItems = parse(R"(
f90000 0:0f; f98000 0:-0f; f93c00 0:1f; fb3ff199999999999a 0:1.1000000000000001f; f93e00 0:1.5f;
f97bff 0:65504f; fa47c35000 0:100000f; fa7f7fffff 0:3.4028234663852886e+38f;
fb7e37e43c8800759c 0:1.0000000000000001e+300f; f90001 0:5.9604644775390625e-08f;
f90400 0:6.103515625e-05f; f9c400 0:-4f; fbc010666666666666 0:-4.0999999999999996f;
f97c00 0:inff; f97e00 0:nanf; f9fc00 0:-inff; fa7f800000 0:inff; fa7fc00000 0:nanf;
faff800000 0:-inff; fb7ff0000000000000 0:inff; fb7ff8000000000000 0:nanf; fbfff0000000000000 0:-inff;
c1fb41d452d9ec200000 0:#1/2 epoch1363896240+0.5; f0 0:simple16; f8ff 0:simple255;
3bffffffffffffffff !9; 9fff !5 !5; 5f42010243030405ff !5 0:h'0102' 0:h'030405' !5;
7f657374726561646d696e67ff !5 0:"strea" 0:"ming" !5;
bf61610161629f0203ffff !5 0:"a" 0:1 0:"b" !5 0:2 0:3 !5 !5;
)");

// Whole, and cut off anywhere, when the items begin in the same way.
TEST(QcborExamples, areDecoded) {
    for (const Examples* examples : {&kItems, &kRareItems}) {
        ASSERT_GT(examples->size(), 29u);
        for (const auto& [hex, items] : *examples) {
            EXPECT_EQ(decoded(fromHex(hex)), items) << hex;
            for (size_t size = 0; size < hex.size(); size += 2) {
                std::string beginning = decoded(fromHex(hex.substr(0, size)));
                beginning.resize(std::min(beginning.find("finish"), beginning.size()));
                EXPECT_EQ(beginning, items.substr(0, beginning.size())) << hex << ' ' << size;
            }
        }
    }
}

}  // namespace
