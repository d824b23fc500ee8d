#include "secureapp/access/Tokens.h"
#include "secureapp/base/Bytes.h"
#include "secureapp/base/Refusal.h"
#include "secureapp/protocol/RecordCommands.h"
#include "secureapp/protocol/SharingRecords.h"

namespace lumo::secureapp::records {
namespace {

// The sharing check and the MAC of a token are HMAC-SHA-256 values.
constexpr size_t kMacBytes = 32;

}  // namespace

Bytes configure(Keymaster& keymaster, const RecordCall& call) {
    enum ConfigureRequest : size_t { kConfigureParams = 1, kConfigureRequestWords = 3 };
    const RecordReader request(call.request, kConfigureRequestWords);
    keymaster.configure(request.params(kConfigureParams));
    return statusReply();
}

Bytes destroyDeviceIds(Keymaster& keymaster, const RecordCall& call) {
    enum DestroyIdsRequest : size_t { kDestroyZero = 1, kDestroyIdsRequestWords };
    const RecordReader request(call.request, kDestroyIdsRequestWords);
    if (request.word(kDestroyZero) != 0) {
        refuse(KM_ERROR_INVALID_ARGUMENT, "the second word of a destruction of ids is not 0");
    }
    keymaster.destroyDeviceIds();
    return statusReply();
}

Bytes getSharingParameters(Keymaster& keymaster, const RecordCall&) {
    enum SharingReply : size_t { kSharingSeed = 1, kSharingNonce = 9, kSharingReplyWords = 17 };
    const HmacSharingParameters& own = keymaster.hmacSharingParameters();
    if (own.nonce.size() != kSharingNonceBytes) {
        refuse(KM_ERROR_UNKNOWN_ERROR, "the sharing nonce has ", own.nonce.size(), " bytes");
    }
    RecordWriter reply(kSharingReplyWords);
    reply.fill(kSharingSeed, wireSeed(own));
    reply.fill(kSharingNonce, own.nonce);
    return reply.finish();
}

Bytes computeSharedHmac(Keymaster& keymaster, const RecordCall& call) {
    enum ComputeRequest : size_t { kSharingOffset = 1, kSharingCount, kComputeRequestWords };
    enum ComputeReply : size_t { kSharingCheck = 1, kComputeReplyWords = 9 };
    const RecordReader request(call.request, kComputeRequestWords);
    const uint32_t count = request.word(kSharingCount);
    if (count > call.request.size() / kSharingRecordBytes) {
        refuse(KM_ERROR_INVALID_ARGUMENT, count,
               " sharing parameters do not fit into the request's ", call.request.size(), " bytes");
    }
    const ByteView records = request.itemAt(request.word(kSharingOffset),
                                            count * static_cast<uint32_t>(kSharingRecordBytes));
    const Bytes check = keymaster.computeSharedHmac(readSharingRecords(records));
    if (check.size() != kMacBytes) {
        refuse(KM_ERROR_UNKNOWN_ERROR, "the sharing check has ", check.size(), " bytes");
    }
    RecordWriter reply(kComputeReplyWords);
    reply.fill(kSharingCheck, check);
    return reply.finish();
}

Bytes verifyAuthorization(Keymaster& keymaster, const RecordCall& call) {
    enum VerifyRequest : size_t { kChallenge = 1, kVerifyRequestWords = 3 };
    enum VerifyReply : size_t {
        kTokenChallenge = 1,
        kTokenTimestamp = 3,
        kTokenLevel = 5,
        kTokenMac = 6,
        kVerifyReplyWords = 14,
    };
    const RecordReader request(call.request, kVerifyRequestWords);
    const VerificationToken token = keymaster.verifyAuthorization(request.longWord(kChallenge));
    if (token.mac.size() != kMacBytes) {
        refuse(KM_ERROR_UNKNOWN_ERROR, "the verification token's MAC has ", token.mac.size(),
               " bytes");
    }
    RecordWriter reply(kVerifyReplyWords);
    reply.longWord(kTokenChallenge, token.challenge);
    reply.longWord(kTokenTimestamp, token.timestamp);
    reply.word(kTokenLevel, token.security_level);
    reply.fill(kTokenMac, token.mac);
    return reply.finish();
}

Bytes setRootOfTrust(Keymaster& keymaster, const RecordCall& call) {
    enum RootOfTrustRequest : size_t { kVerifiedBootKey = 1, kRootOfTrustRequestWords = 3 };
    constexpr size_t kVerifiedBootKeyBytes = 32;
    const RecordReader request(call.request, kRootOfTrustRequestWords);
    const ByteView key = request.item(kVerifiedBootKey);
    if (key.size() != kVerifiedBootKeyBytes) {
        refuse(KM_ERROR_INVALID_ARGUMENT, "the root of trust's record has a verified boot key of ",
               key.size(), " bytes");
    }
    keymaster.setRootOfTrust(key);
    return statusReply();
}

Bytes setBootState(Keymaster& keymaster, const RecordCall& call) {
    // The second request of the boot loader. Its header says that the body lies at byte 16; the
    // sender places it after the content of the first request, at byte 60, and the bytes between
    // are left over from that request.
    enum BootStateRequest : size_t {
        kBootStateZero = 1,
        kBootStateOffset,
        kBootStateLength,
        kBootStateHeaderWords,
    };
    constexpr uint32_t kBootStateStatedOffset = 16;
    constexpr size_t kBootStateBody = 60;
    constexpr size_t kBootStateRequestBytes = 108;
    enum BootStateBody : size_t {
        kBootLocked,
        kBootKeyStart,
        kBootFiller,
        kBootColor = 9,
        kBootVersion,
        kBootPatchlevel,
        kBootStateBodyWords,
    };
    static_assert(kBootStateBody + kBootStateBodyWords * kWordBytes == kBootStateRequestBytes,
                  "the body ends the request");
    const RecordReader request(call.request, kBootStateHeaderWords);
    const bool as_sent = call.request.size() == kBootStateRequestBytes &&
                         request.word(kBootStateZero) == 0 &&
                         request.word(kBootStateOffset) == kBootStateStatedOffset &&
                         request.word(kBootStateLength) == kBootStateBodyWords * kWordBytes;
    if (!as_sent) {
        refuse(KM_ERROR_INVALID_ARGUMENT, "the boot state's record has ", call.request.size(),
               " bytes and another header than the boot loader's, which has ",
               kBootStateRequestBytes);
    }
    const RecordReader body(call.request.sub(kBootStateBody), kBootStateBodyWords);
    if (body.word(kBootLocked) > 1) {
        refuse(KM_ERROR_INVALID_ARGUMENT, "the boot state's lock is neither 0 nor 1 but ",
               body.word(kBootLocked));
    }
    for (size_t word = kBootFiller; word < kBootColor; ++word) {
        if (body.word(word) == UINT32_MAX) continue;
        refuse(KM_ERROR_INVALID_ARGUMENT, "word ", word, " of the boot state is not filled");
    }
    keymaster.setBootState(body.word(kBootLocked) != 0, body.word(kBootColor),
                           body.word(kBootVersion), body.word(kBootPatchlevel));
    return statusReply();
}

Bytes dateSupport(const Profile& profile, const RecordCall& call) {
    enum DateSupportRequest : size_t { kDateSupportRequestWords = 3 };
    const RecordReader request(call.request, kDateSupportRequestWords);
    if (!profile.date_support) {
        refuse(KM_ERROR_INVALID_TAG, "profile ", profile.name, " takes no dates");
    }
    return statusReply();
}

}  // namespace lumo::secureapp::records
