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

bool isRecorded(const std::string& line) {
    return !line.empty() && line[0] == '>';
}

// Prints the rows in which two versions of a file differ, which they can in recorded lines alone.
bool compare(const char* path, const Lines& expected, const Lines& actual) {
    bool same = true;
    size_t row = 0, call = 0;
    for (size_t e = 0, a = 0; e < expected.size() || a < actual.size();) {
        Lines were, are;
        for (; e < expected.size() && isRecorded(expected[e]); ++e) were.push_back(expected[e]);
        for (; a < actual.size() && isRecorded(actual[a]); ++a) are.push_back(actual[a]);
        if (were != are) {
            same = false;
            std::printf("%s:%zu: differs in \"%s\"\n    %s\n", path, call + 1,
                        expected[row].c_str(), expected[call].c_str());
            const auto print = [](const char* sign, const Lines& lines, const Lines& others) {
                for (const std::string& line : lines) {
                    if (std::count(others.begin(), others.end(), line) != 0) continue;
                    std::printf("  %s %s\n", sign, line.c_str());
                }
            };
            print("-", were, are);
            print("+", are, were);
        }
        if (e == expected.size() || a == actual.size()) break;
        if (expected[e] != actual[a]) throw std::logic_error("a row was lost");
        if (expected[e].rfind("== ", 0) == 0) row = e;
        call = e;
        ++e, ++a;
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
                same = compare(arguments[i], expected, actual) && same;
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
