#include "inspect/AuthorizationList.h"

#include <algorithm>

#include "inspect/Parameters.h"
#include "inspect/Values.h"

namespace lumo::inspect {

namespace {

constexpr uint32_t kRootOfTrust = 704;
constexpr uint32_t kOsPatchLevel = 706;
constexpr uint32_t kVendorPatchLevel = 718;
constexpr uint32_t kBootPatchLevel = 719;
constexpr size_t kBootKeyBytes = 32;
constexpr uint64_t kUnverified = 2;
constexpr uint64_t kFailed = 3;

// YYYYMM, or YYYYMMDD. 0 says that the level is not known.
bool isPatchLevel(uint64_t value, bool with_day) {
    if (value == 0) return true;
    const uint64_t month = with_day ? value / 100 : value;
    const bool day_exists = !with_day || (value % 100 >= 1 && value % 100 <= 31);
    return day_exists && month % 100 >= 1 && month % 100 <= 12 && month >= 100000 &&
           month <= 999999;
}

class ListReader {
  public:
    ListReader(const ListRules& rules, FaultList& faults) : rules_(rules), faults_(faults) {}

    void read(Window content, AuthorizationList& list) {
        DerReader elements(content);
        std::optional<uint32_t> last;
        while (const auto element = elements.next()) {
            noteFlaw(*element, faults_, numberOf(*element));
            if (!element->isContext()) {
                add(rule::kType, element->whole,
                    "an authorization is a constructed context tag, this is " +
                        element->typeText());
                continue;
            }
            Authorization entry;
            entry.number = element->number;
            entry.field = schemaField(element->number);
            entry.where = element->whole;
            checkNeighbours(entry, last, list);
            last = entry.number;
            checkPlace(entry);
            readValue(element->content, entry);
            list.entries.push_back(std::move(entry));
        }
        if (elements.error() != nullptr) {
            faults_.add(rule::kDer, elements.errorAt(), elements.error());
        }
    }

  private:
    static std::optional<uint32_t> numberOf(const DerElement& element) {
        if (element.cls != DerClass::context) return std::nullopt;
        return element.number;
    }

    void add(const Rule& broken, Window where, const std::string& why,
             std::optional<uint32_t> tag = std::nullopt) {
        faults_.add(broken, where.offset(), why, tag);
    }
    void add(const Rule& broken, const Authorization& entry, const std::string& why) {
        add(broken, entry.where, why, entry.number);
    }

    void checkNeighbours(const Authorization& entry, std::optional<uint32_t> last,
                         const AuthorizationList& list) {
        if (const Authorization* before = list.find(entry.number)) {
            add(rule::kOnce, entry,
                "it stands at byte " + std::to_string(before->where.offset()) + " already");
        } else if (last && entry.number < *last) {
            add(rule::kOrder, entry, "it stands after tag " + std::to_string(*last));
        }
    }

    void checkPlace(const Authorization& entry) {
        const SchemaField* field = entry.field;
        if (field == nullptr) {
            add(rule::kKnown, entry, "no field of an authorization list has this number");
            return;
        }
        if (rules_.use == ListUse::wrapped) return;
        if (field->place == Place::none) {
            add(rule::kKnown, entry,
                "it is not attested; readers of the published fields give up at it");
        } else if (rules_.version < field->since) {
            add(rule::kKnown, entry,
                "it came with attestation version " + std::to_string(field->since) +
                    ", this is version " + std::to_string(rules_.version));
        } else if (rules_.level == 0) {
            if (rules_.use == ListUse::hardware) {
                add(rule::kPlace, entry, "software attests, so no hardware enforces it");
            }
        } else if (field->place == Place::hardware && rules_.use == ListUse::software) {
            add(rule::kPlace, entry, "it belongs to the hardware-enforced list");
        } else if (field->place == Place::software && rules_.use == ListUse::hardware) {
            add(rule::kPlace, entry, "it belongs to the software-enforced list");
        }
    }

    void readValue(Window content, Authorization& entry) {
        DerReader inside(content);
        const auto value = inside.next();
        if (!value) {
            add(inside.error() != nullptr ? rule::kDer : rule::kType, entry,
                inside.error() != nullptr ? inside.error() : "it has no value");
            return;
        }
        noteFlaw(*value, faults_, entry.number);
        if (!inside.atEnd()) {
            add(rule::kType, inside.rest(), "more than one value stands under it", entry.number);
        }
        if (entry.field == nullptr) {
            entry.bytes = value->whole;
            return;
        }
        readTyped(*value, entry);
    }

    // Notes a value of another type.
    bool expect(const DerElement& value, DerNumber type, const Authorization& entry) {
        if (value.is(type)) return true;
        DerElement wanted;
        wanted.number = type;
        wanted.constructed = type == kDerSequence || type == kDerSet;
        add(rule::kType, value.whole, "it is " + value.typeText() + ", not " + wanted.typeText(),
            entry.number);
        return false;
    }

