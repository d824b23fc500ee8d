// The arguments that describe a new key: for commands that make one or wrap one.
#pragma once

#include <CLI/App.hpp>
#include <string>
#include <vector>

#include "Client.h"
#include "TagOptions.h"

namespace lumo::cli {

// What a key is, who may use it and how long it lives: one option a tag, and --tag for any.
class CreationArguments {
  public:
    void declare(CLI::App& app);

    bool has(Tag tag) const { return options_.has(tag); }

    // With NO_AUTH_REQUIRED where nothing says who may use the key. Throws Failure.
    std::vector<KeyParameter> parameters() const;

  private:
    TagOptions options_;
};

bool isAlgorithm(const std::vector<KeyParameter>& parameters, km::V4_0::Algorithm algorithm);

// --format WORD; empty where it is not given.
void addFormat(CLI::App& app, std::string& word, const std::string& help);
km::V4_0::KeyFormat parseFormat(const std::string& word);
// The format that keys of the algorithm come in, unless another one was asked for.
km::V4_0::KeyFormat importFormat(const std::string& word,
                                 const std::vector<KeyParameter>& parameters);

// --masking-key; all zero where it is not given.
class MaskingKey {
  public:
    void declare(CLI::App& app);
    Bytes bytes() const;  // 32; throws Failure

  private:
    std::string text_;
};

}  // namespace lumo::cli
