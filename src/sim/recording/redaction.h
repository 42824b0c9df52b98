// Events without the secrets: what a recording keeps of them. Words that pelmsim chooses stay,
// numbers, names and paths as far as no secret stands in them, and data by where it stands. All
// other texts go, for whoever wrote them may have written anything: nobody can tell a password by
// looking at it.
#pragma once

#include "journal/event.h"
#include "model/tree.h"
#include "recording/redacted_xml.h"

#include <map>
#include <tuple>

namespace pelmsim {

class redaction {
public:
    explicit redaction(const std::vector<std::string>& paths) : known_(paths), xml_(known_) {}
    redaction(const redaction&) = delete;
    redaction& operator=(const redaction&) = delete;

    // Learns the secrets of a configuration.
    void learn(const tree& configuration);

    // The event, until the next one.
    const event& reduce(const event& what);

private:
    // A request that an answer may follow.
    struct question {
        std::string method;
        std::string path;         // as it came
        bool is_doubtful = false; // there were two of that id
    };
    using question_id = std::tuple<pid_t, direction, std::string>;

    void reduce_texts(event& what) const;
    void reduce_result(const event& what, const outcome& given);
    std::string id_without(const event& what) const;
    std::string marked(const std::string& text) const;
    std::string fault_without(const std::string& fault) const;
    std::string command_without(const std::string& line);
    std::string data_without(const std::string& data, const std::string& path);

    unique_nodes body_without(const event& what);
    unique_nodes frame_without(const event& what);
    void remember(const event& frame);
    question question_of(const event& answer);

    secrets known_;
    xml_redactor xml_;
    std::map<question_id, question> questions_;
    std::string status_path_;   // that was asked for last
    bool is_of_status_ = false; // the command
    event reduced_{.kind = event_kind::outcome};
    outcome result_;
    unique_nodes body_;
};

} // namespace pelmsim
