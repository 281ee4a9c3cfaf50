// SPDX-License-Identifier: Apache-2.0
// Runs a fuzz target over the files of a corpus, without a fuzzer: for every compiler and machine.
#include <algorithm>
#include <cstdio>
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

/// The input itself and every truncation of it.
size_t run(const std::vector<uint8_t>& input) {
    for (size_t size = 0; size <= input.size(); ++size) {
        // A copy of that size, so that a sanitizer sees where it ends.
        const std::vector<uint8_t> part(input.begin(),
                                        input.begin() + static_cast<std::ptrdiff_t>(size));
        LLVMFuzzerTestOneInput(part.data(), part.size());
    }
    return input.size() + 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s CORPUS_DIRECTORY\n", argv[0]);
        return 2;
    }
    LLVMFuzzerInitialize(&argc, &argv);
    const std::vector<std::filesystem::path> files = files_in(argv[1]);
    if (files.empty()) {
        std::fprintf(stderr, "replay: no input in %s\n", argv[1]);
        return 1;
    }
    size_t runs = 0;
    for (const std::filesystem::path& file : files) {
        std::fprintf(stderr, "replay: %s\n", file.filename().c_str());
        runs += run(contents(file));
    }
    std::fprintf(stderr, "replay: %zu inputs from %zu files, nothing found\n", runs, files.size());
    return 0;
}
