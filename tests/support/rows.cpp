#include "support/rows.h"

#include <regex>
#include <sstream>

std::vector<std::string> pieces_of(const std::string& text, char mark) {
    std::vector<std::string> pieces;
    std::istringstream rest(text + mark);
    for (std::string piece; std::getline(rest, piece, mark);) {
        const std::size_t first = std::min(piece.find_first_not_of(' '), piece.size());
        pieces.push_back(piece.substr(first, piece.find_last_not_of(' ') + 1 - first));
    }
    return pieces;
}

std::string joined(const std::string& text) {
    return std::regex_replace(text, std::regex("\n *"), "");
}
