// lumokm replay: sends the requests of a trace again and compares the answers.

#include <KeymasterUtils.h>
#include <lumo/Transport.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "Failure.h"
#include "TraceCommands.h"
#include "Traces.h"
#include "WorkstationServices.h"
#include "inspect/Replay.h"

namespace lumo::cli {

namespace {

using inspect::Exchange;
using inspect::Skip;
using inspect::Wire;
using keymasterutils::KeymasterUtils;

constexpr size_t kWordBytes = 4;

void storeWord(uint8_t* place, uint64_t value) {
    for (size_t i = 0; i < kWordBytes; ++i) place[i] = static_cast<uint8_t>(value >> (8 * i));
}

struct Line {
    size_t number;
    Exchange exchange;

    // What lives as long as the application's state of one boot.
    uint64_t boot() const { return exchange.boot != 0 ? exchange.boot : exchange.process; }
};

// Both security levels of the transport that the environment names.
class Sender {
  public:
    void restart() {
        environment_.reset();
        strongbox_.reset();
    }

    KeymasterUtils& transport(uint32_t level) {
        const bool strongbox = level == KM_SECURITY_LEVEL_STRONGBOX;
        std::unique_ptr<KeymasterUtils>& transport = strongbox ? strongbox_ : environment_;
        if (transport == nullptr) {
            requireFittingOptions();
            transport = std::make_unique<KeymasterUtils>(
                strongbox ? KM_SECURITY_LEVEL_STRONGBOX : KM_SECURITY_LEVEL_TRUSTED_ENVIRONMENT);
            if (transport->hsm_init() != KM_ERROR_OK) requireReached();
            remarkOnNewDevice();
        }
        return *transport;
    }

    inspect::Answer send(const Exchange& exchange, const inspect::Bytes& request) {
        inspect::Answer answer = exchange.wire == Wire::kCbor
                                     ? sendCbor(exchange.level, exchange.number, request)
                                     : sendRecord(exchange, request);
        if (answer.code != KM_ERROR_OK && answer.code != exchange.code) requireReached();
        return answer;
    }

    void abort(Wire wire, uint32_t level, uint64_t handle) {
        Exchange exchange;
        exchange.wire = wire;
        exchange.level = level;
        const inspect::Bytes request = inspect::abortRequest(wire, level, handle, exchange.number);
        static_cast<void>(send(exchange, request));
    }

  private:
    // Throws where the last exchange did not reach the application, or its storage failed.
    static void requireReached() {
        const TransportStatus status = lastTransportFailure();
        switch (status.kind) {
            case TransportStatus::ok:
                return;
            case TransportStatus::usage:
                throw Failure(Exit::usage, status.message);
            case TransportStatus::transport:
                throw Failure(Exit::transport, status.message);
            case TransportStatus::state:
                throw Failure(Exit::state, status.message);
        }
    }

    inspect::Answer sendCbor(uint32_t level, uint32_t number, const inspect::Bytes& request) {
        KeymasterUtils& way = transport(level);
        keymaster_blob_t buffer = {nullptr, 0};
        keymaster_error_t error = way.init(number, &buffer);
        if (error != KM_ERROR_OK) return {error, {}};
        if (request.size() > buffer.data_length) return {KM_ERROR_INVALID_INPUT_LENGTH, {}};
        if (!request.empty()) {
            std::memcpy(const_cast<uint8_t*>(buffer.data), request.data(), request.size());
        }
        buffer.data_length = request.size();
        keymaster_blob_t response = {nullptr, 0};
        error = way.sendCmd(buffer, &response);
        if (error != KM_ERROR_OK) return {error, {}};
        return {error, inspect::Bytes(response.data, response.data + response.data_length)};
    }

