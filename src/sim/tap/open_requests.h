// Requests that the answer is still to come to.
#pragma once

#include "tap/frame_follower.h"

#include <algorithm>
#include <deque>

namespace pelmsim {

struct open_request {
    event about;           // without a body
    std::string text = {}; // the whole, where it is to be shown with the answer
    std::string subject = {};
    moment at = {};

    std::size_t size() const {
        return sizeof *this + about.method.size() + about.id.size() + about.path.size() +
               text.size() + subject.size();
    }
};

// Nobody needs to answer: beyond a number, or what there is room for, the oldest are forgotten.
class open_requests {
public:
    static constexpr std::size_t most = 256;

    explicit open_requests(shared_room& room) : room_(room) {}
    open_requests(const open_requests&) = delete;
    open_requests& operator=(const open_requests&) = delete;
    ~open_requests() { clear(); }

    const open_request* first() const { return all_.empty() ? nullptr : &all_.front(); }

    void add(open_request what) {
        while (!all_.empty() && (all_.size() == most || !room_.has(what.size())))
            forget_first();
        if (!room_.has(what.size())) {
            has_forgotten_ = true;
            return;
        }
        room_.change(0, what.size());
        all_.push_back(std::move(what));
    }

    // The one with that id, if there is one.
    std::optional<open_request> take(const std::string& id) {
        const auto found =
            std::ranges::find(all_, id, [](const open_request& each) { return each.about.id; });
        return found == all_.end() ? std::nullopt : std::optional(take_at(found));
    }

    std::optional<open_request> take_first() {
        return all_.empty() ? std::nullopt : std::optional(take_at(all_.begin()));
    }

    bool has_forgotten() const { return has_forgotten_; }

    void clear() {
        while (take_first()) {
            // each gives its room back
        }
    }

private:
    void forget_first() {
        has_forgotten_ = true;
        (void)take_at(all_.begin());
    }

    open_request take_at(const std::deque<open_request>::iterator& which) {
        room_.change(which->size(), 0);
        open_request taken = std::move(*which);
        all_.erase(which);
        return taken;
    }

    shared_room& room_;
    std::deque<open_request> all_;
    bool has_forgotten_ = false;
};

} // namespace pelmsim
