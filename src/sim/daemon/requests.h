// What plugins ask of the daemon, and what they are answered.
#pragma once

#include "daemon/arrangements.h"
#include "daemon/daemon_owner.h"
#include "daemon/plugins.h"
#include "daemon/recovery.h"
#include "model/store.h"

#include <optional>
#include <string>

namespace pelmsim {

// What answers are made of.
struct request_context {
    daemon_owner& around;
    store& trees;
    recovery_queue& wanted;
    const arrangements& arranged;
};

class requests final : public request_handler {
public:
    explicit requests(request_context with) : with_(with) {}

    std::optional<reply> serve(plugin& from, const std::string& method, const xmlNode* params,
                               const arranged_answer* instead) override;

    static bool are_known(const std::string& method);

private:
    request_context with_;
};

} // namespace pelmsim
