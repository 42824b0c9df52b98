// Runs a target without libFuzzer: on the files named, or on inputs that are the same each time.
#include "input.h"

#include <fstream>
#include <random>

namespace {

constexpr unsigned int rounds = 1500; // some seconds under valgrind

void run(const std::string& bytes) {
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

} // namespace

int main(int argc, char** argv) {
    for (int file = 1; file < argc; ++file) {
        std::ifstream bytes(argv[file], std::ios::binary);
        run({std::istreambuf_iterator<char>(bytes), {}});
    }
    for (unsigned int seed = 0; argc == 1 && seed < rounds; ++seed) {
        std::mt19937 random(seed);
        std::string bytes(random() % (2u << seed % 9), '\0'); // short ones as often as long ones
        for (char& byte : bytes)
            byte = static_cast<char>(random());
        run(bytes);
    }
}
