// What was found in foreign bytes, for people and for programs.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "inspect/Window.h"

namespace lumo::inspect {

// One field, and where it stands. What has parts may have no value of its own.
struct Item {
    size_t offset = 0;
    size_t size = 0;
    std::string name;
    std::string value;
    bool stale = false;  // bytes that the sender did not write for this message
    std::vector<Item> parts;

    Item() = default;
    Item(Window where, std::string its_name, std::string its_value = "")
        : offset(where.offset()),
          size(where.size()),
          name(std::move(its_name)),
          value(std::move(its_value)) {}

    // Returns the part, which stays where it is until the next one is added.
    Item& add(Item part) {
        parts.push_back(std::move(part));
        return parts.back();
    }
};

// Something that does not add up.
struct Fault {
    std::string rule;                   // of an attestation; empty elsewhere
    std::optional<size_t> certificate;  // its place in the chain; the byte counts within it
    std::optional<size_t> byte;
    std::optional<uint32_t> tag;  // the number of an authorization, without its type
    std::string why;
};

struct Inspection {
    std::string kind;     // one of kindNames()
    std::string side;     // of a message: "request" or "response"
    std::string command;  // of a message, by name; empty where it is not known
    size_t size = 0;      // of what was looked into, in bytes
    std::vector<Item> items;
    std::vector<std::string> remarks;  // worth knowing, and nothing wrong
    std::vector<Fault> faults;
};

// A line an item: its first byte and its length, both decimal, then name and value.
std::string toText(const std::vector<Item>& items);

// "cbor, response of begin, 12 bytes"
std::string titleOf(const Inspection& found);

// "certificate 0, byte 372, tag 503 (noAuthRequired): why", as far as known.
std::string toText(const Fault& fault);

}  // namespace lumo::inspect
