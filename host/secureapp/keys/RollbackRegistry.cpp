#include "secureapp/keys/RollbackRegistry.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "secureapp/base/Refusal.h"
#include "secureapp/crypto/Digest.h"

namespace lumo::secureapp {
namespace {

// The record: the SHA-256 of each blob, one after the other. Where a key has several blobs, an
// entry of this text and their number precedes their digests, the oldest first.
constexpr char kRecord[] = "rollback-registry";
constexpr std::string_view kGroupText = "these are blobs of one key: ";
constexpr size_t kCountBytes = 4;
static_assert(kGroupText.size() + kCountBytes == kSha256Bytes, "an entry like the others");

constexpr size_t kMaxBlobsOfKey = 8;

// The bytes of one key in the record: [begin, end), its digests from `first` on.
struct Place {
    size_t begin;
    size_t first;
    size_t end;
};

Place placeAt(const Bytes& record, size_t at) {
    const uint8_t* entry = record.data() + at;
    const size_t first = at + kSha256Bytes;
    if (std::memcmp(entry, kGroupText.data(), kGroupText.size()) == 0) {
        const uint64_t count = loadLittle(entry + kGroupText.size(), kCountBytes);
        if (count <= (record.size() - first) / kSha256Bytes) {
            return {at, first, first + static_cast<size_t>(count) * kSha256Bytes};
        }
    }
    return {at, at, first};
}

template <typename Visit>
void forEachKey(const Bytes& record, Visit visit) {
    for (size_t at = 0; at + kSha256Bytes <= record.size();) {
        const Place place = placeAt(record, at);
        visit(place);
        at = place.end;
    }
}

bool isAt(const Bytes& record, size_t at, const Bytes& digest) {
    return std::memcmp(record.data() + at, digest.data(), kSha256Bytes) == 0;
}

bool contains(const Bytes& record, const Place& place, const Bytes& digest) {
    for (size_t at = place.first; at < place.end; at += kSha256Bytes) {
        if (isAt(record, at, digest)) return true;
    }
    return false;
}

std::optional<Place> findKey(const Bytes& record, const Bytes& digest) {
    std::optional<Place> found;
    forEachKey(record, [&](const Place& place) {
        if (!found && contains(record, place, digest)) found = place;
    });
    return found;
}

// The digests of the key from `digest` on; those before it are older.
std::vector<Bytes> digestsFrom(const Bytes& record, const Place& place, const Bytes& digest) {
    std::vector<Bytes> digests;
    for (size_t at = place.first; at < place.end; at += kSha256Bytes) {
        if (digests.empty() && !isAt(record, at, digest)) continue;
        digests.push_back(ByteView(record).sub(at, kSha256Bytes).copy());
    }
    return digests;
}

// Replaces the entry of a key by these digests; with none, removes it.
void replaceKey(Bytes& record, const Place& place, const std::vector<Bytes>& digests) {
    Bytes key;
    if (digests.size() > 1) {
        key.assign(kGroupText.begin(), kGroupText.end());
        appendLittle(key, digests.size(), kCountBytes);
    }
    for (const Bytes& digest : digests) append(key, digest);
    if (record.size() - (place.end - place.begin) + key.size() > kMaxRecordBytes) {
        refuse(KM_ERROR_ROLLBACK_RESISTANCE_UNAVAILABLE,
               "the registry of rollback-resistant keys is full; delete some of them");
    }
    const auto begin = record.begin() + static_cast<std::ptrdiff_t>(place.begin);
    const auto end = record.begin() + static_cast<std::ptrdiff_t>(place.end);
    record.insert(record.erase(begin, end), key.begin(), key.end());
}

}  // namespace

const RollbackRegistry::Index& RollbackRegistry::current() {
    std::optional<Bytes> stamp = state_.stamp(kRecord);
    if (stamp && stamp == stamp_) return index_;
    stamp_.reset();
    index_ = {};
    index_.record = state_.read(kRecord).value_or(Bytes());
    const Bytes& record = index_.record;
    forEachKey(record, [&](const Place& place) {
        if (place.first != place.begin) index_.groups.push_back(place.begin);
        for (size_t at = place.first; at < place.end; at += kSha256Bytes) {
            index_.sorted.push_back(static_cast<uint32_t>(at));
        }
    });
    std::sort(index_.sorted.begin(), index_.sorted.end(), [&record](uint32_t a, uint32_t b) {
        return std::memcmp(record.data() + a, record.data() + b, kSha256Bytes) < 0;
    });
    stamp_ = std::move(stamp);
    return index_;
}

bool RollbackRegistry::lists(ByteView blob) {
    const Index& index = current();
    const Bytes digest = sha256(blob);
    const auto found = std::lower_bound(index.sorted.begin(), index.sorted.end(), digest,
                                        [&index](uint32_t at, const Bytes& wanted) {
                                            return std::memcmp(index.record.data() + at,
                                                               wanted.data(), kSha256Bytes) < 0;
                                        });
    return found != index.sorted.end() && isAt(index.record, *found, digest);
}

bool RollbackRegistry::hasRoom() {
    return current().record.size() + kSha256Bytes <= kMaxRecordBytes;
}

void RollbackRegistry::add(ByteView blob) {
    state_.update(kRecord, [&](const std::optional<Bytes>& present) {
        Bytes record = present.value_or(Bytes());
        replaceKey(record, {record.size(), record.size(), record.size()}, {sha256(blob)});
        return std::optional<Bytes>(std::move(record));
    });
}

void RollbackRegistry::addBeside(ByteView replaced, ByteView blob) {
    state_.update(kRecord, [&](const std::optional<Bytes>& present) {
        Bytes record = present.value_or(Bytes());
        const Bytes old = sha256(replaced);
        const Place place =
            findKey(record, old).value_or(Place{record.size(), record.size(), record.size()});
        std::vector<Bytes> digests = digestsFrom(record, place, old);
        digests.push_back(sha256(blob));
        // The oldest blob was upgraded repeatedly; it stays.
        if (digests.size() > kMaxBlobsOfKey) digests.erase(digests.begin() + 1);
        replaceKey(record, place, digests);
        return std::optional<Bytes>(std::move(record));
    });
}

void RollbackRegistry::use(ByteView blob) {
    const Index& index = current();
    if (index.groups.empty()) return;
    const Bytes digest = sha256(blob);
    const bool replaces_older =
        std::any_of(index.groups.begin(), index.groups.end(), [&](size_t at) {
            const Place place = placeAt(index.record, at);
            return contains(index.record, place, digest) &&
                   !isAt(index.record, place.first, digest);
        });
    if (!replaces_older) return;
    state_.update(kRecord, [&](const std::optional<Bytes>& present) {
        Bytes record = present.value_or(Bytes());
        const std::optional<Place> place = findKey(record, digest);
        if (place) replaceKey(record, *place, digestsFrom(record, *place, digest));
        return std::optional<Bytes>(std::move(record));
    });
}

void RollbackRegistry::remove(ByteView blob) {
    if (!lists(blob)) return;
    state_.update(kRecord, [&](const std::optional<Bytes>& present) {
        Bytes record = present.value_or(Bytes());
        const std::optional<Place> place = findKey(record, sha256(blob));
        if (place) replaceKey(record, *place, {});
        return std::optional<Bytes>(std::move(record));
    });
}

void RollbackRegistry::clear() {
    state_.remove(kRecord);
}

}  // namespace lumo::secureapp
