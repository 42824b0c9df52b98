#include "conf_plugin/paths.h"

#include "conf_api.h"
#include "conf_plugin/log.h"
#include "support/bounded.h"
#include "support/handle.h"

#include <cstring>

namespace conf {
namespace {

// Writes the standard form of a path, node by node. The last prefix is remembered where it stands in
// the output; the candidate for the next is read from the input.
class path_formatter {
public:
    path_formatter(bool is_schema, char* out) noexcept : is_schema_(is_schema), out_(out) {}

    void format(const char* path) noexcept {
        for (; *path != '\0'; ++path)
            take(path);
        if (length_ > 1 && out_[length_ - 1] == '/')
            --length_;
        out_[length_] = '\0';
    }

private:
    void put(char c) noexcept { out_[length_++] = c; }

    void take(const char* at) noexcept {
        const char c = *at;
        if (c == '[' || c == ']')
            is_key_ = c == '[';
        if (is_key_ || c == ']') {
            if (!is_schema_)
                put(c); // nothing inside a predicate has a meaning
        } else if (c == '/') {
            separator();
        } else if (c == ':') {
            prefix(at);
        } else {
            ordinary(at);
        }
    }

    void separator() noexcept {
        if (node_ != nullptr && !has_prefix_) {
            put(':'); // the first node, without a prefix, is the prefix of the second
            remember_prefix();
            return;
        }
        put('/');
        node_ = nullptr;
    }

    void prefix(const char* at) noexcept {
        if (node_ == nullptr)
            return;
        const auto candidate = static_cast<std::size_t>(at - node_);
        if (has_prefix_ && candidate == prefix_bytes_ &&
            std::memcmp(out_ + prefix_start_, node_, candidate) == 0) {
            length_ = node_start_;
            return;
        }
        put(':');
        remember_prefix();
    }

    void ordinary(const char* at) noexcept {
        if (length_ == 0)
            put('/');
        if (node_ == nullptr) {
            node_ = at;
            node_start_ = length_;
        }
        put(*at);
    }

    // The node's text in the output, up to the ":" just written.
    void remember_prefix() noexcept {
        has_prefix_ = true;
        prefix_start_ = node_start_;
        prefix_bytes_ = length_ - 1 - node_start_;
    }

    const bool is_schema_;
    char* const out_;
    std::size_t length_ = 0;
    bool is_key_ = false;
    const char* node_ = nullptr; // first character of the current node, null between nodes
    std::size_t node_start_ = 0; // where that node begins in the output
    bool has_prefix_ = false;
    std::size_t prefix_start_ = 0; // the last prefix written, in the output
    std::size_t prefix_bytes_ = 0; // 0 for a node of colons only
};

// @return a new string from malloc, or null
char* _format_path(bool is_schema, const char* path) noexcept {
    if (path == nullptr)
        return nullptr;
    // One "/" may be added in front, and the terminator behind.
    unique_string out{static_cast<char*>(std::malloc(std::strlen(path) + 2))};
    if (!out)
        return plugin_failure("Duplicated path %s failed.", path);
    path_formatter{is_schema, out.get()}.format(path);
    return out.release();
}

// Tells whether what has been read so far ends inside double quotes. A quote behind an odd number of
// backslashes does not count.
class quote_state {
public:
    void read(char c) noexcept {
        if (c == '"' && !escaped_)
            inside_ = !inside_;
        escaped_ = c == '\\' && !escaped_;
    }
    bool inside() const noexcept { return inside_; }

private:
    bool inside_ = false;
    bool escaped_ = false;
};

// @return behind a key value whose quotes hold nothing that could be taken for its end, or null
const char* end_of_plain_value(const char* opening) noexcept {
    const char* closing = opening + 1;
    closing += std::strcspn(closing, "\",]\\");
    return *closing == '"' && (closing[1] == ']' || closing[1] == ',') ? closing + 1 : nullptr;
}

// Moves a value to where it is written, without the quotes around it.
char* datastore_value_rm_quotes(char* write, const char* opening, const char* end) noexcept {
    const auto bytes = static_cast<std::size_t>(end - opening) - 2;
    (void)memmove_s(write, bytes, opening + 1, bytes);
    return write + bytes;
}

} // namespace

// Reading runs ahead of writing, so whatever is still to be judged stands as it arrived.
char* datastore_path_rm_quotes(char* src) noexcept {
    if (src == nullptr)
        return nullptr;
    quote_state quotes;
    char* write = src;
    const char* read = src;
    while (*read != '\0') {
        const char c = *read++;
        quotes.read(c);
        *write++ = c;
        if (c != '=' || *read != '"' || quotes.inside())
            continue;
        const char* end = end_of_plain_value(read);
        if (end == nullptr)
            continue;
        write = datastore_value_rm_quotes(write, read, end);
        *write++ = *end;
        read = end + 1; // quotes in pairs, so still outside of them
    }
    const auto freed = static_cast<std::size_t>(read - write);
    wipe(write, freed);
    return src;
}

} // namespace conf

using namespace conf;

char* plugin_path_schema2std(const char* schema_path) { return _format_path(true, schema_path); }

char* plugin_path_data2std(const char* data_path) { return _format_path(false, data_path); }

char* plugin_path_std2db(const char* data_path) {
    char* path = _format_path(false, data_path);
    if (path == nullptr)
        return nullptr;
    if (char* colon = std::strchr(path, ':'))
        *colon = '/';
    return path;
}
