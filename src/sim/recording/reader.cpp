#include "recording/reader.h"

#include "model/problem.h"

#include <array>

namespace pelmsim {
namespace {

// A frame of the largest kind as JSON, in which a byte may be six.
constexpr std::size_t longest_line = std::size_t{1024} * 1024 * 1024;

// False when there is no more. Of a line that is too long, only the beginning is kept.
bool read_line(std::istream& in, std::string& line) {
    std::array<char, 65536> piece;
    line.clear();
    do {
        in.clear();
        in.getline(piece.data(), piece.size());
        if (line.size() < longest_line)
            line += piece.data(); // what is behind a byte of zero is no JSON anyway
    } while (in.fail() && in.gcount() > 0);
    return in.gcount() > 0 || !line.empty();
}

} // namespace

bool recording_reader::next() {
    is_something_ = false;
    for (std::string line; !is_something_ && read_line(in_, line);) {
        ++number_;
        try {
            take(line);
        } catch (const problem& why) {
            if (unreadable_++ == 0)
                first_unreadable_ = "line " + std::to_string(number_) + ": " + why.what();
        }
    }
    return is_something_;
}

// Kinds that are not known here may come from another pelmsim.
void recording_reader::take(const std::string& line) {
    event_.reset();
    members_ = read_members(line);
    if (is_known_event(members_))
        event_.emplace(members_);
    (void)text_in(members_, "mistake"); // which those of the recording itself may have, too
    is_something_ = event_ || text_in(members_, "kind") == "recording";
}

} // namespace pelmsim
