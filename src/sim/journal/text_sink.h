// The journal as people read it: one line for each event, now and then with indented text below.
// Names, texts and paths come from peers that may be anything, so control characters in them are
// shown escaped, and this is the place that does it.
#pragma once

#include "journal/journal.h"

#include <functional>
#include <string_view>

namespace pelmsim {

enum class style { plain, bold, good, bad, faint };

class text_sink final : public event_sink {
public:
    using printer = std::function<void(const std::string& lines)>;

    text_sink(printer print, bool colours) : print_(std::move(print)), colours_(colours) {}

    void take(const event& what) override;
    void show_frames(bool wanted) override { shows_frames_ = wanted; }

    // For readers who have not typed them, nor see the script.
    void show_commands() { shows_commands_ = true; }

private:
    using teller = void (text_sink::*)(const event&) const;
    static teller teller_of(event_kind kind);

    void request(const event& what) const;
    void stray_answer(const event& what) const;
    void frame(const event& what) const;
    void unreadable(const event& what) const;
    void closed(const event& what) const;
    void refused(const event& what) const;
    void waiting(const event& what) const;
    void notification(const event& what) const;
    void dropped(const event& what) const;
    void warning(const event& what) const;
    void restart(const event& what) const;
    void ended(const event& what) const;
    void output(const event& what) const;
    void command(const event& what) const;
    void command_outcome(const event& what) const;
    void shown(const event& what) const;
    void heading(const event& what) const;
    void expectation(const event& what) const;
    void mistake(const event& what) const;
    void fault(const event& what) const;

    // One line: what would begin another one is shown escaped.
    void line(std::string_view text, style how) const;

    // Lines that something else is made of, such as XML. They are indented, so that none of them
    // can be taken for one of pelmsim's own.
    void block(std::string_view lines, style how = style::plain) const;

    // One line with the time of day.
    void timed(const event& what, std::string_view happened, std::string_view result,
               bool good = true) const;

    std::string styled(std::string_view text, style how) const;

    printer print_;
    bool colours_;
    bool shows_frames_ = false;
    bool shows_commands_ = false;
};

} // namespace pelmsim
