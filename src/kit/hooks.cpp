#include "hooks.h"

#include "model/problem.h"

#include <conf_plugin.h>
#include <regex>

namespace pelmtest {

using namespace pelmsim;

namespace {

requests* serving; // null between tests

// The library's copy. Its own pointer lies where leak checkers do not look, at an odd address.
pelmd_plugin_callback_t* installed;

// Nodes as they come out at the other end of a connection.
unique_nodes as_received(const xmlNode* first) { return parse_nodes(compact(first)); }

// Over a connection, only an active plugin may ask.
bool may_ask() {
    const conf_plugin_context_t* const context = get_plugin_context();
    return serving != nullptr && context != nullptr && context->bit_activate;
}

// Carries out a request, and remembers it, with the reason when it fails. Nothing is thrown through
// the library. @return whether it was done
template <class Action>
bool serve(pelmtest_event_t kind, const std::string& line, Action action) noexcept {
    if (!may_ask())
        return false;
    try {
        action();
        serving->remember(kind, line);
        return true;
    } catch (const std::exception& why) {
        serving->remember(kind, line + ": " + why.what());
        return false;
    }
}

const tree& tree_for(bool_t old_flag) {
    return old_flag ? serving->trees.old : serving->trees.current;
}

std::string query_line(bool_t old_flag, const char* path) {
    return (old_flag ? "old " : "") + std::string(path);
}

// Over a connection nothing comes, but nothing fails either, when the daemon refuses.
int pull(bool_t old_flag, const char* path, xmlNode** result) {
    (void)serve(PELMTEST_PULLED, query_line(old_flag, path), [&] {
        *result = as_received(tree_for(old_flag).copy(data_path(path)).get()).release();
    });
    return may_ask() ? 0 : -1;
}

// Key values without quotes where nothing in them could be taken for their end, as the library hands
// positions out that came over a connection. These have all values in quotes.
std::string unquoted(const std::string& path) {
    static const std::regex plain(R"re(="([^",\]\\]*)"(?=[,\]]))re");
    return std::regex_replace(path, plain, "=$1");
}

int locate(bool_t old_flag, const char* path, xmlNode** position) {
    (void)serve(PELMTEST_LOCATED, query_line(old_flag, path), [&] {
        const unique_nodes found = serving->trees.locate(tree_for(old_flag), data_path(path));
        const unique_node unquoted_ones = new_element("position");
        for (const xmlNode* node = found.get(); node != nullptr; node = node->next)
            add_element(unquoted_ones.get(), local_name(node).c_str(), unquoted(text_of(node)));
        *position = copy_nodes(unquoted_ones->children).release();
    });
    return may_ask() ? 0 : -1;
}

int push(const char* path, xmlNode* data) {
    const bool done = serve(PELMTEST_PUSHED, path + (" " + compact(data)), [&] {
        const data_path where(path);
        tree changed = serving->trees.current;
        changed.set(where, as_received(data));
        serving->trees.keys.learn(where);
        serving->trees.keys.learn(changed);
        serving->trees.current = std::move(changed);
    });
    return done ? 0 : -1;
}

int config_deployment(const char* path, int oper, xmlNode* data) {
    const std::string word = oper == 0 ? "add" : oper == 1 ? "delete" : "update";
    const bool done = serve(PELMTEST_DEPLOYED, word + " " + path + " " + compact(data), [&] {
        serving->trees.deploy(word, data_path(path), as_received(data));
    });
    return done ? 0 : -1;
}

int save_deployment() {
    return serve(PELMTEST_DEPLOYED, "save", [] { serving->trees.save_deployment(); }) ? 0 : -1;
}

int copy_running_to_deployment(int override) {
    const bool replace = override == 1;
    const bool done = serve(PELMTEST_DEPLOYED, replace ? "override" : "copy",
                            [=] { serving->trees.copy_to_deployment(replace); });
    return done ? 0 : -1;
}

// The library records errors itself where there are no hooks: so there are none for a moment.
void error(int err_code, const char* err_msg) {
    conf_plugin_data* const entry = get_plugin_from_hash();
    pelmd_plugin_callback_t* const hooks = entry->pelmd_hooks;
    entry->pelmd_hooks = nullptr;
    econf_plugin_error(err_code, err_msg);
    entry->pelmd_hooks = hooks;
}

// Outside a daemon there is nobody to take it.
int reply(int session_id, xmlNode* rpc, xmlNode* data) {
    (void)serve(PELMTEST_REPLIED,
                std::to_string(session_id) + " " + compact(rpc) + " " + compact(data), [] {});
    return -1;
}

pelmd_plugin_callback_t hooks{
    locate, pull, push, config_deployment, save_deployment, copy_running_to_deployment,
    error,  reply};

} // namespace

requests::~requests() {
    if (serving == this)
        serving = nullptr;
}

void requests::install_hooks() {
    const pelmd_plugin_callback_t* const present = get_plugin_hooks();
    if (present != nullptr && present->conf_plugin_pull != pull)
        throw problem("This process has the hooks of another daemon.");
    if (installed != nullptr) // which a child finds here
        get_plugin_from_hash()->pelmd_hooks = installed;
    else if (conf_plugin_init_api(&hooks) < 0)
        throw std::bad_alloc();
    installed = get_plugin_hooks();
    serving = this;
}

void requests::forget() {
    for (auto& lines : seen_)
        lines.clear();
}

const std::string* requests::seen(pelmtest_event_t kind, std::size_t index) const {
    const auto& lines = seen_.at(kind);
    return index < lines.size() ? &lines[index] : nullptr;
}

} // namespace pelmtest
