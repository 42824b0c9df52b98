#include "support/memory.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <malloc.h>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

namespace {

bool is_watched = false;
bool is_away = false;             // the watch, for a while
std::unordered_set<void*> blocks; // that came since then
int texts_left = 0;
int all_left = 0;
std::ptrdiff_t mapped_bytes = 0;
int block_count = 0;
int gone_count = 0;
std::size_t largest_block = 0;

// All that came and did not go, and how many had come before. It outlives all others.
std::unordered_map<void*, int>& live_blocks() {
    static auto* const live = new std::unordered_map<void*, int>;
    return *live;
}

std::size_t place_of_secret(const void* first, std::size_t bytes) {
    return std::string_view(static_cast<const char*>(first), bytes).find(secret);
}

} // namespace

secret_watch::secret_watch() {
    is_watched = true;
    texts_left = all_left = 0;
}

secret_watch::~secret_watch() {
    is_watched = false;
    blocks.clear();
}

int secret_watch::texts() const { return texts_left; }

int secret_watch::all() const { return all_left; }

void look_away(bool is_away_now) { is_away = is_away_now; }

block_watch::block_watch() : before_(block_count), gone_before_(gone_count) { largest_block = 0; }

int block_watch::count() const { return block_count - before_; }

int block_watch::kept() const { return count() - (gone_count - gone_before_); }

void block_watch::free_kept() const {
    const std::unordered_map<void*, int> all = live_blocks();
    for (const auto& [block, number] : all)
        if (number >= before_)
            std::free(block);
}

std::size_t block_watch::largest() const { return largest_block; }

mapping_watch::mapping_watch() : before_(mapped_bytes) {}

mapping_watch::~mapping_watch() {
    EXPECT_EQ(mapped_bytes, before_) << "pages were kept, or given back twice";
}

void block_came(void* block, bool is_empty) {
    if (block != nullptr)
        live_blocks()[block] = block_count++;
    largest_block = std::max(largest_block, malloc_usable_size(block));
    if (!is_watched || is_away || block == nullptr)
        return;
    if (is_empty)
        std::memset(block, 0, malloc_usable_size(block));
    blocks.insert(block);
}

void block_goes(void* block) {
    gone_count += static_cast<int>(live_blocks().erase(block));
    if (blocks.erase(block) == 0 || is_away)
        return;
    const std::size_t place = place_of_secret(block, malloc_usable_size(block));
    texts_left += place == 0;
    all_left += place != std::string::npos;
}

void block_is_forgotten(void* block) { blocks.erase(block); }

void pages_came(std::ptrdiff_t bytes) { mapped_bytes += bytes; }

void pages_go(const void* first, std::size_t bytes) {
    mapped_bytes -= static_cast<std::ptrdiff_t>(bytes);
    if (!is_watched || is_away || place_of_secret(first, bytes) == std::string::npos)
        return;
    ++texts_left;
    ++all_left;
}
