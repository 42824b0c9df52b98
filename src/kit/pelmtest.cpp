#include "pelmtest.h"

#include "kit.h"

#include "model/problem.h"
#include "model/xml.h"

using namespace pelmtest;
using pelmsim::data_path;

namespace {

std::unique_ptr<kit> running;
result last;
std::string last_xml;
std::string last_said;
std::string shown_tree;

pelmtest_outcome_t keep(result which) {
    last = std::move(which);
    last_xml = pelmsim::compact(last.data);
    last_said = describe(last);
    return last.outcome;
}

// Nothing is thrown at those who call from C: what is wrong is the outcome.
template <class Action> pelmtest_outcome_t attempt(Action action) {
    try {
        return keep(action());
    } catch (const std::exception& why) {
        return keep({PELMTEST_MISTAKE, 0, why.what()});
    }
}

const char* or_throw(const char* text, const char* what) {
    if (text == nullptr)
        throw pelmsim::problem(std::string("There is no ") + what + ": it is null.");
    return text;
}

data_path as_path(const char* text) { return data_path(or_throw(text, "path")); }

const char* or_empty(const char* text) { return text == nullptr ? "" : text; }

pelmtest_outcome_t begin(api version, const econf_plugin_subpub_info_t* tables) {
    running.reset(); // before the next takes its place
    return attempt([&] {
        if (tables == nullptr)
            throw pelmsim::problem("There are no tables: they are null.");
        running = std::make_unique<kit>(version, *tables);
        return result{};
    });
}

template <class Action> pelmtest_outcome_t request(Action action) {
    return attempt([&] {
        if (running == nullptr)
            throw pelmsim::problem("No test has begun: pelmtest_begin() comes first.");
        running->forget();
        return action(*running);
    });
}

int recovery_bit(int start_mode) {
    if (start_mode != ACTIVATE_WITH_CFGR && start_mode != ACTIVATE_WITH_SMOOTH)
        throw pelmsim::problem("That is no mode to recover in: " + std::to_string(start_mode) +
                               ".");
    return start_mode == ACTIVATE_WITH_CFGR ? CONFIG_OP_CFGR : CONFIG_OP_SMOOTH;
}

const pelmsim::tree& tree_of(const pelmsim::store& trees, pelmtest_tree_t which) {
    switch (which) {
    case PELMTEST_OLD:
        return trees.old;
    case PELMTEST_DEPLOYMENT:
        return trees.deployment;
    default:
        return trees.current;
    }
}

} // namespace

pelmtest_outcome_t pelmtest_begin(const econf_plugin_subpub_info_t* tables) {
    return begin(api::present, tables);
}

// The library itself registers older tables as they stand.
pelmtest_outcome_t pelmtest_begin_legacy(const conf_plugin_info_t* tables) {
    return begin(api::older, reinterpret_cast<const econf_plugin_subpub_info_t*>(tables));
}

void pelmtest_end(void) {
    running.reset();
    (void)keep({});
}

pelmtest_outcome_t pelmtest_given(const char* path, const char* xml) {
    return request([&](kit& with) {
        with.give(as_path(path), or_throw(xml, "XML"));
        return result{};
    });
}

pelmtest_outcome_t pelmtest_recover(int start_mode) {
    return request([=](kit& with) { return with.recover(recovery_bit(start_mode)); });
}

pelmtest_outcome_t pelmtest_set(const char* path, const char* xml) {
    return request([&](kit& with) { return with.set(as_path(path), or_throw(xml, "XML")); });
}

pelmtest_outcome_t pelmtest_add(const char* path, const char* xml) {
    return request([&](kit& with) { return with.add(as_path(path), or_throw(xml, "XML")); });
}

pelmtest_outcome_t pelmtest_delete(const char* path) {
    return request([&](kit& with) { return with.remove(as_path(path)); });
}

pelmtest_outcome_t pelmtest_publish(const char* path, int oper) {
    return request([&](kit& with) { return with.publish(as_path(path), oper); });
}

pelmtest_outcome_t pelmtest_status(const char* path, const char* filter) {
    return request([&](kit& with) { return with.status(as_path(path), or_empty(filter)); });
}

pelmtest_outcome_t pelmtest_operate(const char* path, const char* input) {
    return request([&](kit& with) { return with.operate(as_path(path), or_empty(input)); });
}

pelmtest_outcome_t pelmtest_kick_off(void) {
    return request([](kit& with) { return with.kick_off(); });
}

int pelmtest_code(void) { return last.code; }

const char* pelmtest_text(void) { return last.text.c_str(); }

const char* pelmtest_said(void) { return last_said.c_str(); }

const xmlNode* pelmtest_output(void) { return last.data; }

const char* pelmtest_xml(void) { return last_xml.c_str(); }

const char* pelmtest_tree(pelmtest_tree_t which, const char* path) {
    shown_tree.clear();
    try {
        if (running != nullptr)
            shown_tree =
                pelmsim::compact(tree_of(running->asked().trees, which).copy(as_path(path)).get());
    } catch (const std::exception&) { // nothing stands there
    }
    return shown_tree.c_str();
}

const char* pelmtest_seen(pelmtest_event_t kind, size_t index) {
    try {
        if (running == nullptr)
            return nullptr;
        running->note_notifications();
        const std::string* const line = running->asked().seen(kind, index);
        return line == nullptr ? nullptr : line->c_str();
    } catch (const std::exception&) { // a kind that is none
        return nullptr;
    }
}
