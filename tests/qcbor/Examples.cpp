// RFC 8949, appendix A, as far as this interface reaches.
#include "CborText.h"

namespace {

using Context = QCBOREncodeContext;

template <int64_t kValue>
void integer(Context* context) {
    QCBOREncode_AddInt64(context, kValue);
}

template <uint8_t kValue>
void simple(Context* context) {
    QCBOREncode_AddSimple(context, kValue);
}

void text(Context* context, const char* value) {
    QCBOREncode_AddText(context, SZToUsefulBufC(value));
}

void taggedText(Context* context, uint64_t tag, const char* value) {
    QCBOREncode_AddText_3(context, nullptr, QCBOR_NO_INT_LABEL, tag, SZToUsefulBufC(value));
}

void taggedBytes(Context* context, uint64_t tag, const char* hex) {
    const Bytes bytes = fromHex(hex);
    QCBOREncode_AddBytes_3(context, nullptr, QCBOR_NO_INT_LABEL, tag, {bytes.data(), bytes.size()});
}

void integers(Context* context, int64_t first, int64_t last) {
    QCBOREncode_OpenArray(context);
    for (int64_t value = first; value <= last; ++value) {
        QCBOREncode_AddInt64(context, value);
    }
    QCBOREncode_CloseArray(context);
}

}  // namespace

