#include "script/answer_check.h"

#include "model/path.h"
#include "model/xml.h"
#include "wire/process_state.h"

#include <cstdio>

namespace pelmsim {
namespace {

constexpr std::chrono::seconds long_time{1};

std::string subject_of(const event& request) {
    return (request.called.empty() ? request.method : request.called) +
           (request.path.empty() ? "" : " " + request.path);
}

// The same for all instances of a list.
std::string path_of(const event& request) { return data_path(request.path).names(); }

// What the library says of a slot that holds none. A script may send an index that was never given.
std::optional<warning> has_no_callback(const event& request) {
    const outcome& its = *request.result;
    if (request.path.empty() || its.result != verdict::error || its.code != -1 ||
        its.text != "Cann't find the callback function.")
        return std::nullopt;
    return warning{cause::no_callback, path_of(request),
                   "the callback for " + subject_of(request) +
                       " is null: give one, or leave its row out"};
}

// A status holds data, and an operation that has nothing to say <ok/>. An answer without either is
// what the library makes of an error whose code is 0. Of a change it is the usual answer.
std::optional<warning> has_failed_with_code_0(const event& request) {
    if (request.called.empty() || !request.result->is_ok() || request.result->data != nullptr)
        return std::nullopt;
    return counted_as_success(request);
}

std::string name_of(const xmlNode* node) {
    return node->type == XML_ELEMENT_NODE ? "<" + local_name(node) + ">"
                                          : "\"" + compact_node(node) + "\"";
}

std::optional<warning> is_no_element(const event& request) {
    const xmlNode* const first = request.result->data.get();
    if (request.called != "status" || first == nullptr)
        return std::nullopt;
    const xmlNode* const data = find_child(first->parent, "data");
    const xmlNode* const node = data == nullptr ? nullptr : data->children;
    if (node == nullptr || (node->next == nullptr && node->type == XML_ELEMENT_NODE))
        return std::nullopt;
    std::string names;
    for (const xmlNode* each = node; each != nullptr && names.size() < 100; each = each->next)
        names += (names.empty() ? "" : ", ") + name_of(each);
    return warning{cause::several_nodes, path_of(request),
                   subject_of(request) + " is answered with " + names +
                       " where one element belongs: hand over one that holds it all"};
}

std::optional<warning> was_late(const event& request) {
    const bool is_answered = request.result->is_ok() || request.result->result == verdict::error;
    if (!is_answered || !request.took || *request.took <= long_time ||
        read_process(request.who.pid).tracer != 0)
        return std::nullopt;
    char seconds[32];
    (void)std::snprintf(seconds, sizeof seconds, "%.1f s", request.took->count() / 1000);
    return warning{cause::slow, "",
                   subject_of(request) + " was answered after " + seconds +
                       ", and the daemon waits meanwhile: answer at once, and do afterwards what "
                       "takes long"};
}

constexpr std::optional<warning> (*checks[])(const event&) = {
    has_no_callback, has_failed_with_code_0, is_no_element, was_late};

} // namespace

warning counted_as_success(const event& request) {
    return {cause::code_0, path_of(request),
            subject_of(request) +
                " failed with an error whose code is 0, and so counts as a success: give "
                "econf_plugin_error() another code"};
}

std::optional<warning> check_answer(const event& request) {
    for (const auto check : checks)
        if (auto found = check(request))
            return found;
    return std::nullopt;
}

} // namespace pelmsim
