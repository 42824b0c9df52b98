#include "show.h"

#include "page/page.h"
#include "script/files.h"

#include <cstdio>
#include <sstream>

namespace pelmsim {
namespace {

std::vector<std::string> lines_of(const std::string& file) {
    std::istringstream text(read_file(file == "-" ? "/dev/stdin" : file));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);)
        lines.push_back(line);
    return lines;
}

} // namespace

int show_recording(const show_options& given) {
    const std::string page = html_page(lines_of(given.file));
    (void)std::fwrite(page.data(), 1, page.size(), stdout); // main() sees whether it was written
    return 0;
}

} // namespace pelmsim
