// What happens on the desk, as typed records: nobody makes a sentence of it where it happens.
#pragma once

#include "journal/clock.h"
#include "model/outcome.h"

#include <optional>
#include <string>
#include <sys/types.h>

namespace pelmsim {

enum class role { daemon, plugin, agent, notifier, program };

struct peer {
    role is = role::daemon;
    std::string name = {}; // empty until it has said it
    pid_t pid = 0;
    bool introduced = true; // of plugins: registered; of agents: has a session or a subscription

    // What it is called in lists: "ntp", "agent admin", "pid 812".
    std::string label() const;
};

enum class direction { none, to_peer, from_peer };

enum class event_kind {
    connected,    // a plugin or an agent; who it is, it has yet to say
    asked,        // a request goes out to a plugin; text is its own one that it waits for, or empty
    request,      // has been answered, or never will be: method, path, operation or params, result
    stray_answer, // an answer with an id that nobody waits for
    frame,        // id is its sequence number, count its bytes
    unreadable,   // why, with count or text
    closed,       // a connection: why, with count or text
    refused,      // a connection: text
    waiting,      // new connections have to wait: text
    notification, // text, count of the agents that it went to, body when it can be read
    dropped,      // notifications: the oldest go from now on
    warning,      // of a mistake: why says which, path what it is about, text what to change
    restart,      // of the daemon
    ended,        // a process: code is its status, as from waitpid()
    output,       // of a process: text is one line
    command,      // that is carried out next: text is its line, place where that stands
    outcome,      // of a command: result
    shown,        // what a command had to show: text, in lines
    heading,      // text
    expectation,  // place, text is what was expected, got what came instead, their difference
    explanation,  // text, in lines: why nothing came of a wait
    mistake,      // text: a line at the prompt that is no command
    fault,        // that was planted: text says which, frame, method, id and count what it struck
    result,       // of a command that came as JSON: id, result, or mistake; as an expectation: text
};

enum class cause {
    none,
    garbage,       // count bytes that begin no frame
    no_xml,        // a frame of count bytes; text says what is no XML, if that is known
    no_request,    // text is the name of the element that came instead
    no_parameters, // a request without a method and params; text is its name
    by_peer,       // it hung up
    by_daemon,     // which goes away itself
    unread,        // the peer leaves count bytes unread
    excess,        // a frame of count bytes: text is what there is too much of
    held,          // of all peers it is the one for which most is kept: count bytes
    failure,       // text says what the system said
    fault,         // one that was planted

    // Of warnings.
    empty_path,    // that was registered
    no_slash,      // at its beginning
    path_twice,    // registered
    unknown_path,  // that is nearly one of the configuration's
    no_callback,   // for what was asked
    sigpipe,       // ends the process
    several_nodes, // where one element belongs
    slow,          // answer
    not_allowed,   // by XML, in a frame
    code_0,        // of an error
    loop,          // of registrations
    spin,          // behind a hang-up
    inactive,      // for long, and never was anything else
    child,         // which holds the connection of a plugin
    left_error,    // recorded, but by a callback that succeeds
    unregistered,  // who calls the library
};

// Nodes and outcomes are borrowed: they are there during the call that reports the event.
struct event {
    event_kind kind;
    peer who = {};
    direction way = direction::none;
    std::string method = {};
    std::string called = {}; // a request: what users call it, where the method is another word
    std::string id = {};     // of a result: as JSON
    std::string path = {};
    std::optional<int> operation = {}; // the bits of a publication
    const outcome* result = nullptr;
    const xmlNode* body = nullptr; // of a request from or to a plugin: its params
    cause why = cause::none;
    std::size_t count = 0;
    int code = 0;
    std::string text = {};
    std::string place = {};
    std::string got = {};
    std::string frame = {};      // of a fault: "answer" or "request"
    std::string difference = {}; // of XML, in lines; empty when no two texts of XML are at odds
    bool good = true;
    std::string mistake = {}; // what is wrong with a command
    std::optional<std::chrono::duration<double, std::milli>> took = {};
    wall_time time = {}; // set by the journal
};

// How a process ended: "status 3" or "signal 11 (Segmentation fault)".
std::string describe_status(int status);

} // namespace pelmsim
