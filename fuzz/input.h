// What the targets share: bytes that are read as choices, and conditions that end the program.
#pragma once

#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>

// Each target defines it; libFuzzer or replay.cpp calls it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);

// Says where and aborts unless it holds.
void require(bool holds, const char* file = __builtin_FILE(), int line = __builtin_LINE());

// How often the library has reported to syslog since the last call. The texts go nowhere.
int reports();

// An input, taken from its front. Behind its end there are zeroes.
class input {
public:
    input(const std::uint8_t* bytes, std::size_t size)
        : rest_(reinterpret_cast<const char*>(bytes), size) {}

    bool is_used_up() const { return rest_.empty(); }
    // Takes as many bytes as numbers below the limit need, at least one.
    std::uint32_t below(std::uint64_t limit);
    bool flag() { return below(2) != 0; }
    std::string rest() { return std::string(std::exchange(rest_, {})); }

    template <class Table> const auto& pick(const Table& table) {
        return table[below(std::size(table))];
    }
    // Up to 15 entries of the table, one behind the other.
    template <class Table> std::string text(const Table& table) {
        std::string result;
        for (auto left = below(16); left > 0; --left)
            result += pick(table);
        return result;
    }

private:
    std::string_view rest_;
};
