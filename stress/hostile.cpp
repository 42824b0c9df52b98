#include "scenarios.h"

#include "check.h"
#include "conf_plugin.h"
#include "daemon.h"
#include "plugin.h"
#include "support/peer.h"

#include <cstdio>
#include <random>
#include <string>

namespace stress {
namespace {

using std::string;

string times(int count, const string& text) {
    string result;
    for (int i = 0; i < count; ++i)
        result += text;
    return result;
}

string nested(int depth) { return times(depth, "<a>") + times(depth, "</a>"); }

string operate_with(const string& info) {
    return request_text("publish",
                        "<type>operate</type><callback>9</callback><info>" + info + "</info>", 7);
}

void garbage(line& to) {
    std::mt19937 random(3);
    for (int i = 0; i < 50; ++i) {
        string bytes(random() % 5000, '\0');
        for (char& byte : bytes)
            byte = static_cast<char>(random());
        to.send(bytes);
    }
}

void lengths_beyond_the_limit(line& to) {
    for (const std::uint32_t length :
         {0xFFFFFFFFu, 0x80000000u, 0x7FFFFFFFu, CONF_MSG_MAX_LENGTH + 1u, 0xFFFFFFF4u})
        to.send(header_of(length) + "<a/>");
}

void byte_by_byte(line& to) {
    for (const char byte :
         request_text("nonsense", "", 6) + frame_of("<reply><result/><id>77</id></reply>"))
        to.send(string(1, byte));
}

void marks_without_frames(line& to) { to.send(times(200000, header_of(0).substr(0, 4))); }
void marks_nearly(line& to) { to.send(times(500000, "\xFF\xBA\xDC")); }
void empty_frames(line& to) { to.send(times(100000, header_of(0))); }
void answers_to_nobody(line& to) {
    to.send(times(20000, frame_of("<reply><result/><id>9</id></reply>")));
}

void nested_deeply(line& to) {
    for (const int depth : {254, 255, 256, 257, 100000}) {
        to.send(frame_of(nested(depth)));
        to.send(operate_with(nested(depth)));
    }
}

void entities(line& to) {
    string declared = "<!ENTITY a0 '" + string(1000, 'l') + "'>";
    for (int i = 1; i < 12; ++i)
        declared += "<!ENTITY a" + std::to_string(i) + " '" +
                    times(20, "&a" + std::to_string(i - 1) + ";") + "'>";
    const string document = "<!DOCTYPE rpc [" + declared + "]>";
    for (const char* use :
         {"<rpc><method>&a11;</method><params>&a11;</params><id>1</id></rpc>", "<rpc x='&a11;'/>"})
        to.send(frame_of(document + use));
    to.send(frame_of("<!DOCTYPE rpc [<!ENTITY a '&b;'><!ENTITY b '&a;'>]><rpc>&a;</rpc>"));
    to.send(frame_of("<!DOCTYPE rpc [<!ENTITY a SYSTEM 'file:///etc/passwd'>]><rpc><method>&a;"
                     "</method><params>&a;</params></rpc>"));
}

void many_attributes(line& to) {
    string element = "<rpc";
    for (int i = 0; i < 2000; ++i)
        element += " a" + std::to_string(i) + "=''";
    to.send(frame_of(element + "/>"));
}

void texts_that_are_none(line& to) {
    for (const string& body :
         {string("<rpc>\xFF\xFE</rpc>"), string("\xFF\xFE<\0r\0", 6), string("<rpc>\0</rpc>", 12),
          string("<?xml version='1.0' encoding='UTF-7'?><rpc/>"), string(" "),
          string("<rpc>\xED\xA0\x80</rpc>"), string("<rpc>&#0;</rpc>"), string("<:/>"),
          string("<rpc><![CDATA[x]]><?p q?><!--c-->&u;</rpc>"), string("<rpc/>"),
          string("<reply/>"), string("<rpc><method/><params/><id/></rpc>")})
        to.send(frame_of(body));
}

string any_element(std::mt19937& random, int depth) {
    static const char* const names[] = {"type", "session-id", "callback", "info",
                                        "path", "filter",     "oper-type"};
    static const char* const values[] = {
        "",  "-1",   "0",    "2",      "4",       "99",     "4294967297", "18446744073709551616",
        "x", "%s%n", "&lt;", "config", "operate", "status", "/c"};
    string result;
    for (auto left = random() % 6; left > 0; --left) {
        const string name = names[random() % std::size(names)];
        const bool is_leaf = depth == 0 || random() % 3 != 0;
        result +=
            "<" + name + ">" +
            (is_leaf ? values[random() % std::size(values)] : any_element(random, depth - 1)) +
            "</" + name + ">";
    }
    return result;
}

// None has an id, so none is answered; and none reaches a callback that would ask the daemon.
void odd_requests(line& to) {
    static const char* const methods[] = {"publish", "subscribe", "register", "", "%n%s", "x"};
    std::mt19937 random(3);
    for (int i = 0; i < 3000; ++i) {
        const char* const method = methods[random() % std::size(methods)];
        to.send(request_text(method, any_element(random, 2), 0));
    }
}

// A frame whose body never comes takes in all that is sent behind it.
void a_body_that_never_comes(line& to) {
    to.send(header_of(CONF_MSG_MAX_LENGTH) + string(1 << 20, 'x'));
}
void half_a_header(line& to) { to.send(header_of(40).substr(0, 7)); }

constexpr long most_kib = 8192; // that the plugin still holds behind an attack

struct attack {
    const char* name;
    void (*carry_out)(line& to);
    bool is_served_on = true; // on this connection; otherwise after the next registration
};

constexpr attack attacks[] = {
    {"garbage", garbage},
    {"lengths beyond the limit", lengths_beyond_the_limit},
    {"byte by byte", byte_by_byte},
    {"marks without frames", marks_without_frames},
    {"marks, nearly", marks_nearly},
    {"empty frames", empty_frames},
    {"answers to nobody", answers_to_nobody},
    {"nested deeply", nested_deeply},
    {"entities", entities},
    {"many attributes", many_attributes},
    {"texts that are none", texts_that_are_none},
    {"odd requests", odd_requests},
    {"a body that never comes", a_body_that_never_comes, false},
    {"half a header", half_a_header, false},
};

void try_attack(const attack& one, const service& at, const plugin_process& plugin) {
    {
        line to(at);
        let_register(to);
        one.carry_out(to);
        if (one.is_served_on)
            to.request_amid("subscribe", "<callback>2</callback><path>/s</path>");
    }
    line again(at);
    live_whole_life(again);
    const long kib = plugin.private_kib();
    std::printf("%-26s %s, %ld KiB private\n", one.name,
                one.is_served_on ? "served on" : "registers again", kib);
    (void)std::fflush(stdout);
    require(kib <= most_kib || has_foreign_memory, "an attack leaves little behind");
}

} // namespace

void hostile() {
    plugin_process plugin;
    {
        const service at;
        for (const attack& one : attacks)
            try_attack(one, at, plugin);
    }
    require(plugin.has_ended_well(), "the plugin has seen nothing that cannot be");
}

} // namespace stress
