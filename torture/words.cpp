#include "words.h"

#include "conf_api.h"
#include "support/reports.h"

#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

namespace torture {
namespace {

constexpr const char* reason_mark = "  # ";
constexpr const char* log_path = "/var/log/conf_plugin.log";

// What differs from run to run, or from machine to machine, is P: addresses, descriptors, the size of what
// holds pointers.
std::string without_chances(std::string words) {
    static constexpr std::string_view digits = "0123456789abcdef";
    words.resize(std::min(words.find(" time consumed:"), words.size()));
    const bool is_of_context = words.find("plugin context") != words.npos;
    for (const std::string_view before : {"=0x", "fd(", is_of_context ? "Allocate " : "fd="})
        for (std::size_t at = 0; (at = words.find(before, at)) != words.npos;) {
            at += before.size();
            words.replace(at, words.find_first_not_of(digits, at) - at, "P");
        }
    return words;
}

void add(std::string& reports, const std::string& level, const std::string& words) {
    const bool is_of_sudo = words.find(" sudo ") != words.npos; // whose outcome the machine decides
    if (level != "INFO" && !is_of_sudo)
        reports += (reports.empty() ? "" : "; ") + (level == "ERROR" ? "" : level + " - ") +
                   without_chances(words);
}

} // namespace

report_reader::report_reader(bool is_logged)
    : log_(open(log_path, O_RDONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600)) {
    (void)captured_syslog();
    (void)econf_plugin_config_debug(DBG_ALL, is_logged ? 1 : 0);
}

report_reader::~report_reader() {
    (void)econf_plugin_config_debug(DBG_NULL, 0);
    close(log_);
}

std::string report_reader::fresh() const {
    std::string bytes;
    char piece[4096];
    for (ssize_t size = 0; (size = read(log_, piece, sizeof piece)) > 0;)
        bytes.append(piece, static_cast<std::size_t>(size));
    std::string reports;
    for (std::size_t at = 0, end = 0; (end = bytes.find("\r\n", at)) != bytes.npos; at = end + 2) {
        const std::size_t level = bytes.find('[', at) + 1; // behind the time
        const std::size_t words = bytes.find("] - ", level);
        add(reports, bytes.substr(level, words - level), bytes.substr(words + 4, end - words - 4));
    }
    for (const std::string& line : captured_syslog()) { // "<11>[ERROR] No room.\n"
        const std::size_t level = line.find('[') + 1;
        const std::size_t words = line.find("] ", level);
        add(reports, line.substr(level, words - level),
            line.substr(words + 2, line.size() - words - 3));
    }
    return reports;
}

known_outcomes::known_outcomes(const std::string& path) : path_(path) {
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        const std::size_t end = std::min(line.find(reason_mark), line.size());
        if (line.starts_with("#"))
            head_ += line + "\n";
        else
            reasons_[line.substr(0, end)] = line.substr(end);
    }
    EXPECT_NE(head_, "") << path << " is not there";
}

bool known_outcomes::note(const std::string& line, bool needs_reason) {
    if (came_.emplace(line, needs_reason).second)
        in_order_.push_back(line);
    return reasons_.contains(line);
}

void known_outcomes::expect_known() const {
    for (const auto& [line, needs_reason] : came_) {
        const auto known = reasons_.find(line);
        if (known == reasons_.end())
            ADD_FAILURE() << "is not expected:\n" << line;
        else
            EXPECT_TRUE(!needs_reason || !known->second.empty()) << "has no word and no reason:\n"
                                                                 << line;
    }
}

void known_outcomes::expect_all() const {
    for (const auto& [line, reason] : reasons_)
        EXPECT_TRUE(came_.contains(line)) << "was expected, and never came:\n" << line;
}

void known_outcomes::write() const {
    std::ofstream file(path_);
    file << head_;
    for (const std::string& line : in_order_) {
        const auto known = reasons_.find(line);
        file << line << (known != reasons_.end() ? known->second : "") << "\n";
    }
}

} // namespace torture
