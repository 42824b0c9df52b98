// What the library and libxml2 do with memory: how much of it is mapped, and whether what is given
// back still holds a secret.
#pragma once

#include <cstddef>
#include <string>

// For what nobody may find again. It is a text of its own, not one that a document shares.
inline const std::string secret = "a secret of some length";

// Looks for the secret in what is given back while it lives: blocks that came in that time, and
// pages. What libxml2 leaves behind when a block of its own has to grow is not looked at.
class secret_watch {
public:
    secret_watch();
    secret_watch(secret_watch&&) = delete;
    ~secret_watch();

    // Pages that held it, and blocks that began with it, like the text of a node.
    int texts() const;
    // With blocks that held it anywhere, as those in which xmlReadMemory() copies what it parses.
    int all() const;
};

// From here on a watch for secrets does not look at what comes and goes, or does so again.
void look_away(bool is_away);

// Counts the blocks that come while it lives, and those that are there in the end.
class block_watch {
public:
    block_watch();
    block_watch(block_watch&&) = delete;

    int count() const;
    int kept() const;
    // Gives back what a library has lost.
    void free_kept() const;
    std::size_t largest() const;

private:
    int before_, gone_before_;
};

// Fails the test when more or fewer bytes are mapped at the end of the scope.
class mapping_watch {
public:
    mapping_watch();
    mapping_watch(mapping_watch&&) = delete;
    ~mapping_watch();

private:
    std::ptrdiff_t before_;
};

// For those who hand memory out and take it back. A block that comes without content is empty while a
// watch lives.
void block_came(void* block, bool is_empty);
void block_goes(void* block);
void block_is_forgotten(void* block);
void pages_came(std::ptrdiff_t bytes);
void pages_go(const void* first, std::size_t bytes);
