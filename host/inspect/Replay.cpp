#include "inspect/Replay.h"

#include <algorithm>

#include "inspect/KeyBlob.h"
#include "inspect/Parameters.h"

namespace lumo::inspect {
namespace {

using secureapp::append;

constexpr size_t kHandleBytes = 8;
constexpr size_t kSharingBytes = 64;

bool isZeros(ByteView bytes) {
    return std::all_of(bytes.begin(), bytes.end(), [](uint8_t byte) { return byte == 0; });
}

bool equal(ByteView a, ByteView b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end());
}

ByteView bytesOf(const Field& field, ByteView message) {
    return message.sub(field.offset, field.size);
}

ByteView responseOf(const Exchange& exchange) {
    return exchange.response ? ByteView(*exchange.response) : ByteView();
}

// A DER item that has the length that it states.
bool isDer(ByteView bytes) {
    constexpr uint8_t kSequence = 0x30;
    if (bytes.size() < 2 || bytes[0] != kSequence) return false;
    size_t length = bytes[1];
    size_t head = 2;
    if (length > 0x80) {
        const size_t width = length - 0x80;
        if (width > 3 || bytes.size() < head + width) return false;
        length = static_cast<size_t>(secureapp::loadBig(bytes.data() + head, width));
        head += width;
    }
    return bytes.size() == head + length;
}

ByteView withoutZeros(ByteView number) {
    size_t zeros = 0;
    while (zeros < number.size() && number[zeros] == 0) ++zeros;
    return number.sub(zeros);
}

bool isCoordinate(const Field& field) {
    return field.name == "x" || field.name == "y";
}

// What both messages are compared by: fields that follow from others or say nothing are left out.
std::vector<const Field*> comparedFields(const Message& message) {
    std::vector<const Field*> fields;
    for (const Field& field : message.fields) {
        if (!field.isStale() && field.meaning != Meaning::kLayout) fields.push_back(&field);
    }
    return fields;
}

std::string sizes(const std::string& name, size_t recorded, size_t here) {
    return name + " has " + countOfBytes(here) + ", recorded are " + std::to_string(recorded);
}

size_t firstDifference(ByteView a, ByteView b) {
    const size_t both = std::min(a.size(), b.size());
    return static_cast<size_t>(std::mismatch(a.begin(), a.begin() + both, b.begin()).first -
                               a.begin());
}

// "...03420004|9a1b2c3d4e5f6071...": the bytes before and behind a place.
std::string around(ByteView bytes, size_t place) {
    constexpr size_t kBefore = 4, kBehind = 8;
    const size_t from = place - std::min(place, kBefore);
    return (from > 0 ? "..." : "") + toHex(bytes.sub(from, place - from)) + "|" +
           toHex(bytes.sub(place, kBehind)) + (bytes.size() > place + kBehind ? "..." : "");
}

// Tells no byte of either.
std::string placeOfDifference(const std::string& name, ByteView recorded, ByteView here) {
    const bool same_size = recorded.size() == here.size();
    return (same_size ? name : sizes(name, recorded.size(), here.size()) + ", and") +
           " differs from its byte " + std::to_string(firstDifference(recorded, here)) + " on";
}

std::string bytesDifference(const std::string& name, ByteView recorded, ByteView here) {
    const size_t place = firstDifference(recorded, here);
    return placeOfDifference(name, recorded, here) + ": it is " + around(here, place) +
           ", recorded is " + around(recorded, place);
}

Bytes cborHead(unsigned major, uint64_t value) {
    const auto first = static_cast<uint8_t>(major << 5);
    Bytes head;
    if (value < 24) return {static_cast<uint8_t>(first | value)};
    size_t width = 1;
    uint8_t info = 24;
    while (width < 8 && value >> (8 * width) != 0) width *= 2, ++info;
    head.push_back(first | info);
    secureapp::appendBig(head, value, width);
    return head;
}

Bytes withCborContents(ByteView bytes,
                       const std::vector<std::pair<const Field*, Bytes>>& contents) {
    constexpr unsigned kUnsigned = 0;
    constexpr unsigned kByteString = 2;
    Bytes result;
    size_t done = 0;
    for (const auto& [field, content] : contents) {
        append(result, bytes.sub(done, field->stated_at - done));
        if (field->is_bytes) {
            append(result, cborHead(kByteString, content.size()));
            append(result, content);
        } else {
            append(result,
                   cborHead(kUnsigned, secureapp::loadLittle(content.data(), kHandleBytes)));
        }
        done = field->offset + field->size;
    }
    append(result, bytes.sub(done));
    return result;
}

// How far what stood at `place` has moved, modulo 2^64.
size_t shiftAt(size_t place, const std::vector<std::pair<const Field*, Bytes>>& contents) {
    size_t shift = 0;
    for (const auto& [field, content] : contents) {
        if (field->offset < place) shift += content.size() - field->size;
    }
    return shift;
}

Bytes withRecordContents(const Message& message, ByteView bytes,
                         const std::vector<std::pair<const Field*, Bytes>>& contents) {
    constexpr size_t kWordBytes = 4;
    Bytes result;
    size_t done = 0;
    for (const auto& [field, content] : contents) {
        append(result, bytes.sub(done, field->offset - done));
        append(result, content);
        done = field->offset + field->size;
    }
    append(result, bytes.sub(done));
    for (const Field& pair : message.fields) {
        if (pair.meaning != Meaning::kLayout || pair.unit == 0) continue;
        const uint8_t* words = bytes.data() + pair.offset;
        const auto wordAt = [&](size_t index) {
            return static_cast<size_t>(
                secureapp::loadLittle(words + index * kWordBytes, kWordBytes));
        };
        const size_t start = pair.base + wordAt(0);
        const size_t end = start + wordAt(1) * pair.unit;
        const size_t new_start = start + shiftAt(start, contents);
        const size_t new_end = end + shiftAt(end, contents);
        const size_t new_base = pair.base + shiftAt(pair.base, contents);
        uint8_t* place = result.data() + pair.offset + shiftAt(pair.offset, contents);
        secureapp::storeLittle(place, new_start - new_base, kWordBytes);
        secureapp::storeLittle(place + kWordBytes, (new_end - new_start) / pair.unit, kWordBytes);
    }
    return result;
}

bool overlap(const Field& a, const Field& b) {
    return a.offset < b.offset + b.size && b.offset < a.offset + a.size;
}

std::string soundness(const Message& message) {
    if (message.problems.empty()) return "adds up";
    return "does not add up (" + message.problems.front() + ")";
}

uint32_t purposeOf(const Message& request) {
    uint32_t purpose = 0;
    for (const Field& field : request.fields) {
        const bool last = request.wire == Wire::kCbor && field.name == "PURPOSE";
        if (last || field.name == "purpose") purpose = static_cast<uint32_t>(field.number);
    }
    return purpose;
}

bool usesOperation(const CommandInfo* command) {
    return command != nullptr &&
           (command->id == CommandId::kUpdate || command->id == CommandId::kFinish ||
            command->id == CommandId::kAbort);
}

}  // namespace

