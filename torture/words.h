// What the library says, and what is known of that.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace torture {

// Collects what is reported, to the plugin log and to syslog, but not what is for information. The log is on
// while it lives, if at all.
class report_reader {
public:
    explicit report_reader(bool is_logged);
    report_reader(const report_reader&) = delete;
    report_reader& operator=(const report_reader&) = delete;
    ~report_reader();

    // Since the last time, with "; " between two reports. Errors stand by their words alone, and an address
    // is P.
    std::string fresh() const;

private:
    const int log_;
};

// The outcomes of failures that are known: a line in a file for each. Behind "  # " stands why one is right
// although the library says nothing of it.
class known_outcomes {
public:
    explicit known_outcomes(const std::string& path);

    // @return whether the line is known
    bool note(const std::string& line, bool needs_reason);
    // Complains of each that is not known, or has no reason where it needs one.
    void expect_known() const;
    // Complains of each that is known and did not come.
    void expect_all() const;
    // Makes what came what is known, with the reasons given before.
    void write() const;

private:
    const std::string path_;
    std::string head_;                           // the lines of the file that are comments
    std::map<std::string, std::string> reasons_; // of each line that is known
    std::map<std::string, bool> came_;           // whether it needs a reason
    std::vector<std::string> in_order_;
};

} // namespace torture
