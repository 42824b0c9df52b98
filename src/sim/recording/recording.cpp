#include "recording/recording.h"

#include "journal/escaped.h"
#include "model/problem.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>

namespace pelmsim {
namespace {

constexpr std::string_view first_words = R"({"kind":"recording")";

[[noreturn]] void refuse(const std::string& name, const std::string& why) {
    throw problem("cannot record to " + name + ": " + why);
}

// A new one: nothing that has been there is written to, wherever a link may lead.
unique_fd new_file(const std::string& name) {
    return unique_fd(open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                          S_IRUSR | S_IWUSR));
}

// What somebody made by hand is not lost to a word that was left out of a command line.
void check_that_it_may_go(const std::string& name) {
    const unique_fd there(open(name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!there)
        refuse(name, errno == ELOOP ? "it is a symbolic link" : std::strerror(errno));
    struct stat what {};
    if (fstat(there.get(), &what) != 0 || !S_ISREG(what.st_mode))
        refuse(name, "it is no file");
    char begin[first_words.size()];
    const ssize_t count = pread(there.get(), begin, sizeof begin, 0);
    if (count != 0 &&
        std::string_view(begin, count < 0 ? 0 : static_cast<std::size_t>(count)) != first_words)
        refuse(name, "it is there already, and is no recording");
}

unique_fd make_file(const std::string& name) {
    unique_fd made = new_file(name);
    if (!made && errno == EEXIST) {
        check_that_it_may_go(name);
        if (unlink(name.c_str()) == 0)
            made = new_file(name);
    }
    if (!made)
        refuse(name, std::strerror(errno));
    return made;
}

} // namespace

recording::recording(const recording_wish& wanted)
    : name_(wanted.file),
      redaction_(wanted.withheld.empty() ? nullptr : std::make_unique<redaction>(wanted.withheld)),
      file_(make_file(wanted.file)),
      events_([this](const std::string& line) { write(line); }) {
    events_.show_frames(true);
    write(std::string(first_words) + (wanted.shows_commands ? ",\"commands\":true" : "") +
          (redaction_ != nullptr ? ",\"redacted\":true" : "") + "}\n");
}

void recording::learn(const tree& configuration) {
    if (redaction_ != nullptr)
        redaction_->learn(configuration);
}

void recording::take(const event& what) {
    events_.take(redaction_ != nullptr ? redaction_->reduce(what) : what);
}

void recording::show_frames(bool wanted) {
    if (std::exchange(are_shown_, wanted) == wanted)
        return;
    write(std::string(first_words) + ",\"trace\":" + (wanted ? "true" : "false") + "}\n");
}

bool recording::finish(const std::string& mistake) {
    const std::string why =
        redaction_ != nullptr && !is_own_word(mistake) ? redaction_mark : mistake;
    write(std::string(first_words) + ",\"complete\":true" +
          (why.empty() ? "" : ",\"mistake\":" + json_text(why)) + "}\n");
    file_.reset();
    return is_whole_;
}

// A line that was begun is the last of its file, and whoever reads that sees it. Behind the end
// nothing is written: of a run that a mistake has ended, nobody is left to wait for the rest.
void recording::write(std::string_view lines) {
    while (file_ && is_whole_ && !lines.empty()) {
        const ssize_t count = ::write(file_.get(), lines.data(), lines.size());
        if (count >= 0) {
            lines.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            is_whole_ = false;
            (void)std::fprintf(stderr, "pelmsim: the recording %s ends here: %s\n",
                               escaped(name_).c_str(), std::strerror(errno));
        }
    }
}

} // namespace pelmsim
