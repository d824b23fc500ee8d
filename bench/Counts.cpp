// bench_counts: instructions and allocations of single runs. Under callgrind, started with
// --instr-atstart=no, it leaves one dump for each scenario, named after it. On standard output it
// tells the allocations: a line "NAME COUNT" for each.
#include <valgrind/callgrind.h>

#include <cstdio>
#include <functional>
#include <string>

#include "Allocations.h"
#include "CborMessages.h"
#include "MemoryTransport.h"
#include "Scratch.h"
#include "ServiceCalls.h"

namespace lumo::bench {
namespace {

void count(const std::string& name, const std::function<void()>& run) {
    // What is only done once has been done after two runs.
    run();
    run();
    const uint64_t before = allocations();
    run();
    const uint64_t made = allocations() - before;

    CALLGRIND_START_INSTRUMENTATION;
    CALLGRIND_ZERO_STATS;
    run();
    CALLGRIND_DUMP_STATS_AT(name.c_str());
    CALLGRIND_STOP_INSTRUMENTATION;
    std::printf("%s %llu\n", name.c_str(), static_cast<unsigned long long>(made));
}

void countAll() {
    setUpWorld();
    for (const size_t params : {size_t{1}, kUsualParams, size_t{200}}) {
        ParamsRequest request(params);
        ParamsResponse response(params);
        const std::string size = std::to_string(params);
        count("encode/" + size, [&] { request.encode(); });
        count("encode/" + size + "/libcbor", [&] { request.encodeWithLibcbor(); });
        count("encode/" + size + "/qcbor", [&] { request.encodeWithQcbor(); });
        count("decode/" + size, [&] { response.decode(); });
        count("decode/" + size + "/items", [&] { response.decodeWithQcbor(); });
    }
    for (const size_t params : {size_t{6}, kUsualParams, size_t{200}}) {
        GenerateKeyCall call(params);
        count("generate-key/" + std::to_string(params), [&] { call.run(); });
        forgetAnswers();
    }
    // More bytes would only count how this machine copies them.
    for (const size_t size : {size_t{0}, size_t{64}}) {
        UpdateCall call(size);
        count("update/" + std::to_string(size), [&] { call.run(); });
        forgetAnswers();
    }
}

}  // namespace
}  // namespace lumo::bench

int main() {
    lumo::bench::countAll();
}