const char* nameOf(Skip skip) {
    constexpr const char* kNames[] = {"sent",    "redacted",   "foreignMac",
                                      "depends", "unanswered", "destructive"};
    return kNames[static_cast<size_t>(skip)];
}

const char* describe(Skip skip) {
    constexpr const char* kWords[] = {
        "sent",
        "redacted",
        "with a foreign MAC",
        "depending on what was left out",
        "that had not reached the application",
        "destructive",
    };
    return kWords[static_cast<size_t>(skip)];
}

Bytes withContents(const Message& message, ByteView bytes,
                   const std::vector<std::pair<const Field*, Bytes>>& contents) {
    if (contents.empty()) return bytes.copy();
    auto sorted = contents;
    std::sort(sorted.begin(), sorted.end(),
              [](const auto& a, const auto& b) { return a.first->offset < b.first->offset; });
    // Items that lie in each other, or in the words that say where items are, can be replaced only
    // by a sender who means it.
    for (size_t i = 1; i < sorted.size(); ++i) {
        if (overlap(*sorted[i - 1].first, *sorted[i].first)) return bytes.copy();
    }
    for (const Field& pair : message.fields) {
        if (pair.meaning != Meaning::kLayout) continue;
        for (const auto& [field, content] : sorted) {
            if (overlap(pair, *field)) return bytes.copy();
        }
    }
    return message.wire == Wire::kCbor ? withCborContents(bytes, sorted)
                                       : withRecordContents(message, bytes, sorted);
}