    // The answer's area moves with the end of the request: a blob here may have another length.
    inspect::Answer sendRecord(const Exchange& exchange, const inspect::Bytes& request) {
        KeymasterUtils& way = transport(exchange.level);
        constexpr size_t kRegion = KeymasterUtils::kSharedBufferBytes;
        if (request.size() > kRegion) return {KM_ERROR_INVALID_INPUT_LENGTH, {}};
        auto* region = static_cast<uint8_t*>(way.vaultlink_dev_init());
        std::fill(region, region + kRegion, uint8_t{0});
        std::copy(request.begin(), request.end(), region);
        uint8_t* area = region + request.size();
        const size_t room = kRegion - request.size();
        size_t capacity = room;
        if (exchange.area) {
            const size_t moved = exchange.request.size() - request.size();
            capacity = std::min(room, exchange.area->capacity + moved);
            const auto place = inspect::placeWord(exchange.number);
            if (exchange.area->offset && place && (*place + 2) * kWordBytes <= capacity) {
                storeWord(area + *place * kWordBytes, *exchange.area->offset);
                storeWord(area + (*place + 1) * kWordBytes,
                          *exchange.area->room + capacity - exchange.area->capacity);
            }
        }
        const int32_t error = way.send_cmd(region, static_cast<uint32_t>(request.size()), area,
                                           static_cast<uint32_t>(capacity));
        if (error != KM_ERROR_OK || capacity < kWordBytes) return {error, {}};
        const inspect::ByteView answer(area, capacity);
        const size_t size = inspect::decodeRecordResponse(exchange.number, answer).extent;
        const auto status = static_cast<int32_t>(secureapp::loadLittle(area, kWordBytes));
        return {status, answer.sub(0, size).copy()};
    }

    std::unique_ptr<KeymasterUtils> environment_;
    std::unique_ptr<KeymasterUtils> strongbox_;
};

std::string describe(const inspect::Protocol& protocol) {
    return (protocol.legacy ? "records" : "cbor") + std::string(" of version ") +
           std::to_string(protocol.keymaster_version) + "." +
           std::to_string(protocol.ta_minor_version) + "." +
           std::to_string(protocol.hal_minor_version);
}

// What the words of records mean depends on the versions; CBOR is one.
void requireSameProtocol(KeymasterUtils& transport, const inspect::Protocol& recorded) {
    const inspect::Protocol here = {transport.isLegacy(), transport.getKeymasterVersion(),
                                    transport.getKeymasterTaMinorVersion(),
                                    transport.getKeymasterHalMinorVersion()};
    const bool same_versions = here.keymaster_version == recorded.keymaster_version &&
                               here.ta_minor_version == recorded.ta_minor_version &&
                               here.hal_minor_version == recorded.hal_minor_version;
    if (here.legacy == recorded.legacy && (!here.legacy || same_versions)) return;
    throw Failure(Exit::usage, "the trace speaks " + describe(recorded) +
                                   ", the secure application " + describe(here) +
                                   "; choose another with --transport");
}

struct Counts {
    size_t sent = 0;
    TraceCounts read;
    size_t other_source = 0;
    std::map<Skip, size_t> skipped;
};

std::string sentenceOf(const Counts& counts) {
    std::string text = std::to_string(counts.sent) + " sent";
    size_t left_out = counts.other_source + counts.read.unreadable;
    for (const auto& skipped : counts.skipped) left_out += skipped.second;
    if (left_out == 0) return text;
    text += ", " + std::to_string(left_out) + " left out:";
    std::string reasons;
    const auto add = [&](const std::string& reason, size_t count) {
        if (count == 0) return;
        reasons += (reasons.empty() ? " " : ", ") + std::to_string(count) + " " + reason;
    };
    for (const auto& [skip, count] : counts.skipped) add(inspect::describe(skip), count);
    add("of the daemon, as the clients' are sent", counts.other_source);
    add("unreadable", counts.read.unreadable);
    return text + reasons;
}

class Run {
  public:
    Run(std::vector<Line> lines, bool destructive)
        : lines_(std::move(lines)), replay_(destructive) {
        for (size_t i = 0; i < lines_.size(); ++i) last_of_boot_[lines_[i].boot()] = i;
    }

