// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Runs a fuzz target over every file of a folder, and over random inputs from a fixed seed, with any compiler.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

static constexpr int kRandomInputs = 100;
static constexpr size_t kMostRandomBytes = 2048;

int main(int argc, char** argv)
{
    if (argc != 2 || !std::filesystem::is_directory(argv[1])) {
        fprintf(stderr, "Usage: %s FOLDER\n", argv[0]);
        return 2;
    }
    if (freopen("/dev/null", "w", stdout) == nullptr) // the library's messages
        return 2;
    int inputs = 0;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
        fprintf(stderr, "%s\n", entry.path().c_str()); // the last one named is the one that failed
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
        ++inputs;
    }
    fprintf(stderr, "%d inputs\n", inputs);
    std::mt19937 random(1);
    for (int i = 0; i < kRandomInputs; ++i) {
        std::vector<uint8_t> bytes(random() % kMostRandomBytes);
        for (uint8_t& byte : bytes)
            byte = static_cast<uint8_t>(random());
        fprintf(stderr, "random input %d\n", i);
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    return inputs > 0 ? 0 : 1;
}
