#include "Mutations.h"

#include <algorithm>
#include <iterator>

namespace lumo::fuzz {
namespace {

std::ptrdiff_t at(size_t offset) {
    return static_cast<std::ptrdiff_t>(offset);
}

Bytes part(const Bytes& bytes, size_t start, size_t size) {
    return {bytes.begin() + at(start), bytes.begin() + at(start + size)};
}

void replace(Bytes& bytes, size_t start, size_t size, const Bytes& with) {
    bytes.erase(bytes.begin() + at(start), bytes.begin() + at(start + size));
    bytes.insert(bytes.begin() + at(start), with.begin(), with.end());
}

// libFuzzer's mutation of a piece.
void mutateBytes(Bytes& bytes) {
    constexpr size_t kGrowth = 16;
    const size_t size = bytes.size();
    bytes.resize(size + kGrowth);
    bytes.resize(LLVMFuzzerMutate(bytes.data(), size, bytes.size()));
}

// ---- CBOR ----

// Of an item, with what it contains; 0 where there is no whole item.
size_t cborSize(const Bytes& message, size_t start, int depth = 0) {
    constexpr int kMaxDepth = 12;
    if (start >= message.size() || depth > kMaxDepth) return 0;
    const unsigned major = message[start] >> 5;
    const unsigned info = message[start] & 0x1F;
    if (info > 27) return 0;
    const size_t width = info < 24 ? 0 : size_t{1} << (info - 24);
    if (width >= message.size() - start) return 0;
    uint64_t number = info;
    if (width != 0) number = 0;
    for (size_t i = 0; i < width; ++i) number = number << 8 | message[start + 1 + i];
    size_t size = 1 + width;
    if (major == 2 || major == 3) {
        return number <= message.size() - start - size ? size + static_cast<size_t>(number) : 0;
    }
    if (major < 4 || major == 7) return size;
    uint64_t items = major == 6 ? 1 : major == 5 ? 2 * number : number;
    for (; items > 0; --items) {
        const size_t inner = cborSize(message, start + size, depth + 1);
        if (inner == 0) return 0;
        size += inner;
    }
    return size;
}

void appendCborHead(Bytes& to, unsigned major, uint64_t number) {
    unsigned width = 8;
    if (number <= UINT32_MAX) width = 4;
    if (number <= UINT16_MAX) width = 2;
    if (number <= UINT8_MAX) width = 1;
    if (number < 24) {
        to.push_back(static_cast<uint8_t>(major << 5 | number));
        return;
    }
    const unsigned info = width == 1 ? 24U : width == 2 ? 25U : width == 4 ? 26U : 27U;
    to.push_back(static_cast<uint8_t>(major << 5 | info));
    for (unsigned i = width; i > 0; --i)
        to.push_back(static_cast<uint8_t>(number >> (8 * (i - 1))));
}

Bytes freshCbor(Random& random) {
    constexpr uint64_t kNumbers[] = {0,          1,           22,         23,         32,
                                     33,         34,          36,         37,         44,
                                     255,        65535,       65536,      0x30000003, 0x10000002,
                                     0x700001F7, 0x900003E9,  0xA00001F6, 0x600002BD, 0x7FFFFFFF,
                                     UINT32_MAX, 0x100000000, INT64_MAX,  1ULL << 63, UINT64_MAX};
    Bytes item;
    const unsigned major = random() % 8;
    const uint64_t number = kNumbers[below(std::size(kNumbers), random)];
    if (major == 7) {
        item.push_back(static_cast<uint8_t>(0xF4 + random() % 4));
    } else if (major == 2 || major == 3) {
        const size_t size = below(40, random);
        appendCborHead(item, major, size);
        item.insert(item.end(), size, 'x');
    } else {
        appendCborHead(item, major, major == 4 || major == 5 ? random() % 3 : number);
    }
    return item;
}

// ---- DER ----

struct DerItem {
    size_t start = 0;
    size_t header = 0;
    size_t contents = 0;
    size_t size() const { return header + contents; }
};

// False where no whole item with a definite length stands.
bool readDer(const Bytes& bytes, size_t start, size_t end, DerItem* item) {
    size_t place = start;
    if (place >= end) return false;
    if ((bytes[place++] & 0x1F) == 0x1F) {
        while (place < end && (bytes[place] & 0x80) != 0) ++place;
        ++place;
    }
    if (place >= end) return false;
    size_t length = bytes[place++];
    if (length >= 0x80) {
        const size_t count = length & 0x7F;
        if (count == 0 || count > 4 || count > end - place) return false;
        length = 0;
        for (size_t i = 0; i < count; ++i) length = length << 8 | bytes[place++];
    }
    if (length > end - place) return false;
    *item = {start, place - start, length};
    return true;
}

Bytes derItem(const Bytes& identifier, const Bytes& contents) {
    Bytes item = identifier;
    const size_t size = contents.size();
    if (size >= 0x100) {
        item.insert(item.end(), {0x82, static_cast<uint8_t>(size >> 8)});
    } else if (size >= 0x80) {
        item.push_back(0x81);
    }
    item.push_back(static_cast<uint8_t>(size));
    item.insert(item.end(), contents.begin(), contents.end());
    return item;
}

Bytes identifierOf(const Bytes& bytes, const DerItem& item) {
    size_t size = 1;
    if ((bytes[item.start] & 0x1F) == 0x1F) {
        while ((bytes[item.start + size] & 0x80) != 0) ++size;
        ++size;
    }
    return part(bytes, item.start, size);
}

Bytes freshDer(Random& random) {
    static const Bytes kItems[] = {{0x02, 1, 0},
                                   {0x02, 1, 1},
                                   {0x02, 1, 0x80},
                                   {0x02, 2, 0, 0x80},
                                   {0x05, 0},
                                   {0x04, 0},
                                   {0x04, 2, 1, 2},
                                   {0x30, 0},
                                   {0x31, 0},
                                   {0x31, 3, 2, 1, 2},
                                   {0x0A, 1, 2},
                                   {0x01, 1, 0xFF},
                                   {0x03, 1, 0},
                                   {0xA1, 5, 0x31, 3, 2, 1, 2},
                                   {0xA2, 3, 2, 1, 3},
                                   {0xBF, 0x83, 0x77, 2, 5, 0},
                                   {0x02, 9, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}};
    return kItems[below(std::size(kItems), random)];
}

Bytes mutatedDer(const Bytes& bytes, Random& random, int depth);

// The item changed in one way.
Bytes mutatedItem(const Bytes& bytes, const DerItem& item, Random& random, int depth) {
    const Bytes whole = part(bytes, item.start, item.size());
    Bytes contents = part(bytes, item.start + item.header, item.contents);
    Bytes identifier = identifierOf(bytes, item);
    const bool constructed = (identifier[0] & 0x20) != 0;
    if ((constructed || identifier[0] == 4) && item.contents > 1 && random() % 4 != 0) {
        return derItem(identifier, mutatedDer(contents, random, depth + 1));
    }
    switch (random() % 6) {
        case 0:
            return freshDer(random);
        case 1: {
            Bytes twice = whole;
            twice.insert(twice.end(), whole.begin(), whole.end());
            return twice;
        }
        case 2:
            return {};
        case 3:
            identifier.back() = static_cast<uint8_t>(identifier.back() ^ 1U << random() % 7);
            return derItem(identifier, contents);
        case 4:
            contents.insert(contents.end(), below(200, random), 0x55);
            return derItem(identifier, contents);
        default:
            mutateBytes(contents);
            return derItem(identifier, contents);
    }
}

Bytes mutatedDer(const Bytes& bytes, Random& random, int depth) {
    constexpr int kMaxDepth = 8;
    std::vector<DerItem> items;
    DerItem item;
    for (size_t place = 0; readDer(bytes, place, bytes.size(), &item); place += item.size()) {
        items.push_back(item);
    }
    Bytes changed = bytes;
    if (items.empty() || depth > kMaxDepth) {
        mutateBytes(changed);
        return changed;
    }
    item = items[below(items.size(), random)];
    replace(changed, item.start, item.size(), mutatedItem(bytes, item, random, depth));
    return changed;
}

}  // namespace

void mutateCbor(Bytes& message, Random& random) {
    if (message.empty()) return mutateBytes(message);
    const size_t start = below(message.size(), random);
    const size_t size = cborSize(message, start);
    if (size == 0) return mutateBytes(message);
    const Bytes item = part(message, start, size);
    switch (random() % 6) {
        case 0:
            return replace(message, start, size, freshCbor(random));
        case 1:
            return replace(message, start, 0, item);
        case 2:
            return replace(message, start, size, {});
        case 3: {
            Bytes wrapped = {static_cast<uint8_t>(random() % 2 == 0 ? 0x81 : 0xC1)};
            wrapped.insert(wrapped.end(), item.begin(), item.end());
            return replace(message, start, size, wrapped);
        }
        case 4:
            // Of a container this is its count, of a number its value.
            message[start] = static_cast<uint8_t>(message[start] + (random() % 2 == 0 ? 1 : -1));
            return;
        default:
            return mutateBytes(message);
    }
}

void mutateWords(Bytes& record, Random& random) {
    constexpr size_t kWord = 4;
    if (record.size() < kWord) return mutateBytes(record);
    const size_t count = record.size() / kWord;
    const size_t place = below(count, random) * kWord;
    const auto size = static_cast<uint32_t>(record.size());
    const uint32_t values[] = {
        0,          1,          3,          4,        8,          12,
        16,         20,         size,       size - 1, size + 1,   size / 2,
        40960,      0x7FFFFFFF, 0x1FFFFFFF, 1U << 31, UINT32_MAX, UINT32_MAX - 3,
        0xFFFFFFDA, 0x10000002};
    uint32_t value = values[below(std::size(values), random)];
    switch (random() % 5) {
        case 0: {
            const size_t other = below(count, random) * kWord;
            value = 0;
            for (size_t i = kWord; i > 0; --i) value = value << 8 | record[other + i - 1];
            value += static_cast<uint32_t>(random() % 9) - 4;
            break;
        }
        case 1:
            return replace(record, place, 0, Bytes(kWord, static_cast<uint8_t>(random())));
        case 2:
            return replace(record, place, kWord, {});
        case 3:
            return mutateBytes(record);
        default:
            break;
    }
    for (size_t i = 0; i < kWord; ++i) record[place + i] = static_cast<uint8_t>(value >> (8 * i));
}

void mutateDer(Bytes& encoding, Random& random) {
    encoding = mutatedDer(encoding, random, 0);
}

}  // namespace lumo::fuzz
