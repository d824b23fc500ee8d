// Runs a fuzz target over stored inputs where no fuzzing compiler is: TARGET (FILE|FOLDER)...
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

#include "Property.h"

namespace {

void replay(const std::filesystem::path& file) {
    std::cerr << file.filename().string() << std::endl;  // before a crash
    std::ifstream in(file, std::ios::binary);
    const std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(in), {}};
    // No vector hands out a block of exactly its size for sure.
    LLVMFuzzerTestOneInput(lumo::fuzz::exactCopy(bytes).get(), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
    size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        if (!std::filesystem::is_directory(argv[i])) {
            replay(argv[i]);
            ++count;
            continue;
        }
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            replay(entry.path());
            ++count;
        }
    }
    std::cerr << count << " inputs" << std::endl;
    return count == 0 ? 1 : 0;
}
