// Which exchanges are to go wrong, and how: the fault=... settings of LUMO_TRANSPORT.
//
//   KIND[:NUMBER]@COMMAND[#WHICH]
//
// KIND, with what NUMBER means there:
//   error    nothing is sent; NUMBER is the result, -49 without one
//   lost     the command is carried out and its reply lost, which gives -49
//   short    the last NUMBER bytes of the reply are missing; without one, some of them
//   long     NUMBER random bytes follow the reply; without one, 16
//   garbled  NUMBER bits of the reply are flipped; without one, 1
//   late     the reply comes NUMBER milliseconds late; without one, 1000
//   restart  the command is carried out, then the secure application restarts: -49
//   full     the secure application's disk is full while it carries out the command
//
// COMMAND is a name of inspect::commandNames(), the number of a command on either protocol, `open`
// for bringing up the link, or `any` command.
//
// WHICH counts the calls of COMMAND by one service object from 1: N, N- (from N on), N-M, or 1/N
// (one in N, by chance). Without it every call is meant.
#pragma once

#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "inspect/Commands.h"

namespace lumo::transport {

struct FaultRule {
    enum class Kind { kError, kLost, kShort, kLong, kGarbled, kLate, kRestart, kFull };

    Kind kind = Kind::kError;
    std::optional<int64_t> number;
    std::string command;  // as it was written
    std::string text;     // the whole of it, for messages

    // Which calls.
    uint64_t first = 1;
    uint64_t last = UINT64_MAX;
    uint64_t one_in = 1;
};

// Throws std::invalid_argument saying what cannot be understood and what could.
FaultRule parseFaultRule(const std::string& text);

// What is asked to fail: bringing up the link, or a command.
struct FaultPoint {
    std::optional<uint32_t> number;                 // none for the link
    const inspect::CommandInfo* command = nullptr;  // where the number is known
};

// The rules, with their counts and their chance. A call that several rules mean gets the first of
// these.
class FaultPlan {
  public:
    FaultPlan() = default;
    FaultPlan(std::vector<FaultRule> rules, uint64_t seed);

    bool empty() const { return rules_.empty(); }

    // Counts a call; the rule that it is to meet, or null.
    const FaultRule* next(const FaultPoint& point);

    // Follows from the seed and the calls before; from 0 up to but without `bound`, which is not 0.
    uint64_t random(uint64_t bound) { return chance_() % bound; }

  private:
    std::vector<FaultRule> rules_;
    std::vector<uint64_t> calls_;  // of each rule
    std::mt19937_64 chance_;
};

}  // namespace lumo::transport