const std::vector<Example> kExamples = {
    {"00", "0:0", integer<0>},
    {"01", "0:1", integer<1>},
    {"0a", "0:10", integer<10>},
    {"17", "0:23", integer<23>},
    {"1818", "0:24", integer<24>},
    {"1819", "0:25", integer<25>},
    {"1864", "0:100", integer<100>},
    {"1903e8", "0:1000", integer<1000>},
    {"1a000f4240", "0:1000000", integer<1000000>},
    {"1b000000e8d4a51000", "0:1000000000000", integer<1000000000000>},
    {"1bffffffffffffffff", "0:18446744073709551615u",
     [](Context* c) { QCBOREncode_AddUInt64(c, UINT64_MAX); }},
    {"c249010000000000000000", "0:#2/4 bigh'010000000000000000'",
     [](Context* c) { taggedBytes(c, CBOR_TAG_POS_BIGNUM, "010000000000000000"); }},
    {"3bffffffffffffffff", "!9", nullptr},
    {"c349010000000000000000", "0:#3/8 -bigh'010000000000000000'",
     [](Context* c) { taggedBytes(c, CBOR_TAG_NEG_BIGNUM, "010000000000000000"); }},
    {"20", "0:-1", integer<-1>},
    {"29", "0:-10", integer<-10>},
    {"3863", "0:-100", integer<-100>},
    {"3903e7", "0:-1000", integer<-1000>},
    {"f90000", "0:0f", nullptr},
    {"f98000", "0:-0f", nullptr},
    {"f93c00", "0:1f", nullptr},
    {"fb3ff199999999999a", "0:1.1000000000000001f", nullptr},
    {"f93e00", "0:1.5f", nullptr},
    {"f97bff", "0:65504f", nullptr},
    {"fa47c35000", "0:100000f", nullptr},
    {"fa7f7fffff", "0:3.4028234663852886e+38f", nullptr},
    {"fb7e37e43c8800759c", "0:1.0000000000000001e+300f", nullptr},
    {"f90001", "0:5.9604644775390625e-08f", nullptr},
    {"f90400", "0:6.103515625e-05f", nullptr},
    {"f9c400", "0:-4f", nullptr},
    {"fbc010666666666666", "0:-4.0999999999999996f", nullptr},
    {"f97c00", "0:inff", nullptr},
    {"f97e00", "0:nanf", nullptr},
    {"f9fc00", "0:-inff", nullptr},
    {"fa7f800000", "0:inff", nullptr},
    {"fa7fc00000", "0:nanf", nullptr},
    {"faff800000", "0:-inff", nullptr},
    {"fb7ff0000000000000", "0:inff", nullptr},
    {"fb7ff8000000000000", "0:nanf", nullptr},
    {"fbfff0000000000000", "0:-inff", nullptr},
    {"f4", "0:type20", simple<CBOR_SIMPLEV_FALSE>},
    {"f5", "0:type21", simple<CBOR_SIMPLEV_TRUE>},
    {"f6", "0:type22", simple<CBOR_SIMPLEV_NULL>},
    {"f7", "0:type23", simple<CBOR_SIMPLEV_UNDEF>},
    {"f0", "0:simple16", nullptr},
    {"f8ff", "0:simple255", nullptr},
    {"c074323031332d30332d32315432303a30343a30305a", "0:#0/1 date\"2013-03-21T20:04:00Z\"",
     [](Context* c) { taggedText(c, CBOR_TAG_DATE_STRING, "2013-03-21T20:04:00Z"); }},
    {"c11a514b67b0", "0:#1/2 epoch1363896240+0f",
     [](Context* c) {
         QCBOREncode_AddInt64_3(c, nullptr, QCBOR_NO_INT_LABEL, CBOR_TAG_DATE_EPOCH, 1363896240);
     }},
    {"c1fb41d452d9ec200000", "0:#1/2 epoch1363896240+0.5f", nullptr},
    {"d74401020304", "0:#23/800000 h'01020304'",
     [](Context* c) { taggedBytes(c, CBOR_TAG_ENC_AS_B16, "01020304"); }},
    {"d818456449455446", "0:#24/1000000 h'6449455446'",
     [](Context* c) { taggedBytes(c, CBOR_TAG_CBOR, "6449455446"); }},
    {"d82076687474703a2f2f7777772e6578616d706c652e636f6d",
     "0:#32/100000000 \"http://www.example.com\"",
     [](Context* c) { taggedText(c, CBOR_TAG_URI, "http://www.example.com"); }},
    {"40", "0:h''", [](Context* c) { QCBOREncode_AddBytes(c, NULLUsefulBufC); }},
    {"4401020304", "0:h'01020304'", [](Context* c) { taggedBytes(c, CBOR_TAG_NONE, "01020304"); }},
    {"60", "0:\"\"", [](Context* c) { text(c, ""); }},
    {"6161", "0:\"a\"", [](Context* c) { text(c, "a"); }},
    {"6449455446", "0:\"IETF\"", [](Context* c) { text(c, "IETF"); }},
    {"62225c", "0:\"\"\\\"", [](Context* c) { text(c, "\"\\"); }},
    {"62c3bc", "0:\"\u00fc\"", [](Context* c) { text(c, "\u00fc"); }},
    {"63e6b0b4", "0:\"\u6c34\"", [](Context* c) { text(c, "\u6c34"); }},
    {"64f0908591", "0:\"\U00010151\"", [](Context* c) { text(c, "\U00010151"); }},
    {"80", "0:[0", [](Context* c) { integers(c, 1, 0); }},
    {"83010203", "0:[3 1:1 1:2 1:3", [](Context* c) { integers(c, 1, 3); }},
    {"8301820203820405", "0:[3 1:1 1:[2 2:2 2:3 1:[2 2:4 2:5",
     [](Context* c) {
         QCBOREncode_OpenArray(c);
         QCBOREncode_AddInt64(c, 1);
         integers(c, 2, 3);
         integers(c, 4, 5);
         QCBOREncode_CloseArray(c);
     }},
    {"98190102030405060708090a0b0c0d0e0f101112131415161718181819",
     "0:[25 1:1 1:2 1:3 1:4 1:5 1:6 1:7 1:8 1:9 1:10 1:11 1:12 1:13 1:14 1:15 1:16 1:17 1:18 1:19 "
     "1:20 1:21 1:22 1:23 1:24 1:25",
     [](Context* c) { integers(c, 1, 25); }},
    {"a0", "0:{0",
     [](Context* c) {
         QCBOREncode_OpenMap(c);
         QCBOREncode_CloseMap(c);
     }},
    {"a201020304", "0:{2 1:1=2 1:3=4",
     [](Context* c) {
         QCBOREncode_OpenMap(c);
         QCBOREncode_AddInt64ToMapN(c, 1, 2);
         QCBOREncode_AddInt64ToMapN(c, 3, 4);
         QCBOREncode_CloseMap(c);
     }},
    {"a26161016162820203", "0:{2 1:\"a\"=1 1:\"b\"=[2 2:2 2:3",
     [](Context* c) {
         QCBOREncode_OpenMap(c);
         QCBOREncode_AddInt64ToMap(c, "a", 1);
         QCBOREncode_OpenArrayInMap(c, "b");
         QCBOREncode_AddInt64(c, 2);
         QCBOREncode_AddInt64(c, 3);
         QCBOREncode_CloseArray(c);
         QCBOREncode_CloseMap(c);
     }},
    {"826161a161626163", "0:[2 1:\"a\" 1:{1 2:\"b\"=\"c\"",
     [](Context* c) {
         QCBOREncode_OpenArray(c);
         text(c, "a");
         QCBOREncode_OpenMap(c);
         QCBOREncode_AddTextToMap(c, "b", SZLiteralToUsefulBufC("c"));
         QCBOREncode_CloseMap(c);
         QCBOREncode_CloseArray(c);
     }},
    // Indefinite lengths are refused at their first byte, and so is the break.
    {"5f42010243030405ff", "!5 0:h'0102' 0:h'030405' !5", nullptr},
    {"7f657374726561646d696e67ff", "!5 0:\"strea\" 0:\"ming\" !5", nullptr},
    {"9fff", "!5 !5", nullptr},
    {"bf61610161629f0203ffff", "!5 0:\"a\" 0:1 0:\"b\" !5 0:2 0:3 !5 !5", nullptr},
};