Bytes abortRequest(Wire wire, uint32_t level, uint64_t handle, uint32_t& number) {
    constexpr uint8_t kHandleLabel = 34;
    const CommandNumbers& numbers = findCommand("abort")->on(wire);
    number = level == KM_SECURITY_LEVEL_STRONGBOX ? numbers.strongbox : numbers.environment;
    Bytes request;
    if (wire == Wire::kRecord) {
        secureapp::appendLittle(request, number, 4);
        secureapp::appendLittle(request, handle, kHandleBytes);
        return request;
    }
    append(request, cborHead(5, 1));
    append(request, cborHead(0, kHandleLabel));
    append(request, cborHead(0, handle));
    return request;
}

void Replay::reboot() {
    operations_.clear();
    sharing_.clear();
    same_hmac_.clear();
    abandoned_.clear();
    operation_ = nullptr;
}

std::vector<std::pair<uint32_t, uint64_t>> Replay::takeAbandoned() {
    return std::exchange(abandoned_, {});
}

Skip Replay::prepare(const Exchange& exchange, Bytes& request) {
    const Message decoded = exchange.decodedRequest();
    operation_ = nullptr;
    same_key_ = true;
    Contents contents;
    const Skip skip = replace(exchange, decoded, contents);
    if (skip != Skip::kNone) {
        lose(exchange, decoded);
        return skip;
    }
    // What is the same here stands in the request as it was written, minimal or not.
    const auto same = [&](const auto& replaced) {
        const auto& [field, content] = replaced;
        return field->is_bytes
                   ? equal(bytesOf(*field, exchange.request), content)
                   : secureapp::loadLittle(content.data(), kHandleBytes) == field->number;
    };
    contents.erase(std::remove_if(contents.begin(), contents.end(), same), contents.end());
    request = withContents(decoded, exchange.request, contents);
    return Skip::kNone;
}

Skip Replay::replace(const Exchange& exchange, const Message& request, Contents& contents) {
    const CommandInfo* command = request.command;
    if (exchange.code == KM_ERROR_SECURE_HW_COMMUNICATION_FAILED) return Skip::kUnanswered;
    const bool destroys = command != nullptr && (command->id == CommandId::kDeleteAllKeys ||
                                                 command->id == CommandId::kDestroyAttestationIds);
    if (destroys && !destructive_) return Skip::kDestructive;
    for (const Field& field : request.fields) {
        const bool hidden = hiddenIn(field.offset, field.size, exchange.hidden_request) != nullptr;
        if (hidden && !field.isStale()) return Skip::kRedacted;
    }
    bool has_mac = false;
    for (const Field& field : request.fields) {
        const ByteView bytes = bytesOf(field, exchange.request);
        if (field.meaning == Meaning::kTokenMac && !isZeros(bytes)) has_mac = true;
        if (field.meaning == Meaning::kKeyBlob) {
            const auto known = blobs_.find(bytes.copy());
            if (known == blobs_.end()) continue;
            if (known->second.lost) return Skip::kDepends;
            same_key_ = same_key_ && known->second.same_key;
            contents.emplace_back(&field, known->second.here);
        } else if (field.meaning == Meaning::kNonce) {
            const auto known = nonces_.find(bytes.copy());
            if (known != nonces_.end()) contents.emplace_back(&field, known->second);
        } else if (field.meaning == Meaning::kSharingRecords) {
            Bytes records;
            for (size_t i = 0; i < bytes.size(); i += kSharingBytes) {
                const Bytes record = bytes.sub(i, kSharingBytes).copy();
                const auto known = sharing_.find(record);
                append(records, known == sharing_.end() ? record : known->second);
            }
            contents.emplace_back(&field, records);
        } else if (field.meaning == Meaning::kHandle && field.depth == 0) {
            const auto known = operations_.find({exchange.level, field.number});
            if (known == operations_.end()) {
                if (usesOperation(command) && exchange.code == KM_ERROR_OK) return Skip::kDepends;
                continue;
            }
            if (known->second.lost) return Skip::kDepends;
            if (usesOperation(command)) {
                operation_ = &known->second;
                same_key_ = operation_->same_key;
            }
            Bytes number;
            secureapp::appendLittle(number, known->second.handle, kHandleBytes);
            contents.emplace_back(&field, number);
        }
    }
    if (has_mac) {
        if (same_hmac_.count(exchange.level) == 0) return Skip::kForeignMac;
        for (const Field& field : request.fields) {
            if (field.meaning != Meaning::kHandle || field.depth == 0 || field.number == 0)
                continue;
            const bool same = operation_ != nullptr && operation_->handle == field.number;
            if (!same) return Skip::kForeignMac;
        }
    }
    // A key that is wrapped for a key of the recorded side can be unwrapped nowhere else.
    if (command != nullptr && command->id == CommandId::kImportWrappedKey && !same_key_) {
        return Skip::kDepends;
    }
    if (operation_ == nullptr) return Skip::kNone;
    for (const Field& field : request.fields) {
        const ByteView bytes = bytesOf(field, exchange.request);
        Skip skip = Skip::kNone;
        if (field.meaning == Meaning::kInput) skip = replaceInput(field, bytes, contents);
        if (field.meaning == Meaning::kSignature) skip = replaceSignature(field, bytes, contents);
        if (skip != Skip::kNone) return skip;
    }
    return Skip::kNone;
}

