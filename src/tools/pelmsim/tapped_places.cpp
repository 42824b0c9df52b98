#include "tapped_places.h"

#include "model/problem.h"
#include "wire/unix_address.h"

#include <cerrno>
#include <conf_plugin.h>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace pelmsim {
namespace {

constexpr milliseconds between_looks{100};
constexpr std::size_t longest_path = sizeof sockaddr_un{}.sun_path - 1;

// Whether somebody takes what is sent there. One that listens sees a connection, which ends at
// once.
bool is_served(const std::string& path, int type) {
    const unique_fd probe(socket(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const sockaddr_un at = unix_address(path);
    return connect(probe.get(), reinterpret_cast<const sockaddr*>(&at), sizeof at) == 0 ||
           (errno != ECONNREFUSED && errno != ENOENT);
}

// Who may connect to theirs may connect to ours, as far as it can be given away.
void copy_rights(const struct stat& theirs, const std::string& ours) {
    (void)!chown(ours.c_str(), theirs.st_uid, theirs.st_gid);
    (void)chmod(ours.c_str(), theirs.st_mode & 07777);
}

} // namespace

tapped_places::tapped_places(passage_queue& told)
    : told_(told),
      at_{{{g_conf_plugin_socket, SOCK_STREAM},
           {g_conf_agent_socket, SOCK_STREAM},
           {g_conf_notifier_socket, SOCK_DGRAM}}} {
    std::string directory = fs::temp_directory_path() / "pelmsim-tap.XXXXXX";
    if (mkdtemp(directory.data()) == nullptr)
        throw problem("cannot make " + directory + ": " + std::strerror(errno));
    if (const std::string why = world_.make(directory); !why.empty()) {
        (void)rmdir(directory.c_str());
        throw problem(why);
    }
    for (place& each : at_) {
        each.theirs = std::string(each.path).substr(0, longest_path);
        each.ours = directory / fs::path(each.theirs).filename();
        if (each.ours.size() > longest_path)
            throw problem(each.ours + " is too long a path for a socket: set TMPDIR");
        each.ours.copy(each.path, each.ours.size());
        each.path[each.ours.size()] = '\0';
    }
}

void tapped_places::say(event_kind kind, const std::string& text) const {
    (void)told_.offer(
        {.what = passing::told, .said = {.kind = kind, .who = {.name = "daemon"}, .text = text}});
}

// What is done already is not done again. Returns 0, or the system's error.
int tapped_places::cover(const place& which) const {
    struct stat theirs {};
    // Who may not connect to theirs is to see that.
    if (stat(which.theirs.c_str(), &theirs) != 0 || access(which.theirs.c_str(), W_OK) != 0)
        return errno;
    copy_rights(theirs, which.ours);
    return world_.cover(which.theirs, which.ours);
}

void tapped_places::cover_all() {
    for (place& each : at_) {
        const int error = cover(each);
        each.was_covered = error == 0;
        if (error == ENOENT)
            say(event_kind::explanation,
                each.theirs + " is not there yet: it is tapped once it is");
        else if (error == EACCES)
            say(event_kind::explanation, each.theirs + " is not tapped: " + std::strerror(error));
        else if (error != 0)
            throw problem("cannot stand in for " + each.theirs + ": " + std::strerror(error));
    }
}

void tapped_places::watch(event_loop& loop) {
    changes_.reset(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    for (const place& each : at_) {
        const std::string directory = fs::path(each.theirs).parent_path();
        if (inotify_add_watch(changes_.get(), directory.c_str(),
                              IN_CREATE | IN_MOVED_TO | IN_ATTRIB) < 0)
            throw problem("cannot watch " + directory + ": " + std::strerror(errno));
    }
    loop_ = &loop;
    loop.watch(changes_.get(), POLLIN, [this](short) { on_changes(); });
}

void tapped_places::watch_no_more() {
    next_look_.cancel();
    loop_->forget(changes_.get());
}

void tapped_places::on_changes() {
    alignas(inotify_event) char bytes[16384];
    for (ssize_t count = 0; (count = read(changes_.get(), bytes, sizeof bytes)) > 0;)
        for (ssize_t at = 0; at < count;) {
            inotify_event head{};
            std::memcpy(&head, bytes + at, sizeof head);
            const char* const name = head.len == 0 ? "" : std::next(bytes, at) + sizeof head;
            for (place& each : at_)
                if (*name == '\0' || fs::path(each.theirs).filename() == name)
                    look_at(each, (head.mask & (IN_CREATE | IN_MOVED_TO)) != 0);
            at += static_cast<ssize_t>(sizeof head + head.len);
        }
}

// A new file is covered before anybody listens at it, so that nobody connects past ours.
void tapped_places::look_at(place& which, bool is_new) {
    if (!is_new && which.is_deserted && !is_served(which.theirs, which.type))
        return;
    const int error = cover(which);
    if (error == ENOENT || error == EACCES)
        return;
    if (error != 0)
        return say(event_kind::explanation,
                   "cannot stand in for " + which.theirs + ": " + std::strerror(error));
    const bool was_away = std::exchange(which.is_deserted, false) || is_new;
    const bool was_there = std::exchange(which.was_covered, true);
    if (was_away && &which == at_.data())
        say(was_there ? event_kind::restart : event_kind::explanation, "the daemon is there");
}

// Nothing tells when somebody listens again at a file that stays.
void tapped_places::look_again() {
    bool is_any = false;
    for (place& each : at_)
        if (each.is_deserted) {
            look_at(each, false);
            is_any |= each.is_deserted;
        }
    if (is_any)
        next_look_ = loop_->after(between_looks, [this] { look_again(); });
}

void tapped_places::uncover_deserted() {
    for (place& each : at_)
        if (!each.is_deserted && !is_served(each.theirs, each.type)) {
            each.is_deserted = true;
            (void)world_.uncover(each.theirs); // who removed the file has done so already
            next_look_ = loop_->after(between_looks, [this] { look_again(); });
        }
}

} // namespace pelmsim
