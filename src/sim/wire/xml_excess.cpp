#include "wire/xml_excess.h"

#include <algorithm>
#include <vector>

namespace pelmsim {
namespace {

constexpr std::size_t longest_text =
    10000000;                         // that a parser takes; of more it complains at length
constexpr std::size_t deepest = 1024; // parsers give up before that

class scanner {
public:
    explicit scanner(std::string_view body) : body_(body) {}

    std::string find() {
        while (excess_.empty() && at_ < body_.size())
            if (body_[at_] == '<')
                read_markup();
            else
                skip_text();
        return excess_;
    }

private:
    void skip_text() {
        const std::size_t end = std::min(body_.find('<', at_), body_.size());
        const auto references = std::ranges::count(body_.substr(at_, end - at_), '&');
        count_nodes(static_cast<std::size_t>(references));
        if (end - at_ > longest_text)
            excess_ = "a text of more than " + std::to_string(longest_text) + " bytes";
        at_ = end;
    }

    void read_markup() {
        static constexpr struct {
            const char* begin;
            const char* end;
        } wholes[] = {{"<!--", "-->"}, {"<![CDATA[", "]]>"}, {"<?", "?>"}};
        const std::string_view left = body_.substr(at_);
        for (const auto& [begin, end] : wholes)
            if (left.starts_with(begin)) {
                count_nodes(1);
                return skip_behind(end);
            }
        if (left.starts_with("<!"))
            excess_ = "a document type";
        else if (left.starts_with("</"))
            read_end();
        else
            read_begin();
    }

    void read_end() {
        if (declared_.empty()) {
            count_nodes(1); // one more complaint of the parser
        } else {
            in_scope_ -= declared_.back();
            declared_.pop_back();
        }
        skip_behind(">");
    }

    // A value may hold any of the other characters that matter here.
    void read_begin() {
        std::size_t attributes = 0;
        std::size_t namespaces = 0;
        const std::size_t begin = at_;
        for (++at_; at_ < body_.size() && body_[at_] != '>'; ++at_) {
            if (body_.substr(at_).starts_with("xmlns"))
                ++namespaces;
            if (const char quote = body_[at_]; quote == '"' || quote == '\'') {
                ++attributes;
                at_ = std::min(body_.find(quote, at_ + 1), body_.size() - 1);
            }
        }
        const bool is_empty = body_.substr(begin, at_ - begin).ends_with('/');
        at_ = std::min(at_ + 1, body_.size());
        count_nodes(1 + attributes);
        count_comparisons(attributes * attributes + (in_scope_ + namespaces) * (1 + attributes));
        if (is_empty || declared_.size() > deepest)
            return;
        declared_.push_back(namespaces);
        in_scope_ += namespaces;
    }

    void skip_behind(std::string_view end) {
        const std::size_t found = body_.find(end, at_ + 2);
        at_ = found == std::string_view::npos ? body_.size() : found + end.size();
    }

    void count_nodes(std::size_t count) {
        nodes_ += count;
        if (nodes_ > most_nodes)
            excess_ = "more than " + std::to_string(most_nodes) + " nodes";
    }

    void count_comparisons(std::size_t count) {
        comparisons_ += count;
        if (comparisons_ > most_comparisons)
            excess_ = "too many attributes or namespaces in one place";
    }

    std::string_view body_;
    std::size_t at_ = 0;
    std::string excess_;
    std::size_t nodes_ = 0;
    std::size_t comparisons_ = 0;
    std::vector<std::size_t> declared_; // namespaces, by each element that is open
    std::size_t in_scope_ = 0;          // all of them
};

} // namespace

std::string xml_excess(std::string_view body) { return scanner(body).find(); }

} // namespace pelmsim
