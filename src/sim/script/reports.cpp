#include "script/reports.h"

#include <algorithm>
#include <cctype>

namespace pelmsim {
namespace {

constexpr std::string_view sanitizers[] = {
    "ERROR: AddressSanitizer",  "ERROR: HWAddressSanitizer", "ERROR: LeakSanitizer",
    "WARNING: MemorySanitizer", "WARNING: ThreadSanitizer",
};

// "plugin.c:12:5: runtime error: ..."
bool is_undefined_behaviour(std::string_view line) {
    const std::size_t found = line.find(": runtime error: ");
    return found != std::string_view::npos && found > 0 &&
           std::isdigit(static_cast<unsigned char>(line[found - 1])) != 0;
}

// "==812==    at 0x48...": where it went wrong. Other lines may only say that all is well.
bool is_place_by_valgrind(std::string_view line) {
    return line.starts_with("==") && line.find("==    at 0x") != std::string_view::npos;
}

} // namespace

bool is_report(std::string_view line) {
    const auto is_in_it = [line](std::string_view text) {
        return line.find(text) != std::string_view::npos;
    };
    return std::ranges::any_of(sanitizers, is_in_it) || is_undefined_behaviour(line) ||
           is_place_by_valgrind(line);
}

} // namespace pelmsim
