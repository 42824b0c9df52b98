// Runs lines, one by one, of a script or of the prompt.
#pragma once

#include "script/completion.h"
#include "script/line_reader.h"
#include "script/session.h"

#include <string>
#include <vector>

namespace pelmsim {

class runner {
public:
    explicit runner(session& on) : on_(on) {}

    // Runs one line; a line that is no command throws problem. What came of it is there until the
    // next one; null when it had no outcome.
    const outcome* run(const std::string& line);

    // The same with a command and the words it is given, which are taken as they stand.
    const outcome* run(const std::string& name, const std::vector<std::string>& arguments);

    // Runs one line with those before it that it continues, unless it goes on itself, in the next
    // one; or drops what there is of such a line.
    void take(const std::string& line);
    bool is_within_line() const { return !begun_.empty(); }
    void drop_line() { begun_.clear(); }

    // Runs a script to its end; a line that is no command throws problem, with its place.
    void run_script(const std::string& name, const std::string& text);

    // How the line may go on that has been entered so far.
    completion complete(const std::string& line) const {
        return pelmsim::complete(on_, begun_ + line);
    }

private:
    const outcome* carry_out(const std::string& name, line_reader& words, const std::string& line);

    session& on_;
    std::string begun_; // of a line that goes on
};

} // namespace pelmsim
