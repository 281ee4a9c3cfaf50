// SPDX-License-Identifier: Apache-2.0
// Runs a fuzz target over the files of corpora, without a fuzzer: for every compiler and machine.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz/world.h"

namespace {

std::vector<std::filesystem::path> files_in(const char* directory) {
    std::vector<std::filesystem::path> files;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(directory, error)) {
        if (entry.is_regular_file()) {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::vector<uint8_t> contents(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

size_t run_whole(const std::vector<uint8_t>& input) {
    LLVMFuzzerTestOneInput(input.data(), input.size());
    return 1;
}

/// The input itself and every truncation of it.
size_t run_cut(const std::vector<uint8_t>& input) {
    for (size_t size = 0; size <= input.size(); ++size) {
        // A copy of that size, so that a sanitizer sees where it ends.
        const std::vector<uint8_t> part(input.begin(),
                                        input.begin() + static_cast<std::ptrdiff_t>(size));
        LLVMFuzzerTestOneInput(part.data(), part.size());
    }
    return input.size() + 1;
}

/// @return inputs that were run; 0 if there is no file
size_t run_folder(const char* directory, bool whole) {
    size_t runs = 0;
    for (const std::filesystem::path& file : files_in(directory)) {
        std::fprintf(stderr, "replay: %s\n", file.filename().c_str());
        const std::vector<uint8_t> input = contents(file);
        runs += whole ? run_whole(input) : run_cut(input);
    }
    return runs;
}

}  // namespace

int main(int argc, char** argv) {
    const bool whole = argc > 1 && std::strcmp(argv[1], "--whole") == 0;
    const int first = whole ? 2 : 1;
    if (argc <= first) {
        std::fprintf(stderr, "usage: %s [--whole] CORPUS_DIRECTORY...\n", argv[0]);
        return 2;
    }
    LLVMFuzzerInitialize(&argc, &argv);
    size_t runs = 0;
    for (int i = first; i < argc; ++i) {
        const size_t more = run_folder(argv[i], whole);
        if (more == 0) {
            std::fprintf(stderr, "replay: no input in %s\n", argv[i]);
            return 1;
        }
        runs += more;
    }
    std::fprintf(stderr, "replay: %zu inputs, nothing found\n", runs);
    return 0;
}
