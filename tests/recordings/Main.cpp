// recordings_test [--rewrite] FILE...: plays the rows of the files and compares, or rewrites.

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include "Recording.h"

namespace {

using lumo::test::Lines;

Lines readLines(const char* path) {
    std::ifstream file(path);
    if (!file) throw std::runtime_error("cannot be read");
    Lines lines;
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    return lines;
}

void writeLines(const char* path, const Lines& lines) {
    std::ofstream file(path);
    for (const std::string& line : lines) file << line << "\n";
    if (!file.flush()) throw std::runtime_error("cannot be written");
}

// Where two versions of a file part and meet again: the recorded lines of one row.
bool sameBut(const char* path, const Lines& expected, const Lines& actual) {
    bool same = true;
    size_t e = 0, a = 0;
    while (e < expected.size() || a < actual.size()) {
        if (e < expected.size() && a < actual.size() && expected[e] == actual[a]) {
            ++e, ++a;
            continue;
        }
        same = false;
        std::printf("%s:%zu: differs in \"%s\"\n", path, e + 1,
                    lumo::test::rowOf(expected, e).c_str());
        size_t call = e;
        while (call > 0 && expected[call].rfind("call ", 0) != 0) --call;
        std::printf("    %s\n", expected[call].c_str());
        const auto recorded = [](const Lines& lines, size_t at) {
            return at < lines.size() && !lines[at].empty() && lines[at][0] == '>';
        };
        Lines were, are;
        for (; recorded(expected, e); ++e) were.push_back(expected[e]);
        for (; recorded(actual, a); ++a) are.push_back(actual[a]);
        // Neither moves where a line that is no recording differs, which recording leaves alone.
        if (were.empty() && are.empty()) throw std::logic_error("a row was lost");
        for (const std::string& line : were) {
            if (std::find(are.begin(), are.end(), line) == are.end())
                std::printf("  - %s\n", line.c_str());
        }
        for (const std::string& line : are) {
            if (std::find(were.begin(), were.end(), line) == were.end())
                std::printf("  + %s\n", line.c_str());
        }
    }
    return same;
}

}  // namespace

int main(int count, char** arguments) {
    const bool rewrite = count > 1 && std::strcmp(arguments[1], "--rewrite") == 0;
    const int first = rewrite ? 2 : 1;
    if (first >= count) {
        std::fprintf(stderr, "usage: recordings_test [--rewrite] FILE...\n");
        return 2;
    }
    bool same = true;
    for (int i = first; i < count; ++i) {
        try {
            const Lines expected = readLines(arguments[i]);
            const Lines actual = lumo::test::record(expected);
            if (rewrite) {
                writeLines(arguments[i], actual);
            } else {
                same = sameBut(arguments[i], expected, actual) && same;
            }
        } catch (const std::exception& failure) {
            std::fprintf(stderr, "%s: %s\n", arguments[i], failure.what());
            return 2;
        }
    }
    if (!same) {
        std::printf(
            "Where the change is meant, write it down with: recordings_test --rewrite FILE\n");
    }
    return same ? 0 : 1;
}
