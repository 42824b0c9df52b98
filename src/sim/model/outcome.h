// How the last command ended: what expectations look at.
#pragma once

#include "model/xml.h"

#include <memory>
#include <string>

namespace pelmsim {

enum class verdict { ok, error, no_answer, unheard, ended };

struct outcome {
    verdict result = verdict::ok;
    int code = 0;                        // of an error; as from waitpid(), of a program
    std::string text;                    // of an error; why nobody answered or heard
    std::shared_ptr<const xmlNode> data; // that came: the first of its nodes, or none
    std::string shown;                   // what the command had to show, in lines
    bool is_cut = false;                 // there was more, so nothing can be said to be absent

    static outcome error(int code, std::string text) {
        return {verdict::error, code, std::move(text), {}, {}};
    }
    static outcome no_answer(std::string why) {
        return {verdict::no_answer, 0, std::move(why), {}, {}};
    }

    // A program has, with that status and in these words.
    static outcome ended(int status, std::string how) {
        return {verdict::ended, status, std::move(how), {}, {}};
    }
    // There was nobody to be told or asked.
    static outcome unheard(std::string why) {
        return {verdict::unheard, 0, std::move(why), {}, {}};
    }

    std::string xml() const { return compact(data.get()); } // the data, in one line
    bool is_ok() const { return result == verdict::ok; }

    // "ok", "error 5 (No such interface.)", "no answer (time-out)", "unheard (no such plugin)" or
    // "status 3".
    std::string describe() const {
        switch (result) {
        case verdict::ok:
            return "ok";
        case verdict::error:
            return "error " + std::to_string(code) + " (" + text + ")";
        case verdict::no_answer:
            return "no answer (" + text + ")";
        case verdict::unheard:
            return "unheard (" + text + ")";
        default:
            return text;
        }
    }
};

} // namespace pelmsim
