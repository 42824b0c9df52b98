// Answers that a script has arranged for what peers ask.
#pragma once

#include <map>
#include <optional>
#include <string>

namespace pelmsim {

// What a request of one method gets instead of the usual answer.
struct arranged_answer {
    bool silence = false; // none at all
    int code = 0;         // otherwise an error
    std::string text = {};
};

class arrangements {
public:
    // From now on requests of that method are answered so; or, without one, as usual.
    void arrange(const std::string& method, std::optional<arranged_answer> answer) {
        if (answer)
            answers_[method] = std::move(*answer);
        else
            answers_.erase(method);
    }

    const arranged_answer* find(const std::string& method) const { // or null
        const auto found = answers_.find(method);
        return found == answers_.end() ? nullptr : &found->second;
    }

private:
    std::map<std::string, arranged_answer> answers_; // by method
};

} // namespace pelmsim
