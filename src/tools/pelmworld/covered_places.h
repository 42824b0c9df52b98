// A world in which a few files have others in their place, and all else is the machine's.
#pragma once

#include <string>
#include <sys/types.h>

namespace pelm {

// A process of its own keeps the mount namespace, and all that is mounted there goes with it. It
// learns of this one's end, however that comes.
class covered_places {
public:
    covered_places() = default;
    covered_places(const covered_places&) = delete;
    covered_places& operator=(const covered_places&) = delete;
    ~covered_places();

    // Makes it; in the end a directory is removed with what lies directly in it. Returns an empty
    // text, or what could not be done.
    [[nodiscard]] std::string make(const std::string& directory);

    // Puts a file in the place of another one, or lets that be seen again. What is done already is
    // not done twice; who removes the file in the place, outside, ends its cover, too. Returns 0 or
    // the system's error.
    [[nodiscard]] int cover(const std::string& place, const std::string& by) const;
    [[nodiscard]] int uncover(const std::string& place) const;

    // Moves the calling process there, which has one thread, with the root and in the directory
    // that make() was called with. False when it cannot be done, and the reason is in errno.
    [[nodiscard]] bool enter() const;

private:
    int ask(bool cover, const std::string& place, const std::string& by) const;

    pid_t keeper_ = 0;
    int control_ = -1;
    int user_ = -1; // its namespaces; none when it is the present one
    int mounts_ = -1;
    int root_ = -1; // its directories
    int here_ = -1;
};

} // namespace pelm
