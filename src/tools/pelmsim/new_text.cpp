#include "new_text.h"

#include <algorithm>
#include <sstream>
#include <string_view>

namespace pelmsim {
namespace {

// What stands in the templates, and what is put in its place.
struct substitution {
    std::string sample;
    std::string actual;
};

using substitutions = std::vector<substitution>; // of two that fit, the first counts

struct sample {
    std::string_view kind;
    std::string path;
    std::string name; // its last step's
};

sample sample_of(std::string_view kind) {
    const sample all[] = {{"config", "/sample/setting", "setting"},
                          {"status", "/sample/state", "state"},
                          {"operate", "/sample/reset", "reset"}};
    return *std::ranges::find(all, kind, &sample::kind);
}

std::string replaced(const std::string& text, const substitutions& all) {
    std::string result;
    for (std::size_t at = 0; at < text.size();) {
        const auto fits = [&](const substitution& each) {
            return text.compare(at, each.sample.size(), each.sample) == 0;
        };
        if (const auto found = std::ranges::find_if(all, fits); found != all.end()) {
            result += found->actual;
            at += found->sample.size();
        } else {
            result += text[at++];
        }
    }
    return result;
}

std::string in_quotes_of_c(const std::string& text) { return replaced(text, {{"\"", "\\\""}}); }

// "each config" of a line such as "/* [[each config]] */"; empty for any other line.
std::string mark_in(const std::string& line) {
    const std::size_t begin = line.find("[[");
    const std::size_t end = line.find("]]");
    if (begin == std::string::npos || end == std::string::npos)
        return {};
    return line.substr(begin + 2, end - begin - 2);
}

class filler {
public:
    filler(const project_names& names, bool is_c)
        : names_(names), plugin_{"sample-plugin", names.plugin}, is_c_(is_c) {}

    std::string fill(const std::string& text) const {
        std::istringstream lines(text);
        std::string result;
        std::string block;
        std::string mark; // of the block that is being read
        for (std::string line; std::getline(lines, line);) {
            if (const std::string found = mark_in(line); found == "end") {
                result += expanded(mark, block);
                mark.clear();
                block.clear();
            } else if (!found.empty()) {
                mark = found;
            } else if (mark.empty()) {
                result += with_plugin(line) + "\n";
            } else {
                block += line + "\n";
            }
        }
        return result;
    }

    std::string with_plugin(const std::string& text) const { return replaced(text, {plugin_}); }

private:
    std::string expanded(const std::string& mark, const std::string& block) const {
        const std::string kind = mark.substr(mark.find(' ') + 1);
        const std::vector<served_path>& paths = names_.paths.at(kind);
        if (mark.starts_with("any"))
            return paths.empty() ? "" : with_plugin(block);
        std::string result;
        for (const served_path& each : paths)
            result += replaced(block, of_path(sample_of(kind), each));
        return result;
    }

    substitutions of_path(const sample& in_place_of, const served_path& served) const {
        const std::string path = served.path.text();
        return {plugin_,
                {in_place_of.path, is_c_ ? in_quotes_of_c(path) : path},
                {in_place_of.name + "_", served.identifier + "_"},
                {in_place_of.name, served.path.steps.back().name}};
    }

    const project_names& names_;
    substitution plugin_;
    bool is_c_;
};

} // namespace

template_file filled(const template_file& file, const project_names& names) {
    const filler fills(names, file.name.ends_with(".c") || file.name.ends_with(".cpp"));
    return {fills.with_plugin(file.name), fills.fill(file.text)};
}

} // namespace pelmsim
