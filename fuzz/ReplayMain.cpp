// Runs a fuzz target over stored inputs where no fuzzing compiler is:
//     TARGET [--sweep] (FILE|FOLDER)...
// With --sweep also over each short input cut short at every byte and with each byte changed in
// three ways.
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string_view>
#include <vector>

#include "Property.h"

namespace {

void run(const std::vector<uint8_t>& input) {
    // A vector may hold more memory than its size; a read past the end must be seen.
    LLVMFuzzerTestOneInput(lumo::fuzz::exactCopy(input).get(), input.size());
}

// A run takes its time, and a longer input takes four for each of its bytes.
constexpr size_t kMaxSweptBytes = 300;

void sweep(const std::vector<uint8_t>& input) {
    for (auto end = input.begin(); end != input.end(); ++end) run({input.begin(), end});
    for (size_t i = 0; i < input.size(); ++i) {
        for (const unsigned change : {0x01U, 0x80U, 0xFFU}) {
            std::vector<uint8_t> changed = input;
            changed[i] = static_cast<uint8_t>(changed[i] ^ change);
            run(changed);
        }
    }
}

void replay(const std::filesystem::path& file, bool changed_too) {
    std::cerr << file.filename().string() << std::endl;  // before a crash
    std::ifstream in(file, std::ios::binary);
    const std::vector<uint8_t> input{std::istreambuf_iterator<char>(in), {}};
    run(input);
    if (changed_too && input.size() <= kMaxSweptBytes) sweep(input);
}

}  // namespace

int main(int argc, char** argv) {
    const bool changed_too = argc > 1 && std::string_view(argv[1]) == "--sweep";
    size_t count = 0;
    for (int i = changed_too ? 2 : 1; i < argc; ++i) {
        if (!std::filesystem::is_directory(argv[i])) {
            replay(argv[i], changed_too);
            ++count;
            continue;
        }
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            replay(entry.path(), changed_too);
            ++count;
        }
    }
    std::cerr << count << " inputs" << std::endl;
    return count == 0 ? 1 : 0;
}
