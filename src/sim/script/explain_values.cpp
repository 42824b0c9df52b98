#include "script/explain_values.h"

#include "journal/escaped.h"
#include "model/operation.h"
#include "model/problem.h"
#include "model/tree.h"
#include "script/listing.h"

#include <charconv>
#include <conf_api.h>
#include <cstdio>
#include <cstring>
#include <optional>
#include <span>
#include <sys/epoll.h>

namespace pelmsim {
namespace {

struct named_bit {
    unsigned bit;
    const char* name;
    const char* meaning;
};

constexpr named_bit events[] = {
    {EPOLLIN, "EPOLLIN", "something can be read, the end included"},
    {EPOLLPRI, "EPOLLPRI", "something urgent can be read"},
    {EPOLLOUT, "EPOLLOUT", "something can be written"},
    {EPOLLERR, "EPOLLERR", "the connection has failed"},
    {EPOLLHUP, "EPOLLHUP", "the connection is closed in both directions"},
    {EPOLLRDHUP, "EPOLLRDHUP", "the other side writes no more: it has hung up"},
};

constexpr named_bit operations[] = {
    {CONFIG_OP_ADD, "add", "it is new"},
    {CONFIG_OP_RM, "rm", "it is gone"},
    {CONFIG_OP_MOD, "mod", "something in it is different"},
    {CONFIG_OP_CHAIN, "chain", "the daemon's own; pelmsim sends it by publish alone"},
    {CONFIG_OP_MOVE, "move", "its place among its neighbours; pelmsim sends it by publish alone"},
    {CONFIG_OP_CFGR, "cfgr", "part of a recovery that ACTIVATE_WITH_CFGR has asked for"},
    {CONFIG_OP_ROLLBACK, "rollback", "takes back a change that another plugin refused"},
    {CONFIG_OP_SMOOTH, "smooth", "part of a recovery that ACTIVATE_WITH_SMOOTH has asked for"},
};

std::string hexadecimal(unsigned number) {
    char text[16];
    (void)std::snprintf(text, sizeof text, "0x%x", number);
    return text;
}

// A line for each bit that is set; nothing when one of them is none of these.
std::string explain_bits(const char* title, unsigned number, std::span<const named_bit> known) {
    if (number == 0)
        return {};
    std::string lines = title + std::string("\n");
    for (const named_bit& each : known) {
        if ((number & each.bit) != 0)
            lines +=
                columns({{"", 4}, {hexadecimal(each.bit), 10}, {each.name, 12}, {each.meaning, 1}});
        number &= ~each.bit;
    }
    return number == 0 ? lines : "";
}

std::optional<unsigned> number_in(const std::string& what) {
    const bool is_hexadecimal = what.starts_with("0x");
    const char* const begin = what.data() + (is_hexadecimal ? 2 : 0);
    const char* const end = what.data() + what.size();
    unsigned number = 0;
    const auto [stop, error] = std::from_chars(begin, end, number, is_hexadecimal ? 16 : 10);
    if (error != std::errc{} || stop != end)
        return std::nullopt;
    return number;
}

std::string explain_error(unsigned number) {
    const std::string reason = std::strerror(static_cast<int>(number));
    if (number == 0 || reason.starts_with("Unknown error"))
        return {};
    return "the system's error: " + reason + "\n";
}

// One element below the other; each has the prefix of the one above unless it brings its own.
unique_node prefixed(const data_path& path) {
    unique_node top;
    xmlNode* at = nullptr;
    std::string prefix;
    for (const path_step& step : path.steps) {
        const bool is_new = !step.prefix.empty() && step.prefix + ":" != prefix;
        prefix = is_new ? step.prefix + ":" : prefix;
        unique_node made = new_element((prefix + step.name).c_str());
        xmlNode* const below = made.get();
        if (is_new)
            xmlNewProp(below, BAD_CAST("xmlns:" + step.prefix).c_str(),
                       BAD_CAST("urn:example:" + step.prefix).c_str());
        for (const path_key& key : step.keys)
            if (key.name == ".")
                xmlNodeAddContent(below, BAD_CAST key.value.c_str());
            else
                add_element(below, (prefix + key.name).c_str(), key.value);
        if (at == nullptr)
            top = std::move(made);
        else
            attach(at, std::move(made));
        at = below;
    }
    return top;
}

} // namespace

std::string explain_number(const std::string& what) {
    const auto number = number_in(what);
    if (!number)
        return {};
    return hexadecimal(*number) + " is " + std::to_string(*number) + "\n" +
           explain_bits("the events of a connection:", *number, events) +
           explain_bits("the operations of a publication:", *number, operations) +
           explain_error(*number) +
           "the code of an answer: the plugin's own, as econf_plugin_error() or the callback's "
           "return gave it";
}

std::string explain_operation(const std::string& what) {
    int bits = 0;
    for (std::size_t begin = 0; begin <= what.size();) {
        const std::size_t end = std::min(what.find('|', begin), what.size());
        try {
            bits |= oper_bit(what.substr(begin, end - begin));
        } catch (const problem&) {
            return {};
        }
        begin = end + 1;
    }
    const std::string title = what + " is " + std::to_string(bits);
    return bits == 0 ? title : explain_bits(title.c_str(), static_cast<unsigned>(bits), operations);
}

std::string explain_path(const std::string& what) {
    if (!what.starts_with("/") || what == "/")
        return {};
    const data_path path(what);
    tree plain;
    plain.set(path, {});
    std::string lines =
        path.text() + " stands in a file, or in XML, like this:\n" + plain.document();
    if (const std::string other = pretty_node(prefixed(path).get()); other != plain.text())
        lines += "or with its namespace, whose prefix is to be that of the path:\n" + other + "\n";
    return lines;
}

} // namespace pelmsim
