#include "recording/redacted_xml.h"

#include "model/problem.h"

#include <optional>

namespace pelmsim {
namespace {

constexpr std::size_t longest_number = 11; // of 32 bits, with its sign

void set_text(xmlNode* element, const std::string& text) {
    xmlNodeSetContent(element, nullptr);
    xmlNodeAddContent(element, BAD_CAST text.c_str());
}

std::string_view text_in(const xmlChar* text) {
    return text == nullptr ? "" : reinterpret_cast<const char*>(text);
}

void drop(xmlNode* node) {
    xmlUnlinkNode(node);
    xmlFreeNode(node);
}

bool is_text(const xmlNode* node) {
    return node->type == XML_TEXT_NODE || node->type == XML_CDATA_SECTION_NODE;
}

std::string direct_text(const xmlNode* parent) {
    std::string text;
    for (const xmlNode* node = parent->children; node != nullptr; node = node->next)
        if (is_text(node))
            text += text_in(node->content);
    return text;
}

std::string value_of(const xmlAttr* attribute) {
    xmlChar* const text = xmlNodeListGetString(attribute->doc, attribute->children, 1);
    std::string value(text_in(text));
    xmlFree(text);
    return value;
}

// Where there is more than one text, readers may differ about which of it counts.
bool may_hold(const xmlNode* element, const std::string& value) {
    const xmlNode* const first = element->children;
    const bool is_plain = first == nullptr || (is_text(first) && first->next == nullptr);
    return !is_plain || direct_text(element) == value;
}

bool may_have_key(const xmlNode* element, const path_key& key) {
    const xmlNode* const found = key.name == "." ? element : find_child(element, key.name.c_str());
    return found == nullptr || may_hold(found, key.value);
}

bool may_be(const path_step& step, const xmlNode* element) {
    return local_name(element) == step.name && std::ranges::all_of(step.keys, [&](const auto& key) {
               return may_have_key(element, key);
           });
}

} // namespace

bool is_own_word(const std::string& text) {
    static constexpr const char* words[] = {
        "",        "add",       "delete",      "update",   "config",          "operate", "ok",
        "nothing", "cancelled", "interrupted", "time-out", "hang-up",         "save",    "copy",
        "old",     "override",  "on",          "off",      "pelmsim hung up", "usual"};
    return is_among(words, text);
}

bool is_number(const std::string& text) {
    return text.size() <= longest_number &&
           text.find_first_not_of("-0123456789") == std::string::npos;
}

xml_redactor::candidates xml_redactor::any_step() const {
    candidates all;
    for (const data_path& each : known_.paths())
        for (std::size_t step = 0; step < each.steps.size(); ++step)
            all.push_back({&each, step});
    return all;
}

// Inside of data that was not expected there, two steps of a path are taken for the path, but not
// its last one alone, which may be any "name".
xml_redactor::candidates xml_redactor::long_ends() const {
    candidates all;
    for (const data_path& each : known_.paths())
        for (std::size_t step = 0;
             step + std::min<std::size_t>(each.steps.size(), 2) <= each.steps.size(); ++step)
            if (!each.steps.empty())
                all.push_back({&each, step});
    return all;
}

void xml_redactor::redact_placed(xmlNode* parent, const std::string& path) {
    std::optional<data_path> where;
    try {
        where.emplace(path);
    } catch (const problem&) {
        return redact_unplaced(parent);
    }
    for (path_step& step : where->steps)
        step.prefix.clear();
    redact_attributes(parent, false);
    if (known_.are_at(*where))
        hide(parent);
    else
        redact_children(parent, any_step(), true);
}

void xml_redactor::redact_unplaced(xmlNode* parent) {
    redact_attributes(parent, false);
    redact_children(parent, any_step(), false);
}

void xml_redactor::redact_children(xmlNode* parent, const candidates& above, bool are_placed) {
    for (xmlNode* const each : child_elements(parent))
        redact_element(each, above, are_placed);
    redact_texts(parent, are_placed);
}

void xml_redactor::redact_element(xmlNode* element, const candidates& above, bool is_placed) {
    candidates below = long_ends();
    for (const auto& [path, step] : above)
        if (may_be(path->steps[step], element)) {
            if (step + 1 == path->steps.size())
                return hide(element);
            below.push_back({path, step + 1});
        }
    if (known_.stand_in(text_in(element->name)))
        xmlNodeSetName(element, BAD_CAST "redacted");
    redact_attributes(element, is_placed);
    redact_children(element, below, is_placed);
}

// Comments and the like are nothing that a path would name.
void xml_redactor::redact_texts(xmlNode* parent, bool are_placed) {
    const std::string text = direct_text(parent);
    const bool is_kept = text.empty() || (are_placed && !known_.stand_in(text));
    for (xmlNode* node = parent->children; node != nullptr;) {
        xmlNode* const next = node->next;
        if (node->type != XML_ELEMENT_NODE && !(is_text(node) && is_kept))
            drop(node);
        node = next;
    }
    if (!is_kept)
        xmlNodeAddContent(parent, BAD_CAST redaction_mark);
}

void xml_redactor::redact_attributes(xmlNode* element, bool is_placed) {
    for (xmlAttr* each = element->properties; each != nullptr;) {
        xmlAttr* const next = each->next;
        if (!is_placed || known_.stand_in(value_of(each)) || known_.stand_in(text_in(each->name)))
            xmlRemoveProp(each);
        each = next;
    }
    for (xmlNs* each = element->nsDef; each != nullptr; each = each->next) {
        redact_name(each->href);
        redact_name(each->prefix);
    }
}

void xml_redactor::redact_name(const xmlChar*& name) {
    if (name == nullptr || !known_.stand_in(text_in(name)))
        return;
    xmlFree(const_cast<xmlChar*>(name));
    name = xmlStrdup(BAD_CAST "redacted");
}

void xml_redactor::learn_all(const xmlNode* element) {
    known_.learn(direct_text(element));
    for (const xmlAttr* each = element->properties; each != nullptr; each = each->next)
        known_.learn(value_of(each));
    for (const xmlNode* const each : child_elements(element))
        learn_all(each);
}

void xml_redactor::hide(xmlNode* element) {
    learn_all(element);
    const bool is_empty = element->children == nullptr;
    while (element->properties != nullptr)
        xmlRemoveProp(element->properties);
    set_text(element, is_empty ? "" : redaction_mark);
}

void xml_redactor::replace_text(xmlNode* element, const std::string& text) {
    redact_attributes(element, false);
    set_text(element, text);
}

// A leaf that holds a number or a word.
void xml_redactor::redact_field(xmlNode* field) {
    const std::string text = direct_text(field);
    const bool is_plain = is_number(text) || is_own_word(text);
    replace_text(field, is_plain ? known_.without(text) : redaction_mark);
}

void xml_redactor::redact_params(xmlNode* params) {
    static constexpr const char* fields[] = {"oper-type", "more-flag", "priority",   "callback",
                                             "type",      "old",       "with-cfgr",  "session-id",
                                             "override",  "id",        "with-smooth"};
    static constexpr const char* parts[] = {"config-subscribe", "status-publish",
                                            "operate-subscribe", "subscriber", "publisher"};
    const std::string path = child_text(params, "path");
    const bool is_operation = child_text(params, "type") == "operate";
    for (xmlNode* const each : child_elements(params)) {
        const std::string name = local_name(each);
        if (name == "path")
            replace_text(each, known_.without_values(direct_text(each)));
        else if (name == "plugin-name")
            replace_text(each, known_.without(direct_text(each)));
        else if (name == "data")
            redact_placed(each, path);
        else if (is_among(parts, name) || (name == "info" && !is_operation))
            redact_params(each);
        else if (is_among(fields, name))
            redact_field(each);
        else
            redact_unplaced(each);
    }
    redact_attributes(params, false);
    redact_texts(params, false);
}

void xml_redactor::redact_result(xmlNode* result, const std::string& method,
                                 const std::string& path) {
    const bool has_data = method == "pull" || method == "subscribe";
    for (xmlNode* const each : child_elements(result)) {
        const std::string name = local_name(each);
        if (has_data && name == "data")
            redact_placed(each, path);
        else if (method == "locate" || (has_data && name == "path"))
            replace_text(each, known_.without_values(direct_text(each)));
        else
            redact_unplaced(each);
    }
    redact_attributes(result, false);
    redact_texts(result, false);
}

void xml_redactor::redact_message(xmlNode* message, const std::string& method,
                                  const std::string& path) {
    for (xmlNode* const each : child_elements(message)) {
        const std::string name = local_name(each);
        if (name == "method")
            replace_text(each, known_.without(direct_text(each)));
        else if (name == "params")
            redact_params(each);
        else if (name == "result")
            redact_result(each, method, path);
        else if (name == "id")
            redact_field(each);
        else
            redact_unplaced(each); // such as an error, whose code stands beside it
    }
    redact_attributes(message, false);
    redact_texts(message, false);
}

} // namespace pelmsim
