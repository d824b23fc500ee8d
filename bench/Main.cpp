#include <benchmark/benchmark.h>

#include "Rows.h"
#include "Scratch.h"

int main(int argc, char** argv) {
    lumo::bench::setUpWorld();
    lumo::bench::registerAll();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
