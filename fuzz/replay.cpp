// Runs a target without libFuzzer: on the files named; or on the inputs in SEEDS.hex, one a line, and on
// others that are the same each time.
#include "input.h"

#include <fstream>
#include <random>

namespace {

constexpr unsigned int rounds = 1500; // some seconds under valgrind

void run(const std::string& bytes) {
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

void run_seeds(const std::string& file) {
    std::ifstream list(file);
    require(list.is_open());
    for (std::string line; std::getline(list, line);) {
        std::string bytes;
        for (std::size_t at = 0; at + 1 < line.size(); at += 2)
            bytes += static_cast<char>(std::stoi(line.substr(at, 2), nullptr, 16));
        run(bytes);
    }
}

void run_others() {
    for (unsigned int seed = 0; seed < rounds; ++seed) {
        std::mt19937 random(seed);
        std::string bytes(random() % (2u << seed % 9), '\0'); // short ones as often as long ones
        for (char& byte : bytes)
            byte = static_cast<char>(random());
        run(bytes);
    }
}

} // namespace

int main(int argc, char** argv) {
    const std::string first = argc > 1 ? argv[1] : "";
    if (first.ends_with(".hex")) {
        run_seeds(first);
        run_others();
        return 0;
    }
    for (int file = 1; file < argc; ++file) {
        std::ifstream bytes(argv[file], std::ios::binary);
        run({std::istreambuf_iterator<char>(bytes), {}});
    }
    return 0;
}
