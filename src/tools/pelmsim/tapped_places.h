// Where the daemon's sockets are, and those that a plugin finds there instead.
#pragma once

#include "covered_places.h"
#include "tap/passage_queue.h"
#include "tap/relays.h"
#include "wire/loop.h"

#include <array>
#include <string>

namespace pelmsim {

// From its making on the library's paths name sockets in a directory of its own, which stand in the
// place of the daemon's as long as there are such.
class tapped_places {
public:
    explicit tapped_places(passage_queue& told); // throws problem
    tapped_places(const tapped_places&) = delete;
    tapped_places& operator=(const tapped_places&) = delete;
    ~tapped_places() = default;

    daemon_places of_daemon() const { return {at_[0].theirs, at_[1].theirs, at_[2].theirs}; }

    // Moves the calling process to where ours are found.
    bool enter() const { return world_.enter(); }

    // Puts ours in their places, which are to be there; then, whenever theirs come anew. Throws
    // problem.
    void cover_all();
    void watch(event_loop& loop);
    void watch_no_more();

    // Lets files be seen that nobody listens at, until somebody does.
    void uncover_deserted();

private:
    struct place {
        char* path; // the library's
        int type;   // of socket
        std::string theirs = {};
        std::string ours = {};
        bool was_covered = false;
        bool is_deserted = false; // a file that nobody listens at, and that is not covered
    };

    int cover(const place& which) const;
    void say(event_kind kind, const std::string& text) const;
    void on_changes();
    void look_at(place& which, bool is_new);
    void look_again();

    passage_queue& told_;
    std::array<place, 3> at_;
    pelm::covered_places world_;
    unique_fd changes_;
    event_loop* loop_ = nullptr; // once it watches
    timer next_look_;
};

} // namespace pelmsim