    // Sends the lines up to the first difference, and returns that; empty where there is none.
    std::string carryOut(Counts& counts) {
        for (size_t i = 0; i < lines_.size(); ++i) {
            const Line& line = lines_[i];
            if (startsBoot(i)) {
                sender_.restart();
                replay_.reboot();
            }
            requireSameProtocol(sender_.transport(line.exchange.level), line.exchange.protocol);
            inspect::Bytes request;
            const Skip skip = replay_.prepare(line.exchange, request);
            for (const auto& [level, handle] : replay_.takeAbandoned()) {
                const bool legacy = line.exchange.protocol.legacy;
                sender_.abort(legacy ? Wire::kRecord : Wire::kCbor, level, handle);
            }
            if (skip != Skip::kNone) {
                ++counts.skipped[skip];
                continue;
            }
            ++counts.sent;
            const inspect::Answer answer = sender_.send(line.exchange, request);
            const std::string said = lastExchangeReason().text;
            const std::string difference = replay_.compare(line.exchange, answer);
            if (difference.empty()) continue;
            const bool refused = answer.code != line.exchange.code && !said.empty();
            return "line " + std::to_string(line.number) + ", " +
                   inspect::describeCommand(line.exchange.wire, line.exchange.number) + ": " +
                   difference + (refused ? " (" + said + ")" : "");
        }
        return "";
    }

  private:
    // Whether the recorded application was started anew before line `i`, as far as can be told:
    // nothing of an earlier boot follows.
    bool startsBoot(size_t i) {
        const uint64_t boot = lines_[i].boot();
        if (boot == boot_) return false;
        const bool over =
            std::all_of(last_of_boot_.begin(), last_of_boot_.end(), [&](const auto& b) {
                return b.second < i || b.first == boot || b.second > last_of_boot_[boot];
            });
        const bool anew = boot_ != 0 && over && last_of_boot_[boot_] < i;
        boot_ = boot;
        return anew;
    }

    const std::vector<Line> lines_;
    std::map<uint64_t, size_t> last_of_boot_;
    uint64_t boot_ = 0;
    inspect::Replay replay_;
    Sender sender_;
};

// Where the client's side and the daemon's stand in one file, each exchange is there twice.
std::vector<Line> readLines(const std::string& path, Counts& counts) {
    std::vector<Line> lines;
    counts.read =
        readTrace(path, [&](size_t number, const Exchange& exchange, const std::string& /*line*/) {
            lines.push_back({number, exchange});
            return true;
        });
    const auto of_client = [](const Line& line) { return line.exchange.source == "client"; };
    if (std::none_of(lines.begin(), lines.end(), of_client)) return lines;
    const auto others = std::stable_partition(lines.begin(), lines.end(), of_client);
    counts.other_source = static_cast<size_t>(lines.end() - others);
    lines.erase(others, lines.end());
    return lines;
}

}  // namespace

Action declareReplay(CLI::App& app, const Common& common) {
    struct Arguments {
        std::string path;
        bool destructive = false;
    };
    const auto arguments = std::make_shared<Arguments>();
    app.add_option("FILE", arguments->path, "the trace; - is standard input")
        ->required()
        ->type_name("");
    app.add_flag("--yes", arguments->destructive,
                 "send deleteAllKeys and destroyAttestationIds, too");
    return [arguments, &common] {
        Counts counts;
        Run run(readLines(arguments->path, counts), arguments->destructive);
        const std::string difference = run.carryOut(counts);
        if (!difference.empty()) throw Failure(Exit::check, difference + "; " + sentenceOf(counts));
        if (counts.sent == 0) {
            throw Failure(Exit::usage, "nothing of the trace can be sent: " + sentenceOf(counts));
        }
        Report report = {{"sent", counts.sent}, {"skipped", Report::object()}};
        for (const auto& [skip, count] : counts.skipped) {
            report["skipped"][inspect::nameOf(skip)] = count;
        }
        report["seenByDaemonToo"] = counts.other_source;
        report["unreadable"] = counts.read.unreadable;
        conclude(common, report, "no difference that matters; " + sentenceOf(counts));
        requireAllRead(common, counts.read);
    };
}

}  // namespace lumo::cli
