// Runs a scenario again and again, and each time lets another call fail: of the system's, or for memory of
// the library's, of libxml2's or of cJSON's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace torture {

// What came of a step: what its call gave, which for a failure begins with "failed", and the bodies that the
// daemon received meanwhile.
struct outcome {
    std::string value;
    std::string sent = {};
    bool is_over = false; // no step is to follow but the last ones

    bool operator==(const outcome&) const = default;
    bool has_failed() const { return value.starts_with("failed"); }
};

struct step {
    std::string name;
    std::function<outcome()> run;
    bool is_last = false; // tidies up: done whatever came of those before
};

// What may come of a failure in it stands in expected/NAME.txt.
struct scenario {
    const char* name;
    std::vector<step> (*begin)();    // makes the steps of a run, and all that they work on
    bool is_logged = true;           // whether the plugin log is on
    std::size_t transfer = SIZE_MAX; // the most bytes that a read or a write moves
};

// One of so many points of failure, beginning with that one.
struct selection {
    std::size_t every = 1;
    std::size_t from = 0;
    bool is_to_write = false; // what comes of failures is what is expected from then on
};

// Tries a scenario undisturbed, and at each point selected, whose number is in *now meanwhile. Complains as
// tests do.
// @return how many points were tried
std::size_t try_points(const scenario& one, selection chosen, std::size_t* now);

// Says, while it lives, whether calls are the library's, which count and may fail, or the scenario's own.
class exposure {
public:
    explicit exposure(bool is_exposed);
    exposure(const exposure&) = delete;
    exposure& operator=(const exposure&) = delete;
    ~exposure();

private:
    const bool before_;
};

// What a call of the library gives.
template <class Call> auto tried(Call call) {
    const exposure on(true);
    return call();
}

} // namespace torture
