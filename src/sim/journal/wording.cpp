#include "journal/wording.h"

#include "model/operation.h"
#include "model/xml.h"

#include <cstdio>

namespace pelmsim {
namespace {

std::string subject_of(const std::string& method, const xmlNode* params) {
    std::string subject = method;
    for (const char* name : {"plugin-name", "path", "oper-type"})
        if (const std::string text = child_text(params, name); !text.empty())
            subject += " " + text;
    for (const char* name : {"old", "with-cfgr", "with-smooth"})
        if (find_child(params, name) != nullptr)
            subject += " (" + std::string(name) + ")";
    return subject;
}

} // namespace

std::string subject_of(const event& what) {
    if (what.who.is == role::agent)
        return what.method.empty() ? "empty rpc" : what.method;
    const bool has_params = what.body != nullptr; // of a recording that was changed, maybe not
    if (what.way == direction::from_peer && has_params)
        return subject_of(what.method, what.body);
    return (what.called.empty() ? what.method : what.called) +
           (what.path.empty() ? "" : " " + what.path) +
           (what.operation ? " " + oper_text(*what.operation) : "");
}

std::string defect_of(const event& what) {
    switch (what.why) {
    case cause::garbage:
        return std::to_string(what.count) + " bytes that begin no frame";
    case cause::no_xml:
        return "a frame of " + std::to_string(what.count) + " bytes that is no well-formed XML" +
               (what.text.empty() ? "" : ": " + what.text);
    case cause::excess:
        return "a frame of " + std::to_string(what.count) + " bytes with " + what.text;
    case cause::no_request:
        return "<" + what.text + "> where a request was expected";
    case cause::no_parameters:
        return "<" + what.text + "> without a method and params";
    default:
        return what.text;
    }
}

std::string fault_of(const event& what) {
    return what.text + ": " + what.frame + (what.frame == "answer" ? " to " : " ") + what.method;
}

std::string time_in_words(moment::duration time) {
    const double ms = std::chrono::duration<double, std::milli>(time).count();
    char text[32];
    (void)std::snprintf(text, sizeof text, ms < 999.5 ? "%.0f ms" : "%.1f s",
                        ms < 999.5 ? ms : ms / 1000);
    return text;
}

} // namespace pelmsim
