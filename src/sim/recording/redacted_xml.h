// XML without what is not to be in a recording. Where an element stands in the configuration, what
// it holds is left out if it stands at a path of the secrets, and stays otherwise, but for texts
// with a known value in them. Where nobody can say what a text means, it is left out.
#pragma once

#include "model/xml.h"
#include "recording/secrets.h"

#include <algorithm>
#include <iterator>

namespace pelmsim {

template <std::size_t count>
bool is_among(const char* const (&names)[count], const std::string& name) {
    return std::ranges::find(names, name) != std::end(names);
}

// Whether a text is a word of the protocol or of pelmsim's own; a number will not do.
bool is_own_word(const std::string& text);

bool is_number(const std::string& text);

class xml_redactor {
public:
    explicit xml_redactor(secrets& known) : known_(known) {}

    // All take the children of the element, and learn what they leave out.

    // They stand at that path, or are the content of what stands there.
    void redact_placed(xmlNode* parent, const std::string& path);

    // Nobody knows where they stand.
    void redact_unplaced(xmlNode* parent);

    // They are the parameters of a request, from a plugin or to one.
    void redact_params(xmlNode* params);

    // They are the result of that request; from a plugin or for one.
    void redact_result(xmlNode* result, const std::string& method, const std::string& path);

    // It is a request or an answer as a frame holds it; that which it answers is given, if it is
    // known.
    void redact_message(xmlNode* message, const std::string& method, const std::string& path);

private:
    // A path of the secrets, and the step of it that an element may be.
    struct candidate {
        const data_path* path;
        std::size_t step;
    };
    using candidates = std::vector<candidate>;

    void redact_children(xmlNode* parent, const candidates& above, bool are_placed);
    void redact_element(xmlNode* element, const candidates& above, bool is_placed);
    void redact_texts(xmlNode* parent, bool are_placed);
    void redact_attributes(xmlNode* element, bool is_placed);
    void redact_name(const xmlChar*& name);
    void replace_text(xmlNode* element, const std::string& text);
    void redact_field(xmlNode* field);
    void hide(xmlNode* element);
    void learn_all(const xmlNode* element);
    candidates any_step() const;
    candidates long_ends() const;

    secrets& known_;
};

} // namespace pelmsim