// What is decrypted here is what was encrypted here, piece by piece.
Skip Replay::replaceInput(const Field& field, ByteView input, Contents& contents) {
    Operation& operation = *operation_;
    if (operation.purpose != KM_PURPOSE_DECRYPT || input.empty()) return Skip::kNone;
    const auto continues = [&](size_t source) {
        const ByteView known = outputs_[source].first;
        return outputs_[source].second.size() == known.size() &&
               equal(known.sub(operation.position, input.size()), input);
    };
    if (!operation.source && operation.position == 0) {
        for (size_t i = outputs_.size(); i-- > 0 && !operation.source;) {
            if (continues(i)) operation.source = i;
        }
    } else if (operation.source && !continues(*operation.source)) {
        return Skip::kDepends;
    }
    if (!operation.source) return operation.same_key ? Skip::kNone : Skip::kDepends;
    const ByteView here = outputs_[*operation.source].second;
    contents.emplace_back(&field, here.sub(operation.position, input.size()).copy());
    return Skip::kNone;
}

// Over records an EC signature is verified as its two numbers, and comes as both in one.
Skip Replay::replaceSignature(const Field& field, ByteView signature, Contents& contents) const {
    if (signature.empty()) return Skip::kNone;
    for (auto known = outputs_.rbegin(); known != outputs_.rend(); ++known) {
        const auto& [recorded, here] = *known;
        if (equal(recorded, signature)) {
            contents.emplace_back(&field, here);
            return Skip::kNone;
        }
        if (field.name != "signature r" && field.name != "signature s") continue;
        const size_t from = field.name == "signature r" ? 0 : recorded.size() / 2;
        const ByteView part = ByteView(recorded).sub(from, recorded.size() / 2);
        if (!equal(withoutZeros(part), withoutZeros(signature))) continue;
        contents.emplace_back(&field, ByteView(here).sub(from, here.size() / 2).copy());
        return Skip::kNone;
    }
    return same_key_ ? Skip::kNone : Skip::kDepends;
}

// What a line that is not sent would have made is missing from now on.
void Replay::lose(const Exchange& exchange, const Message& request) {
    const CommandInfo* command = request.command;
    if (command == nullptr) return;
    const Message response = exchange.decodedResponse();
    if (command->id == CommandId::kBegin) {
        if (const Field* handle = response.find(Meaning::kHandle)) {
            operations_[{exchange.level, handle->number}].lost = true;
        }
    }
    if (const Field* blob = response.find(Meaning::kKeyBlob)) {
        const Bytes made = bytesOf(*blob, responseOf(exchange)).copy();
        if (blobs_.count(made) == 0) blobs_[made].lost = true;
    }
    if (!usesOperation(command)) return;
    const Field* handle = request.find(Meaning::kHandle);
    if (handle == nullptr) return;
    const auto known = operations_.find({exchange.level, handle->number});
    if (known == operations_.end() || known->second.lost) return;
    known->second.lost = true;
    abandoned_.emplace_back(exchange.level, known->second.handle);
}

