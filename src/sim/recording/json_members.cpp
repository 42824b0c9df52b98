#include "recording/json_members.h"

#include "model/problem.h"

#include <charconv>

namespace pelmsim {
namespace {

constexpr char32_t replacement = 0xFFFD; // of what stands for no character

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

void append_utf8(std::string& text, char32_t c) {
    const auto continuation = [&](int shift) {
        text += static_cast<char>(0x80U | ((c >> shift) & 0x3FU));
    };
    if (c < 0x80) {
        text += static_cast<char>(c);
        return;
    }
    if (c < 0x800) {
        text += static_cast<char>(0xC0U | (c >> 6U));
    } else if (c < 0x10000) {
        text += static_cast<char>(0xE0U | (c >> 12U));
        continuation(6);
    } else {
        text += static_cast<char>(0xF0U | (c >> 18U));
        continuation(12);
        continuation(6);
        text += static_cast<char>(0x80U | (c & 0x3FU));
        return;
    }
    continuation(0);
}

class members_reader {
public:
    explicit members_reader(std::string_view text) : text_(text) {}

    json_members read() {
        json_members found;
        expect('{');
        if (!take('}')) {
            do
                read_member(found);
            while (take(','));
            expect('}');
        }
        skip_blanks();
        if (!at_end())
            refuse();
        return found;
    }

private:
    bool at_end() const { return at_ == text_.size(); }

    [[noreturn]] void refuse() const {
        throw problem("no JSON object: see byte " + std::to_string(at_ + 1));
    }

    void skip_blanks() {
        while (!at_end() && is_blank(text_[at_]))
            ++at_;
    }

    bool take(char wanted) {
        skip_blanks();
        const bool is_there = !at_end() && text_[at_] == wanted;
        at_ += is_there ? 1 : 0;
        return is_there;
    }

    void expect(char wanted) {
        if (!take(wanted))
            refuse();
    }

    char next() {
        if (at_end())
            refuse();
        return text_[at_++];
    }

    void read_member(json_members& found) {
        expect('"');
        std::string name = read_text();
        expect(':');
        found[std::move(name)] =
            take('"') ? json_member{true, read_text()} : json_member{false, read_other()};
    }

    std::string read_text() {
        std::string text;
        for (char c = next(); c != '"'; c = next()) {
            if (static_cast<unsigned char>(c) < ' ')
                refuse();
            if (c == '\\')
                read_escape(text);
            else
                text += c;
        }
        return text;
    }

    void read_escape(std::string& text) {
        constexpr std::string_view letters = R"("\/bfnrt)";
        constexpr std::string_view meanings = "\"\\/\b\f\n\r\t";
        const char letter = next();
        if (letter == 'u')
            return append_utf8(text, read_code());
        const std::size_t which = letters.find(letter);
        if (which == std::string_view::npos)
            refuse();
        text += meanings[which];
    }

    char32_t read_digits() {
        unsigned int code = 0;
        const std::string_view digits = text_.substr(at_, 4);
        const auto [end, error] =
            std::from_chars(digits.data(), digits.data() + digits.size(), code, 16);
        if (error != std::errc{} || end != digits.data() + 4)
            refuse();
        at_ += 4;
        return code;
    }

    // Characters above U+FFFF come in two halves.
    char32_t read_code() {
        const char32_t code = read_digits();
        if (code < 0xD800 || code > 0xDFFF)
            return code;
        if (code > 0xDBFF || !text_.substr(at_).starts_with("\\u"))
            return replacement;
        at_ += 2;
        const char32_t second = read_digits();
        const bool is_half = second >= 0xDC00 && second <= 0xDFFF;
        return is_half ? 0x10000 + ((code - 0xD800) << 10U) + (second - 0xDC00) : replacement;
    }

    // A number, a word, or an object or array to its end.
    std::string read_other() {
        const std::size_t begin = at_;
        int depth = 0;
        for (; !at_end(); ++at_) {
            const char c = text_[at_];
            if (depth == 0 && (c == ',' || c == '}' || is_blank(c)))
                break;
            if (c == '"') {
                ++at_;
                (void)read_text();
                --at_;
            }
            depth += c == '{' || c == '[' ? 1 : c == '}' || c == ']' ? -1 : 0;
        }
        if (at_ == begin || depth != 0)
            refuse();
        return std::string(text_.substr(begin, at_ - begin));
    }

    std::string_view text_;
    std::size_t at_ = 0;
};

} // namespace

json_members read_members(std::string_view line) { return members_reader(line).read(); }

} // namespace pelmsim
