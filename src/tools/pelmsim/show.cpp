#include "show.h"

#include "journal/escaped.h"
#include "journal/text_sink.h"
#include "model/problem.h"
#include "page/page.h"
#include "recording/reader.h"
#include "recording/replay.h"
#include "serving.h"
#include "terminal.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace pelmsim {
namespace {

std::ifstream open_recording(const std::string& file) {
    const std::string name = file == "-" ? "/dev/stdin" : file;
    std::ifstream in(name, std::ios::binary);
    if (!in || std::filesystem::is_directory(name))
        throw problem("cannot read " + file + ": " + std::strerror(in ? EISDIR : errno));
    return in;
}

void print(const std::string& lines) {
    (void)std::fwrite(lines.data(), 1, lines.size(), stdout); // main() sees whether it was written
}

// What the page has no place for are the lines in which a recording tells of itself.
std::string page_of(std::istream& in) {
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);)
        if (!line.starts_with(R"({"kind":"recording")"))
            lines.push_back(line);
    return html_page(lines);
}

// As it was printed, with as much more as is wanted.
void print_text(recording_reader& reader, const show_options& given) {
    text_sink text(print, terminal::has_colours());
    text.show_frames(given.trace);
    if (given.commands)
        text.show_commands();
    while (reader.next())
        if (const event* const what = reader.what(); what != nullptr)
            text.take(*what);
        else if (is_true(reader.members(), "commands"))
            text.show_commands();
        else if (reader.members().contains("trace"))
            text.show_frames(given.trace || is_true(reader.members(), "trace"));
}

void print_script(recording_reader& reader) {
    replay made;
    while (reader.next())
        made.take(reader);
    print(made.script());
}

int tell_of_unreadable(const recording_reader& reader, const std::string& file) {
    if (reader.unreadable() == 0)
        return 0;
    (void)std::fprintf(stderr, "pelmsim: %s: %d lines are no events, the first is %s\n",
                       escaped(file).c_str(), reader.unreadable(),
                       escaped(reader.first_unreadable()).c_str());
    return expectation_failed;
}

} // namespace

int show_recording(const show_options& given) {
    std::ifstream in = open_recording(given.file);
    recording_reader reader(in);
    if (given.html)
        print(page_of(in));
    else if (given.script)
        print_script(reader);
    else
        print_text(reader, given);
    if (in.bad())
        throw problem("cannot read " + given.file + " to its end: " + std::strerror(errno));
    return tell_of_unreadable(reader, given.file);
}

} // namespace pelmsim