std::string Replay::compare(const Exchange& exchange, const Answer& answer) {
    if (answer.code != exchange.code) {
        return "recorded is " + errorName(exchange.code) + ", here it is " + errorName(answer.code);
    }
    if (exchange.response.has_value() != answer.response.has_value()) {
        return answer.response ? "there is an answer, and none is recorded"
                               : "there is no answer, and one is recorded";
    }
    if (!answer.response) return "";
    const Message recorded = exchange.decodedResponse();
    const Message here = decode(exchange.wire, Side::kResponse, exchange.number, *answer.response);
    // Of an answer with hidden parts the place of a problem may be hidden as well.
    const bool same_problems = exchange.hidden_response.empty()
                                   ? recorded.problems == here.problems
                                   : recorded.problems.empty() == here.problems.empty();
    if (!same_problems) {
        return "the answer " + soundness(here) + ", the recorded one " + soundness(recorded);
    }
    const std::vector<const Field*> a = comparedFields(recorded);
    const std::vector<const Field*> b = comparedFields(here);
    for (size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
        if (a[i]->name != b[i]->name) {
            return "the answer has " + b[i]->name + " where " + a[i]->name + " is recorded";
        }
        std::string difference =
            compareField(exchange, *a[i], *b[i], bytesOf(*a[i], *exchange.response),
                         bytesOf(*b[i], *answer.response));
        if (!difference.empty()) return difference;
    }
    if (a.size() > b.size()) return "the answer lacks " + a[b.size()]->name;
    if (b.size() > a.size()) return "the answer has more: " + b[a.size()]->name;
    if (answer.code == KM_ERROR_OK) learn(exchange, recorded, here, *answer.response);
    return "";
}

std::string Replay::compareField(const Exchange& exchange, const Field& recorded, const Field& here,
                                 ByteView recorded_bytes, ByteView here_bytes) const {
    const bool hidden =
        hiddenIn(recorded.offset, recorded.size, exchange.hidden_response) != nullptr;
    switch (recorded.meaning) {
        case Meaning::kKeyBlob:
            return keyBlobDifference({recorded_bytes.data(), recorded_bytes.size()},
                                     {here_bytes.data(), here_bytes.size()});
        case Meaning::kHandle: {
            const auto known = operations_.find({exchange.level, recorded.number});
            const uint64_t expected =
                known == operations_.end() ? recorded.number : known->second.handle;
            const bool chosen = recorded.name == "operation handle";
            if (chosen ? here.number != 0 || recorded.number == 0 : here.number == expected)
                return "";
            return recorded.name + " is " + here.value + ", recorded is " + recorded.value;
        }
        case Meaning::kOutput:
            return compareOutput(recorded_bytes, here_bytes, hidden);
        case Meaning::kPublicKey:
            if (same_key_) break;
            if (isDer(recorded_bytes) && isDer(here_bytes)) return "";
            if (recorded_bytes.size() == here_bytes.size()) return "";
            // Over records the coordinates of a point are numbers without leading zeros.
            if (isCoordinate(recorded) && !recorded_bytes.empty() && !here_bytes.empty()) return "";
            return sizes(recorded.name, recorded_bytes.size(), here_bytes.size());
        case Meaning::kCertificate:
            if (isDer(recorded_bytes) == isDer(here_bytes)) return "";
            return recorded.name + " is no certificate";
        case Meaning::kTime:
            return "";
        case Meaning::kNonce:
        case Meaning::kTokenMac:
        case Meaning::kSharingSeed:
        case Meaning::kSharingNonce:
        case Meaning::kSharingCheck:
            if (recorded_bytes.size() == here_bytes.size()) return "";
            return sizes(recorded.name, recorded_bytes.size(), here_bytes.size());
        default:
            break;
    }
    if (hidden) {
        if (recorded_bytes.size() == here_bytes.size()) return "";
        return sizes(recorded.name, recorded_bytes.size(), here_bytes.size());
    }
    if (recorded.is_bytes && here.is_bytes) {
        if (equal(recorded_bytes, here_bytes)) return "";
        // Over CBOR its label is that of any output.
        const bool key = recorded.meaning == Meaning::kPublicKey && exchange.wire == Wire::kCbor;
        return bytesDifference(key ? "the public key" : recorded.name, recorded_bytes, here_bytes);
    }
    if (recorded.number == here.number && recorded.value == here.value) return "";
    return recorded.name + " is " + here.value + ", recorded is " + recorded.value;
}