    void readTyped(const DerElement& value, Authorization& entry) {
        switch (entry.field->content) {
            case Content::integer:
            case Content::longInteger:
                if (expect(value, kDerInteger, entry)) readInteger(value, entry);
                return;
            case Content::integerOrSet:
                if (value.is(kDerInteger)) {
                    readInteger(value, entry);
                    return;
                }
                [[fallthrough]];
            case Content::integers:
                if (expect(value, kDerSet, entry)) readSet(value, entry);
                return;
            case Content::flag:
                if (expect(value, kDerNull, entry) && !value.content.empty()) {
                    add(rule::kType, value.whole, "a NULL has no bytes", entry.number);
                }
                return;
            case Content::bytes:
                if (expect(value, kDerOctetString, entry)) entry.bytes = value.content;
                return;
            case Content::rootOfTrust:
                if (expect(value, kDerSequence, entry)) readRoot(value, entry.root);
                return;
        }
    }

    void readInteger(const DerElement& element, Authorization& entry) {
        const auto value = readUnsigned(element, rule::kInteger, faults_, entry.number).value;
        if (!value) return;
        entry.integers.push_back(*value);
        const bool wide = entry.field->content == Content::longInteger ||
                          entry.field->content == Content::integerOrSet;
        if (!wide && *value > UINT32_MAX) {
            add(rule::kInteger, element.whole,
                std::to_string(*value) + " has more than the tag's 32 bits", entry.number);
        }
        if (isUnknownValue(entry.field->tag, *value)) {
            add(rule::kValue, element.whole, std::to_string(*value) + " is not a published value",
                entry.number);
        }
        checkPatchLevel(element, *value, entry);
    }

    void checkPatchLevel(const DerElement& element, uint64_t value, const Authorization& entry) {
        const bool with_day = entry.number == kVendorPatchLevel || entry.number == kBootPatchLevel;
        if (!with_day && entry.number != kOsPatchLevel) return;
        if (isPatchLevel(value, with_day)) return;
        add(rule::kValue, element.whole,
            std::to_string(value) + " is not a date of the form " +
                (with_day ? "YYYYMMDD" : "YYYYMM"),
            entry.number);
    }

    void readSet(const DerElement& set, Authorization& entry) {
        DerReader elements(set.content);
        Window last;
        while (const auto element = elements.next()) {
            noteFlaw(*element, faults_, entry.number);
            if (!expect(*element, kDerInteger, entry)) continue;
            readInteger(*element, entry);
            // DER orders the elements of a set by their encodings.
            const Window whole = element->whole;
            if (!last.empty() && last == whole) {
                add(rule::kSet, whole, "the same value stands before it", entry.number);
            } else if (!last.empty() && std::lexicographical_compare(whole.begin(), whole.end(),
                                                                     last.begin(), last.end())) {
                add(rule::kSet, whole, "a greater value stands before it", entry.number);
            }
            last = whole;
        }
        if (elements.error() != nullptr) {
            faults_.add(rule::kDer, elements.errorAt(), elements.error(), entry.number);
        } else if (set.content.empty()) {
            add(rule::kSet, set.whole, "it is empty, in place of left out", entry.number);
        }
    }

    void readRoot(const DerElement& sequence, RootOfTrust& root) {
        root.where = sequence.whole;
        DerReader fields(sequence.content);
        const auto key = rootField(fields, kDerOctetString, "verifiedBootKey");
        const auto locked = rootField(fields, kDerBoolean, "deviceLocked");
        const auto state = rootField(fields, kDerEnumerated, "verifiedBootState");
        const auto hash = rootField(fields, kDerOctetString, "verifiedBootHash");
        if (!fields.atEnd()) {
            add(rule::kRootShape, fields.rest(), "something stands after its four fields",
                kRootOfTrust);
        }
        root.whole = key && locked && state && hash;
        if (key) root.key = key->content;
        if (hash) root.hash = hash->content;
        if (locked) root.locked = readBoolean(*locked);
        if (state) root.state = readUnsigned(*state, rule::kRootState, faults_, kRootOfTrust);
        checkRoot(root);
    }

    std::optional<DerElement> rootField(DerReader& fields, DerNumber type, const char* name) {
        DerReader ahead = fields;
        const auto element = ahead.next();
        if (!element || !element->is(type)) {
            add(rule::kRootShape, fields.rest(),
                std::string(name) + (element          ? " is " + element->typeText()
                                     : fields.atEnd() ? std::string(" is missing")
                                                      : ": " + std::string(ahead.error())),
                kRootOfTrust);
            // A field of another type is passed over, so that the others can be read.
            if (element) fields = ahead;
            return std::nullopt;
        }
        fields = ahead;
        noteFlaw(*element, faults_, kRootOfTrust);
        return element;
    }

    Number readBoolean(const DerElement& element) {
        const Window content = element.content;
        if (content.size() == 1 && (content[0] == 0x00 || content[0] == 0xFF)) {
            return {element.whole, content[0] != 0 ? 1U : 0U};
        }
        add(rule::kRootShape, element.whole, "deviceLocked is neither 00 nor ff", kRootOfTrust);
        if (content.empty()) return {element.whole, std::nullopt};
        return {element.whole, content.allZero() ? 0U : 1U};
    }

