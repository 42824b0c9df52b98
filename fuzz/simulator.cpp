// What reaches the simulator from outside: frames in whatever pieces, paths, and lines of scripts.
#include "input.h"

#include "journal/text_sink.h"
#include "model/path.h"
#include "model/problem.h"
#include "model/xml.h"
#include "script/json_command.h"
#include "script/runner.h"
#include "support/peer.h"
#include "wire/frame_reader.h"

#include <array>
#include <memory>

namespace {

using namespace pelmsim;
using namespace std::string_view_literals;

// All that arrives in the end, as text.
std::string take(frame_reader& reader) {
    std::string result;
    while (std::optional<arrival> each = reader.next()) {
        if (each->garbage > 0)
            result += std::string(each->garbage, 'g'); // however it is parted
        else
            result += "(" + std::to_string(each->header.length) + " " +
                      (each->body != nullptr ? compact(each->body.get()) : each->fault) + ")";
    }
    return result;
}

// A few bytes behind it may be no frame, or the beginning of one.
std::string up_to_the_last_frame(const std::string& taken) {
    return taken.substr(0, taken.rfind(')') + 1);
}

// However the bytes are cut, the same frames come.
void read_frames(input& in) {
    static constexpr std::string_view bodies[] = {"<a/>",
                                                  "<a><b>1</b></a>",
                                                  "<a",
                                                  "",
                                                  "\xFF",
                                                  "<a>\0</a>"sv,
                                                  "<!DOCTYPE a [<!ENTITY e 'x'>]><a>&e;</a>"};
    std::string stream;
    for (auto left = in.below(8); left > 0; --left)
        stream += in.below(4) == 0 ? header_of(in.below(0x100000000))
                                   : frame_of(std::string(in.pick(bodies)));
    const bool has_rest = in.flag();
    std::vector<std::size_t> cuts;
    for (auto left = in.below(16); left > 0; --left)
        cuts.push_back(in.below(64));
    stream += has_rest ? in.rest() : "";
    frame_reader whole, parted;
    whole.add(stream);
    const std::string expected = take(whole);
    std::string came;
    std::string_view left = stream;
    for (const std::size_t each : cuts) {
        parted.add(left.substr(0, each));
        left.remove_prefix(std::min(each, left.size()));
        came += take(parted);
    }
    parted.add(left);
    came += take(parted);
    require(up_to_the_last_frame(came) == up_to_the_last_frame(expected));
}

// A path that can be read says itself.
void read_path(input& in) {
    static constexpr std::string_view pieces[] = {
        "/", "a",  "net:", "[k=\"x\"]", "[k='y/z']", "[.='1']",  "[",
        "]", "\"", "'",    "=",         " ",         "\xC3\xA9", "[k=bare]"};
    const std::string text = in.text(pieces) + (in.flag() ? in.rest() : "");
    try {
        const data_path path(text);
        const data_path again(path.text());
        require(again.text() == path.text());
    } catch (const problem&) { // it cannot be read, and says why
    }
}

// A desk without anybody at it, on which commands are carried out that start and wait for nothing.
class desk {
public:
    desk() { events_.add(text_); }

    void run(const std::string& line) {
        if (line.find("within") != line.npos) // which waits
            return;
        (void)lines_.complete(line);
        try {
            (void)lines_.run(line);
        } catch (const problem& why) {
            require(std::string_view(why.what()) != "");
        }
    }

private:
    const clock_face time_;
    const descriptor_limit descriptors_;
    text_sink text_{[](const std::string& lines) { require(lines.ends_with('\n')); }, false};
    event_loop loop_{time_};
    event_journal events_{time_};
    session on_{loop_, events_, descriptors_};
    runner lines_{on_};
};

void run_lines(input& in) {
    static constexpr std::string_view commands[] = {
        "set ",    "delete ",  "show ",    "publish ", "status ",  "operate ", "expect ",
        "answer ", "explain ", "help ",    "notify ",  "trace ",   "joined ",  "timeline ",
        "echo ",   "kickoff ", "plugins ", "agents ",  "programs "};
    static constexpr std::string_view words[] = {"/a",       "/a/b[k=\"x\"]",
                                                 "<a/>",     "<a><b>1</b></a>",
                                                 "text ",    "\"",
                                                 "'",        "ok ",
                                                 "error ",   "5 ",
                                                 "not ",     "unheard ",
                                                 "current ", "mod ",
                                                 "add ",     "shown ",
                                                 "holds ",   "pull ",
                                                 "usual ",   " ",
                                                 "#",        "\\"};
    static constexpr auto lines = 4;
    desk at;
    for (auto left = in.below(lines) + 1; left > 0; --left)
        at.run(std::string(in.pick(commands)) + in.text(words));
    at.run(std::string(in.pick(commands)) + in.rest());
}

void read_json(input& in) {
    static constexpr std::string_view pieces[] = {
        "{",       "}", "\"command\":", "\"set\"", ",",    "\"arguments\":", "[",    "]",
        "\"id\":", "7", "\"line\":",    "\"x\"",   "null", "\\u0000",        "1e999"};
    const std::string text = in.text(pieces) + (in.flag() ? in.rest() : "");
    json_command command;
    try {
        read_json_command(text, command);
        require(command.name.empty() != command.line.empty());
    } catch (const problem&) {
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static const silent_parser silent;
    input in(bytes, size);
    static constexpr std::array targets{read_frames, read_path, run_lines, read_json};
    targets[in.below(targets.size())](in);
    (void)reports();
    return 0;
}