std::string Replay::compareOutput(ByteView recorded, ByteView here, bool hidden) const {
    const bool plaintext = operation_ != nullptr && operation_->purpose == KM_PURPOSE_DECRYPT;
    // Plaintext is compared, and not repeated in a message.
    if (plaintext && !hidden && !equal(recorded, here)) {
        return placeOfDifference("the plaintext", recorded, here);
    }
    // The numbers of an EC signature are of any length in DER.
    if (!plaintext && isDer(recorded) && isDer(here)) return "";
    return recorded.size() == here.size() ? "" : sizes("the output", recorded.size(), here.size());
}

void Replay::learn(const Exchange& exchange, const Message& recorded, const Message& here,
                   ByteView answer) {
    const CommandInfo* command = recorded.command;
    if (command == nullptr) return;
    const ByteView before = responseOf(exchange);
    const Field* field = recorded.find(Meaning::kKeyBlob);
    if (field != nullptr && here.find(Meaning::kKeyBlob) != nullptr) {
        const bool made = command->id == CommandId::kGenerateKey;
        blobs_[bytesOf(*field, before).copy()] = {
            bytesOf(*here.find(Meaning::kKeyBlob), answer).copy(), !made && same_key_, false};
    }
    field = recorded.find(Meaning::kNonce);
    if (field != nullptr && here.find(Meaning::kNonce) != nullptr) {
        nonces_[bytesOf(*field, before).copy()] =
            bytesOf(*here.find(Meaning::kNonce), answer).copy();
    }
    if (command->id == CommandId::kGetHmacSharingParameters) {
        const auto record = [](const Message& message, ByteView bytes) {
            Bytes both;
            for (const Meaning meaning : {Meaning::kSharingSeed, Meaning::kSharingNonce}) {
                if (const Field* part = message.find(meaning)) append(both, bytesOf(*part, bytes));
            }
            return both;
        };
        sharing_[record(recorded, before)] = record(here, answer);
    }
    if (command->id == CommandId::kComputeSharedHmac) {
        const bool same = equal(before, answer);
        if (same) same_hmac_.insert(exchange.level);
        if (!same) same_hmac_.erase(exchange.level);
    }
    if (command->id == CommandId::kBegin) {
        const Field* handle = recorded.find(Meaning::kHandle);
        const Field* own = here.find(Meaning::kHandle);
        if (handle == nullptr || own == nullptr) return;
        Operation operation;
        operation.handle = own->number;
        operation.purpose = purposeOf(exchange.decodedRequest());
        operation.same_key = same_key_;
        operations_[{exchange.level, handle->number}] = operation;
    }
    if (operation_ == nullptr) return;
    const Message request = exchange.decodedRequest();
    if (const Field* consumed = recorded.find(Meaning::kConsumed)) {
        operation_->position += static_cast<size_t>(consumed->number);
    }
    const Field* output = recorded.find(Meaning::kOutput);
    const Field* own = here.find(Meaning::kOutput);
    if (output != nullptr && own != nullptr && exchange.hidden_response.empty()) {
        append(operation_->recorded_output, bytesOf(*output, before));
        append(operation_->output, bytesOf(*own, answer));
    }
    if (command->id == CommandId::kUpdate) return;
    if (!operation_->recorded_output.empty()) {
        outputs_.emplace_back(std::move(operation_->recorded_output),
                              std::move(operation_->output));
    }
    operations_.erase({exchange.level, request.find(Meaning::kHandle)->number});
    operation_ = nullptr;
}

}  // namespace lumo::inspect
