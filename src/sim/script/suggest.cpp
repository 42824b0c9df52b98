#include "script/suggest.h"

#include <algorithm>
#include <cctype>
#include <numeric>
#include <utility>

namespace pelmsim {
namespace {

constexpr std::size_t longest = 1000; // the work grows with the square of the length

char small(char letter) {
    return static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
}

bool is_same(char one, char other) { return small(one) == small(other); }

// How many letters have to be changed, put in, left out or swapped to make one of the other.
std::size_t distance(std::string_view from, std::string_view to) {
    std::vector<std::size_t> before_last;
    std::vector<std::size_t> last(to.size() + 1); // from the first i letters to the first j
    std::iota(last.begin(), last.end(), std::size_t{0});
    for (std::size_t i = 1; i <= from.size(); ++i) {
        std::vector<std::size_t> now{i};
        for (std::size_t j = 1; j <= to.size(); ++j) {
            const std::size_t changed = is_same(from[i - 1], to[j - 1]) ? 0 : 1;
            now.push_back(std::min({last[j] + 1, now[j - 1] + 1, last[j - 1] + changed}));
            if (i > 1 && j > 1 && is_same(from[i - 1], to[j - 2]) &&
                is_same(from[i - 2], to[j - 1]))
                now[j] = std::min(now[j], before_last[j - 2] + 1);
        }
        before_last = std::exchange(last, std::move(now));
    }
    return last.back();
}

std::string names_of_first(const data_path& path, std::size_t steps) {
    data_path part = path;
    part.steps.resize(std::min(steps, part.steps.size()));
    return part.names();
}

// A third of its letters may be wrong, and in a short name one.
bool is_near(const std::string& name, const std::string& other) {
    const std::size_t most = std::max({name.size(), other.size(), std::size_t{3}});
    return most <= longest && distance(name, other) * 3 <= most;
}

// Whether each of the first steps may be meant by that of the other path.
bool is_near(const data_path& wrong, const data_path& other, std::size_t steps) {
    for (std::size_t i = 0; i < steps; ++i)
        if (!is_near(wrong.steps[i].name, other.steps[i].name))
            return false;
    return true;
}

std::string in_words(const std::string& meant) {
    return meant.empty() ? "" : ": did you mean " + meant + "?";
}

} // namespace

std::string did_you_mean(std::string_view wrong, const std::vector<std::string>& known) {
    std::string nearest;
    std::size_t least = longest;
    for (const std::string& word : known) {
        const std::size_t most = std::max(word.size(), wrong.size());
        const std::size_t few = std::min(word.size(), wrong.size());
        if (most > longest || (most - few) * 3 > most || word == wrong)
            continue;
        const std::size_t wrong_letters = distance(wrong, word);
        if (wrong_letters * 3 > most || wrong_letters >= least)
            continue;
        nearest = word;
        least = wrong_letters;
    }
    return nearest;
}

std::string suggestion(std::string_view wrong, const std::vector<std::string>& known) {
    return in_words(did_you_mean(wrong, known));
}

std::string suggestion(const data_path& wrong, const std::vector<data_path>& known) {
    const std::size_t all = wrong.steps.size();
    for (std::size_t steps = all; steps > 0; --steps) {
        const std::string part = names_of_first(wrong, steps);
        std::vector<std::string> comparable;
        for (const data_path& each : known)
            if ((each.steps.size() == steps || (each.steps.size() > steps && steps == all)) &&
                is_near(wrong, each, steps))
                comparable.push_back(names_of_first(each, steps));
        if (std::ranges::find(comparable, part) != comparable.end())
            return {};
        if (const std::string nearest = did_you_mean(part, comparable); !nearest.empty())
            return in_words(nearest);
    }
    return {};
}

} // namespace pelmsim
