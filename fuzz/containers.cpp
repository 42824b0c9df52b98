// Any order of operations on the containers, against the standard library's.
#include "conf_buffer.h"
#include "conf_hash.h"
#include "conf_vec.h"
#include "input.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <vector>

namespace {

// Of at least one byte, which has to equal all behind it.
bool is_zero(const char* bytes, int count) {
    return *bytes == 0 && std::memcmp(bytes, bytes + 1, static_cast<std::size_t>(count - 1)) == 0;
}

void use_buffer(input& in) {
    static constexpr int extremes[] = {INT_MIN, -1, 0, INT_MAX};
    conf_buffer_t* buf = conf_buffer_create(0);
    std::string model;
    for (char fill = 'a'; !in.is_used_up(); ++fill) {
        const int total = buf->total, used = buf->used;
        const int offset = static_cast<int>(in.below(model.size() + 3)) - 1;
        const int len = static_cast<int>(in.below(in.below(32) == 0 ? 200000 : 700)) - 1;
        const bool is_inside = offset >= 0 && offset < used;
        const auto at = static_cast<std::size_t>(is_inside ? offset : used);
        std::string bytes(static_cast<std::size_t>(std::max(len, 0)), fill);
        const auto choice = in.below(5);
        if (choice == 0 || model.size() > 200000) { // more would only take time
            const int count = in.below(8) == 0 ? in.pick(extremes) : len * 3;
            conf_buffer_remove(buf, offset, count);
            require(reports() == (is_inside && count > 0 ? 0 : 1));
            model.erase(at, static_cast<std::size_t>(std::max(count, 0)));
        } else if (choice == 1) {
            conf_buffer_slim(&buf);
        } else if (choice == 2) {
            const bool is_done = conf_buffer_insert(&buf, offset, bytes.data(), len) == 0;
            require(is_done == (len >= 0 && offset >= 0 && offset <= used) &&
                    reports() == !is_done);
            model.insert(at, is_done ? bytes : "");
        } else {
            const bool is_done = conf_buffer_append(&buf, bytes.data(), len) == 0;
            require(is_done == (len >= 0) && reports() == !is_done);
            model += is_done ? bytes : "";
        }
        require(std::string_view(buf->buf, static_cast<std::size_t>(buf->used)) == model);
        require(buf->buf[buf->used] == '\0' && (buf->total + 8) % 4096 == 0);
        require(buf->total == total || is_zero(buf->buf + buf->used, buf->total - buf->used));
    }
    conf_buffer_destroy(buf);
}

using nodes = std::vector<conf_dlq_node_t*>;

void check_queue(conf_dlq_list_t& list, nodes model) {
    nodes forwards, backwards;
    for (auto* node = conf_dlq_head(&list); node; node = conf_dlq_next(&list, node))
        forwards.push_back(node);
    for (auto* node = conf_dlq_tail(&list); node; node = conf_dlq_prev(&list, node))
        backwards.push_back(node);
    require(list.num == model.size() && forwards == model);
    std::ranges::reverse(model);
    require(backwards == model);
}

nodes freed;

void free_node(void* node) {
    freed.push_back(static_cast<conf_dlq_node_t*>(node));
    *freed.back() = {node, freed.back(), freed.back()}; // what it says must not matter any more
}

void use_queues(input& in) {
    conf_dlq_node_t all[12] = {};
    conf_dlq_list_t lists[2] = {{.num = 7, .head = all, .tail = all}, {0, all, all}};
    nodes models[2] = {{}, {all}};
    conf_dlq_init(&lists[0]);
    require(conf_dlq_append(&lists[1], all) == 0); // empty by its count, whatever else it says
    while (!in.is_used_up()) {
        const auto which = in.below(2);
        auto& list = lists[which];
        auto& model = models[which];
        auto* node = &all[in.below(std::size(all))];
        auto* before = in.below(8) == 0 ? nullptr : &all[in.below(std::size(all))]; // null: the end
        const bool is_loose = node->list == nullptr, is_ours = node->list == &list;
        if (!is_loose) {
            conf_dlq_remove(&list, node); // changes nothing when the other list holds it
            require((std::erase(model, node) == 1) == is_ours);
            require((!node->list && !node->prev && !node->next) == is_ours);
        } else if (in.flag()) {
            require(conf_dlq_append(&list, node) == 0);
            model.push_back(node);
        } else {
            const auto place = std::ranges::find(model, before);
            const bool has_place = before == nullptr || place != model.end();
            const bool is_done = conf_dlq_insert(&list, before, node) == 0;
            require(is_done == has_place && reports() == !is_done);
            if (is_done)
                model.insert(place, node);
        }
        check_queue(lists[0], models[0]);
        check_queue(lists[1], models[1]);
    }
    freed.clear();
    conf_dlq_free(&lists[0], free_node);
    require(freed == models[0] && lists[0].num == 0);
}

// The entries in the order in which they were added or replaced, which each bucket keeps.
using entries = std::vector<std::pair<std::string, std::string>>;

void check_table(conf_hash_tbl_t& table, const entries& model) {
    nodes next;
    for (u32_t bucket = 0; bucket < table.num; ++bucket)
        next.push_back(table.buckets[bucket].head);
    for (const auto& [key, value] : model) {
        u32_t hash = 0;
        for (const char byte : key)
            hash = hash * table.seed + static_cast<unsigned char>(byte);
        auto*& link = next[hash % table.num];
        require(link != nullptr);
        const char* stored = reinterpret_cast<char*>(link) + sizeof(conf_hash_node_t);
        require(std::string_view(stored, key.size() + 1) ==
                std::string_view(key.c_str(), key.size() + 1));
        stored += key.size() + 1;
        require(std::string_view(stored, value.size()) == value);
        require(conf_hash_get(&table, std::string(key).data()) == stored);
        link = link->next;
    }
    require(std::ranges::count(next, nullptr) == std::ssize(next));
}

void use_table(input& in) {
    conf_hash_tbl_t* table = conf_hash_create(1 + in.below(40));
    entries model;
    while (!in.is_used_up()) {
        const auto choice = in.below(255); // of few keys, so that most are met again
        std::string key(choice % 3, static_cast<char>(120 + choice % 16));
        std::string value(in.below(8), static_cast<char>(choice));
        auto* const stored = static_cast<char*>(conf_hash_get(table, key.data()));
        const auto known = std::ranges::find(model, key, &entries::value_type::first);
        require((stored != nullptr) == (known != model.end()));
        const std::string old = stored != nullptr ? known->second : "";
        if (stored != nullptr)
            model.erase(known);
        if (choice % 5 < 2) {
            conf_hash_del(table, key.data());
        } else {
            char *from_key = key.data(), *from = value.data();
            if (stored != nullptr && in.flag()) { // out of the entry's own block
                from = from_key = stored - key.size() - 1;
                value = std::string(from, std::min(value.size(), key.size() + 1 + old.size()));
            }
            const auto size = static_cast<u32_t>(value.size());
            require(conf_hash_add(table, from_key, from, size) == 0);
            const bool is_in_place = conf_hash_get(table, key.data()) == stored;
            require(is_in_place == (stored != nullptr && value.size() == old.size()));
            model.emplace_back(key, value);
        }
        check_table(*table, model);
    }
    for (auto& entry : model)
        conf_hash_del(table, entry.first.data());
    check_table(*table, {});
    conf_hash_destroy(table);
}

std::vector<void*> released;

void use_vector(input& in) {
    const u32_t slots = 1 + in.below(4);
    conf_vec_t* vector = conf_vector_create(slots);
    std::vector<void*> model(slots);
    for (char elements[1024], *element = elements; !in.is_used_up();) {
        const u32_t choice = in.below(256),
                    slot = choice / 2 % static_cast<u32_t>(model.size() + 1);
        if (choice % 2 == 0 || element == std::end(elements)) {
            const bool is_done = conf_vector_remove(vector, slot) == 0;
            require(is_done == (slot < model.size()) && reports() == !is_done);
            if (is_done)
                model[slot] = nullptr;
        } else {
            const auto first = std::ranges::find(model, nullptr) - model.begin();
            require(conf_vector_add(&vector, element) == first);
            if (first == std::ssize(model))
                model.resize(model.size() * 2);
            model[static_cast<std::size_t>(first)] = element++;
        }
        require(conf_vector_size(vector) == std::ssize(model));
        require(std::memcmp(vector->vec, model.data(), model.size() * sizeof(void*)) == 0);
        require(slot == model.size() || conf_vector_get(vector, slot) == model[slot]);
    }
    released.clear();
    conf_vector_destroy(vector, [](void* data) { released.push_back(data); });
    std::erase(model, nullptr);
    require(released == model);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static constexpr void (*uses[])(input&) = {use_buffer, use_queues, use_table, use_vector};
    input in(bytes, size);
    in.pick(uses)(in);
    require(reports() == 0);
    return 0;
}
