#include "wire/answer.h"

#include <conf_plugin.h>

namespace pelmsim {

outcome read_answer(unique_node reply) {
    xmlNode* result = nullptr;
    xmlNode* error = nullptr;
    if (plugin_parse_reply(reply.get(), &result, &error) < 0)
        return outcome::no_answer("an answer with neither a result nor an error alone");
    if (error != nullptr) {
        const char* const text = plugin_get_reply_errmsg(error);
        return outcome::error(plugin_get_reply_errcode(error), text == nullptr ? "" : text);
    }
    outcome good;
    if (result->children != nullptr) // the data stays where it is, in its tree
        good.data = {std::shared_ptr<xmlNode>(std::move(reply)), result->children};
    return good;
}

} // namespace pelmsim
