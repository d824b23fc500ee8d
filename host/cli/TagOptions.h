// Command-line options that each stand for one keymaster parameter.
#pragma once

#include <CLI/App.hpp>
#include <memory>
#include <string>
#include <vector>

#include "Bytes.h"
#include "Vocabulary.h"

namespace lumo::cli {

// One option and the tag that it gives. The tag's type decides how values are written: words for
// enumerations, flags for booleans, numbers, dates, and bytes. Repeatable tags take lists.
struct TagOption {
    const char* option;
    Tag tag;
    const char* help;
};

KeyParameter makeBool(Tag tag);
KeyParameter makeBytes(Tag tag, const Bytes& bytes);
KeyParameter makeEnum(Tag tag, uint32_t value);
KeyParameter makeLong(Tag tag, uint64_t value);

// The bytes that "TEXT", "hex:HEX" or "file:PATH" stands for. Throws Failure.
Bytes parseBytes(const std::string& option, const std::string& text);

// The options of one command that were declared from tables, and what was given for them.
class TagOptions {
  public:
    // Keeps pointing into `table`.
    template <size_t N>
    void declare(CLI::App& app, const TagOption (&table)[N], const std::string& group) {
        for (const TagOption& row : table) declareOne(app, row, group);
    }

    // --tag NAME|0xNUMBER[=VALUE], for tags that have no option, or another value than theirs
    // takes.
    void declareAny(CLI::App& app);

    bool has(Tag tag) const;

    // In the order of the tables, then those of --tag. Throws Failure for a value that its tag
    // cannot have.
    std::vector<KeyParameter> parameters() const;

    // The bytes given for one tag by its option; empty if that was not given.
    Bytes bytesOf(Tag tag) const;

  private:
    struct Given {
        const TagOption* row = nullptr;
        std::vector<std::string> values;
        bool flag = false;
    };

    void declareOne(CLI::App& app, const TagOption& row, const std::string& group);

    // CLI11 holds the addresses.
    std::vector<std::unique_ptr<Given>> given_;
    std::unique_ptr<std::vector<std::string>> any_;
};

}  // namespace lumo::cli
