// What plugins ask of the daemon, and what they are answered.
#pragma once

#include "daemon/daemon_owner.h"
#include "daemon/plugins.h"
#include "daemon/recovery.h"
#include "model/store.h"

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

// What answers are made of.
struct request_context {
    daemon_owner& around;
    store& trees;
    recovery_queue& wanted;
};

class requests final : public request_handler {
public:
    explicit requests(request_context with) : with_(with) {}

    std::optional<reply> serve(plugin& from, const std::string& method,
                               const xmlNode* params) override;

    // From now on requests of that method are answered so; or, without one, as usual.
    void arrange(const std::string& method, std::optional<arranged_answer> answer);

private:
    request_context with_;
    std::map<std::string, arranged_answer> arranged_; // by method
};

} // namespace pelmsim