    void checkRoot(const RootOfTrust& root) {
        if (root.state.value && *root.state.value > kFailed) {
            add(rule::kRootState, root.state.where,
                std::to_string(*root.state.value) + " is no boot state", kRootOfTrust);
        }
        if (root.hash.data() != nullptr && root.hash.size() != kBootKeyBytes) {
            add(rule::kRootHash, root.hash,
                "verifiedBootHash has " + std::to_string(root.hash.size()) + " bytes, not 32",
                kRootOfTrust);
        }
        if (root.key.data() == nullptr) return;
        if (root.key.size() != kBootKeyBytes) {
            add(rule::kRootKey, root.key,
                "verifiedBootKey has " + std::to_string(root.key.size()) + " bytes, not 32",
                kRootOfTrust);
        } else if (root.state.value && *root.state.value < kFailed &&
                   root.key.allZero() != root.state.is(kUnverified)) {
            add(rule::kRootKey, root.key,
                std::string("verifiedBootKey is ") + (root.key.allZero() ? "" : "not ") +
                    "all zero, and the state is " + bootStateName(*root.state.value),
                kRootOfTrust);
        }
    }

    const ListRules& rules_;
    FaultList& faults_;
};

std::string valueOf(const Authorization& entry) {
    if (entry.field == nullptr) return "unknown, " + bytesText(entry.bytes);
    switch (entry.field->content) {
        case Content::flag:
            return "true";
        case Content::bytes:
            return bytesText(entry.bytes);
        case Content::rootOfTrust:
            return "";
        default:
            break;
    }
    std::string text;
    for (const uint64_t value : entry.integers) {
        text += (text.empty() ? "" : ", ") + numberText(entry.field->tag, value);
    }
    return text.empty() ? "not readable" : text;
}

void describeRoot(const RootOfTrust& root, Item& item) {
    const Number& locked = root.locked;
    const Number& state = root.state;
    const auto text = [](const Number& number, const char* name) {
        return number.value ? name + (" (" + std::to_string(*number.value)) + ")" : "not readable";
    };
    item.add(Item(root.key, "verifiedBootKey", hexText(root.key.sub(0, 64))));
    item.add(Item(locked.where, "deviceLocked", text(locked, locked.is(0) ? "false" : "true")));
    item.add(Item(state.where, "verifiedBootState",
                  text(state, bootStateName(state.value.value_or(UINT64_MAX)))));
    item.add(Item(root.hash, "verifiedBootHash", hexText(root.hash.sub(0, 64))));
}

}  // namespace

const Authorization* AuthorizationList::find(uint32_t number) const {
    const auto found = std::find_if(entries.begin(), entries.end(),
                                    [number](const auto& entry) { return entry.number == number; });
    return found == entries.end() ? nullptr : &*found;
}

std::optional<uint64_t> AuthorizationList::integer(uint32_t number) const {
    const Authorization* entry = find(number);
    if (entry == nullptr || entry->integers.empty()) return std::nullopt;
    return entry->integers.front();
}

bool AuthorizationList::has(uint32_t number, uint64_t value) const {
    const Authorization* entry = find(number);
    return entry != nullptr && std::find(entry->integers.begin(), entry->integers.end(), value) !=
                                   entry->integers.end();
}

void noteFlaw(const DerElement& element, FaultList& faults, std::optional<uint32_t> tag) {
    if (element.flaw == nullptr) return;
    faults.add(rule::kDer, element.whole.offset(), element.flaw, tag);
}

Number readUnsigned(const DerElement& element, const Rule& broken, FaultList& faults,
                    std::optional<uint32_t> tag) {
    const DerNumberValue number = derUnsigned(element.content);
    if (number.flaw != nullptr) faults.add(broken, element.whole.offset(), number.flaw, tag);
    return {element.whole, number.value};
}

AuthorizationList readAuthorizationList(Window content, const ListRules& rules, FaultList& faults) {
    AuthorizationList list;
    list.where = content;
    ListReader(rules, faults).read(content, list);
    return list;
}

Item describe(const AuthorizationList& list, const std::string& name) {
    Item item(list.where, name, list.entries.empty() ? "empty" : "");
    for (const Authorization& entry : list.entries) {
        const std::string number = "[" + std::to_string(entry.number) + "]";
        Item& part = item.add(
            Item(entry.where, entry.field == nullptr ? number : entry.field->name + (" " + number),
                 valueOf(entry)));
        if (entry.field != nullptr && entry.field->content == Content::rootOfTrust) {
            describeRoot(entry.root, part);
        }
    }
    return item;
}

const char* bootStateName(uint64_t state) {
    constexpr const char* kNames[] = {"verified", "self-signed", "unverified", "failed"};
    return state < std::size(kNames) ? kNames[state] : "unknown";
}

}  // namespace lumo::inspect
