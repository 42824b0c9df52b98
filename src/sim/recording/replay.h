// A script that does what a recording tells of, and expects what came of it.
#pragma once

#include "journal/text_sink.h"
#include "recording/reader.h"
#include "script/step_record.h"

#include <map>
#include <set>
#include <vector>

namespace pelmsim {

class replay {
public:
    replay() = default;
    replay(const replay&) = delete;
    replay& operator=(const replay&) = delete;

    void take(const recording_reader& line);

    // The script, once everything has been taken.
    std::string script() const;

private:
    // One command, or what was before the first one, with all that happened until the next.
    struct part {
        std::string command = {};
        bool acts = false;
        bool is_decided = false;  // an expectation or an outcome is there
        std::string why_not = {}; // to do it again
        std::vector<std::string> comments = {};
        std::vector<std::string> expectations = {};
        std::vector<std::pair<std::string, const char*>> plugins = {}; // what became of each
        std::map<std::string, outcome> recoveries = {};
    };

    void take_mark(const json_members& members);
    void take_event(const event& what, const json_members& members);
    void take_command(const event& what);
    void take_outcome(const outcome& result, const std::string& data);
    void take_request(const event& what);
    void take_question(const event& what);
    void take_answer(const event& what);
    void take_own(const event& what);
    void comment(const std::string& lines);
    void has_become(const std::string& plugin, const char* what);
    void expect(const std::optional<std::string>& what);
    void expect_xml(const std::string& data);
    bool is_written(std::size_t index, const std::string& line) const;
    std::string lines_of(std::size_t index) const;

    std::vector<part> parts_{1};
    std::map<pid_t, bool> asked_; // plugins, and whether for what the present command does
    std::set<pid_t> recovering_;
    bool has_marks_ = false;
    bool is_complete_ = false;
    text_sink text_{[this](const std::string& lines) { comment(lines); }, false};
};

} // namespace pelmsim
