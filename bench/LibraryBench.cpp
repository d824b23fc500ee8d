// bench_library: times of the library over a transport without a carrier, and of what it stands on.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

#include "CborMessages.h"
#include "MemoryTransport.h"
#include "Rows.h"
#include "Scratch.h"
#include "ServiceCalls.h"

namespace lumo::bench {
namespace {

void runEncode(benchmark::State& state) {
    ParamsRequest request(static_cast<size_t>(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(request.encode());
}

void runEncodeWithLibcbor(benchmark::State& state) {
    ParamsRequest request(static_cast<size_t>(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(request.encodeWithLibcbor());
}

void runDecode(benchmark::State& state) {
    ParamsResponse response(static_cast<size_t>(state.range(0)));
    for (auto _ : state) response.decode();
}

void runDecodeWithQcbor(benchmark::State& state) {
    ParamsResponse response(static_cast<size_t>(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(response.decodeWithQcbor());
}

void runGenerateKey(benchmark::State& state) {
    forgetAnswers();
    GenerateKeyCall call(static_cast<size_t>(state.range(0)));
    for (auto _ : state) call.run();
}

void runUpdate(benchmark::State& state) {
    forgetAnswers();
    UpdateCall call(static_cast<size_t>(state.range(0)));
    for (auto _ : state) call.run();
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

// What no update can do without: the bytes into the request, and out of the response.
void runTwoCopies(benchmark::State& state) {
    const auto size = static_cast<size_t>(state.range(0));
    const std::vector<uint8_t> input(size, 7);
    const std::vector<uint8_t> response(size, 9);
    std::vector<uint8_t> request(size);
    std::vector<uint8_t> output(size);
    for (auto _ : state) {
        std::memcpy(request.data(), input.data(), size);
        benchmark::DoNotOptimize(request.data());
        benchmark::ClobberMemory();
        std::memcpy(output.data(), response.data(), size);
        benchmark::DoNotOptimize(output.data());
        benchmark::ClobberMemory();
    }
}

void runCharacteristics(benchmark::State& state) {
    forgetAnswers();
    CharacteristicsCall call(static_cast<size_t>(state.range(0)));
    for (auto _ : state) call.run();
}

}  // namespace

void registerAll() {
    for (const int64_t params : {1, 2, 5, 15, 50, 100, 200}) {
        benchmark::RegisterBenchmark("encode", runEncode)->Arg(params);
        benchmark::RegisterBenchmark("encode:libcbor", runEncodeWithLibcbor)->Arg(params);
        benchmark::RegisterBenchmark("decode", runDecode)->Arg(params);
        benchmark::RegisterBenchmark("decode:items", runDecodeWithQcbor)->Arg(params);
    }
    for (const int64_t params : {6, 15, 50, 100, 200}) {
        benchmark::RegisterBenchmark("generate-key", runGenerateKey)->Arg(params);
    }
    for (const int64_t size : {0, 64, 1024, 4096, 8192, 16384}) {
        benchmark::RegisterBenchmark("update", runUpdate)->Arg(size);
        benchmark::RegisterBenchmark("update:two-copies", runTwoCopies)->Arg(size);
    }
    for (const int64_t params : {6, 15, 50, 100, 200}) {
        benchmark::RegisterBenchmark("characteristics", runCharacteristics)->Arg(params);
    }
}

}  // namespace lumo::bench
