/**
 * @file tree.hpp
 * XML in C++: a tree owns sibling nodes, as the library hands them out and takes them; node and
 * nodes only look. libxml2's own nodes are always within reach by get().
 *
 * Names of elements are to be names in XML, which is not checked. Texts are made fit for XML.
 */
#ifndef PELMCONF_TREE_HPP
#define PELMCONF_TREE_HPP

#include "error.hpp"

#include <cstring>
#include <iterator>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <memory>
#include <new>
#include <type_traits>

namespace pelmconf {
inline namespace PELMCONF_MODE {

namespace detail {

// Lets a unique_ptr free what C has made.
template <auto Free> struct freed_by {
    template <class T> void operator()(T* made) const noexcept { Free(made); }
};

inline xmlNode* children_of(const xmlNode* parent) noexcept {
    return parent == nullptr ? nullptr : parent->children;
}

inline bool is_text(const xmlNode* any) noexcept {
    return any->type == XML_TEXT_NODE || any->type == XML_CDATA_SECTION_NODE;
}

inline const char* chars(const xmlChar* text) noexcept {
    return reinterpret_cast<const char*>(text);
}

} // namespace detail

class nodes;

/** Looks at an element, or at none. Whoever has the tree owns it, and must keep it meanwhile. */
class node {
public:
    /** @param element  or null */
    explicit node(xmlNode* element = nullptr) noexcept : element_(element) {}

    /** @return whether there is an element; one of a range always is */
    explicit operator bool() const noexcept { return element_ != nullptr; }
    /** @return the element; null for none */
    xmlNode* get() const noexcept { return element_; }
    /** @return its name without a prefix, valid as long as the tree; "" for none */
    const char* name() const noexcept {
        return element_ == nullptr ? "" : detail::chars(element_->name);
    }
    /** @return what stands directly in it, CDATA included; "" for none */
    std::string text() const {
        std::string all;
        for (const xmlNode* child = detail::children_of(element_); child != nullptr;
             child = child->next)
            if (detail::is_text(child) && child->content != nullptr)
                all += detail::chars(child->content);
        return all;
    }
    /** @return the elements in it */
    nodes children() const noexcept;
    /** @return the text of the first element of that name in it; nothing when there is none */
    std::optional<std::string> leaf(std::string_view name) const;

private:
    xmlNode* element_;
};

/** Looks at sibling nodes: a range of their elements, past texts and comments. Owns nothing. */
class nodes {
public:
    /** @param first  of the siblings, or null */
    explicit nodes(xmlNode* first = nullptr) noexcept : first_(first) {}

    /** Goes from element to element. */
    class iterator {
    public:
        using iterator_category = std::input_iterator_tag;
        using value_type = node;
        using difference_type = std::ptrdiff_t;
        using pointer = const node*;
        using reference = node;

        explicit iterator(xmlNode* at = nullptr) noexcept : at_(element_from(at)) {}
        node operator*() const noexcept { return node(at_); }
        iterator& operator++() noexcept {
            at_ = element_from(at_->next);
            return *this;
        }
        iterator operator++(int) noexcept {
            iterator before = *this;
            ++*this;
            return before;
        }
        friend bool operator==(iterator a, iterator b) noexcept { return a.at_ == b.at_; }
        friend bool operator!=(iterator a, iterator b) noexcept { return a.at_ != b.at_; }

    private:
        static xmlNode* element_from(xmlNode* at) noexcept {
            while (at != nullptr && at->type != XML_ELEMENT_NODE)
                at = at->next;
            return at;
        }
        xmlNode* at_;
    };

    /** @return where the elements begin */
    iterator begin() const noexcept { return iterator(first_); }
    /** @return where they end */
    iterator end() const noexcept { return iterator(); }
    /** @return whether there is no node at all, not even a text */
    bool empty() const noexcept { return first_ == nullptr; }
    /** @return the first element, or none */
    node first() const noexcept { return *begin(); }
    /** @return the first element of that name among the siblings themselves, or none */
    node find(std::string_view name) const noexcept {
        for (const node each : *this)
            if (name == each.name())
                return each;
        return node();
    }
    /** @return the text of the first element; nothing when there is none */
    std::optional<std::string> text() const {
        if (!first())
            return std::nullopt;
        return first().text();
    }
    /** @return the text of the first element of that name in the first element */
    std::optional<std::string> leaf(std::string_view name) const { return first().leaf(name); }
    /** @return the first of the nodes, of any kind */
    xmlNode* get() const noexcept { return first_; }

private:
    xmlNode* first_;
};

inline nodes node::children() const noexcept { return nodes(detail::children_of(element_)); }

inline std::optional<std::string> node::leaf(std::string_view name) const {
    const node found = children().find(name);
    if (!found)
        return std::nullopt;
    return found.text();
}

/**
 * Owns sibling nodes, or none. Move-only: one that was moved from is empty.
 *
 *     return tree("state").add("changes", changes).add("server", server);
 */
class tree {
public:
    /** No nodes: what a callback answers with that has nothing to say. */
    tree() = default;
    /**
     * @param first  of siblings without a parent, which become the tree's; or null. Hand over
     *         copies of what belongs to a parsed document: see copy_of()
     */
    explicit tree(xmlNode* first) noexcept : first_(first) {}
    /** One element without content. */
    explicit tree(const char* name) : first_(xmlNewNode(nullptr, xml_chars(name))) {
        require(first_.get());
    }
    /**
     * One element.
     *
     * @param name     a name in XML
     * @param content  a text, a character, a whole number, or a bool as "true" or "false"
     */
    template <class Content> explicit tree(const char* name, const Content& content) : tree(name) {
        set_text(written(content));
    }

    /** @return copies of the nodes and all that is in them */
    static tree copy_of(nodes originals) {
        tree copy(originals.empty() ? nullptr : xmlCopyNodeList(originals.get()));
        if (!originals.empty())
            require(copy.get());
        return copy;
    }

    /**
     * Adds an element, with or without content, to the first one. An empty tree takes none:
     * std::logic_error, or the end of the process.
     *
     * @return itself, to add more
     */
    template <class... Content> tree& add(const char* name, const Content&... content) & {
        return add(tree(name, content...));
    }
    /** Adds all nodes of another tree to the first element. */
    tree& add(tree children) & {
        if (!nodes(*this).first())
            detail::give_up(std::logic_error("A tree without an element takes no children."));
        if (children) {
            require(xmlAddChildList(nodes(*this).first().get(), children.get()));
            static_cast<void>(children.release());
        }
        return *this;
    }
    /** As above, for a tree that is being made. */
    template <class... Added> tree add(Added&&... added) && {
        add(std::forward<Added>(added)...);
        return std::move(*this);
    }
    /** Puts the nodes of another tree behind its own ones. */
    tree& append(tree siblings) & {
        xmlNode* last = get();
        while (last != nullptr && last->next != nullptr)
            last = last->next;
        xmlNode* more = siblings.release();
        if (last == nullptr) {
            first_.reset(more);
        } else if (more != nullptr) {
            last->next = more;
            more->prev = last;
        }
        return *this;
    }
    /** As above, for a tree that is being made. */
    tree append(tree siblings) && {
        append(std::move(siblings));
        return std::move(*this);
    }

    /** @return whether there is a node */
    explicit operator bool() const noexcept { return first_ != nullptr; }
    /** @return all nodes, to look at */
    operator nodes() const noexcept { return nodes(get()); } // NOLINT: a tree is looked at as such
    /** @return where the elements begin */
    nodes::iterator begin() const noexcept { return nodes(*this).begin(); }
    /** @return where they end */
    nodes::iterator end() const noexcept { return nodes(*this).end(); }
    /** @return the first element, or none; not of a tree without a name, which would be gone */
    node first() const& noexcept { return nodes(*this).first(); }
    node first() const&& = delete;
    /** @return the elements in the first one; not of a tree without a name, either */
    nodes children() const& noexcept { return first().children(); }
    nodes children() const&& = delete;
    /** @return the text of the first element; nothing when there is none */
    std::optional<std::string> text() const { return nodes(*this).text(); }
    /** @return the text of the first element of that name in the first element */
    std::optional<std::string> leaf(std::string_view name) const { return nodes(*this).leaf(name); }
    /** @return all nodes as XML, nothing added */
    std::string xml() const {
        const std::unique_ptr<xmlBuffer, detail::freed_by<xmlBufferFree>> buffer(xmlBufferCreate());
        require(buffer.get());
        for (xmlNode* each = get(); each != nullptr; each = each->next)
            if (xmlNodeDump(buffer.get(), each->doc, each, 0, 0) < 0)
                detail::give_up(std::bad_alloc());
        return detail::chars(xmlBufferContent(buffer.get()));
    }

    /**
     * Overwrites all texts with zeroes, for secrets; neither comments nor attributes, nor what
     * other nodes of a parsed document share. Destruction frees without that, as xmlFreeNodeList()
     * does.
     */
    void wipe() noexcept { wipe(get()); }

    /** @return the first node, which stays the tree's; null for none */
    xmlNode* get() const noexcept { return first_.get(); }
    /**
     * @return the first node, which is the caller's then, to be given to xmlFreeNodeList(); null
     *         for none
     */
    [[nodiscard]] xmlNode* release() noexcept { return first_.release(); }

private:
    static const xmlChar* xml_chars(const char* text) noexcept {
        return reinterpret_cast<const xmlChar*>(text);
    }
    static void require(const void* made) {
        if (made == nullptr)
            detail::give_up(std::bad_alloc());
    }
    template <class Content> static std::string written(const Content& content) {
        if constexpr (std::is_same_v<Content, bool>)
            return content ? "true" : "false";
        else if constexpr (std::is_same_v<Content, char>)
            return std::string(1, content);
        else if constexpr (std::is_integral_v<Content>)
            return std::to_string(content);
        else
            return std::string(std::string_view(content));
    }
    void set_text(std::string text) {
        if (text.empty())
            return;
        tree child(xmlNewText(xml_chars(fit_for_xml(std::move(text)).c_str())));
        require(child.get());
        require(child.get()->content);
        require(xmlAddChild(get(), child.get()));
        static_cast<void>(child.release());
    }
    static void wipe(xmlNode* first) noexcept {
        for (xmlNode* each = first; each != nullptr; each = each->next) {
            const bool is_shared = each->doc != nullptr && each->doc->dict != nullptr &&
                                   each->type == XML_TEXT_NODE &&
                                   xmlDictOwns(each->doc->dict, each->content) != 0;
            if (detail::is_text(each) && each->content != nullptr && !is_shared)
                std::memset(each->content, 0, std::strlen(detail::chars(each->content)));
            else if (each->type == XML_ELEMENT_NODE)
                wipe(each->children);
        }
    }

    std::unique_ptr<xmlNode, detail::freed_by<xmlFreeNodeList>> first_;
};

} // namespace PELMCONF_MODE
} // namespace pelmconf

#endif
