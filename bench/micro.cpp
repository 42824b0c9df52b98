// The pieces, one at a time. What takes a size must take time in proportion to it.
#include "conf_api.h"
#include "conf_buffer.h"
#include "conf_debug.h"
#include "conf_hash.h"
#include "conf_misc.h"
#include "conf_plugin.h"
#include "conf_plugin/paths.h"
#include "conf_vec.h"
#include "frame.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace {

char piece[1024];

void count_bytes(benchmark::State& state, std::size_t bytes) {
    state.SetBytesProcessed(static_cast<std::int64_t>(bytes) * state.iterations());
}

void append_and_remove(benchmark::State& state) {
    conf_buffer_t* buffer = conf_buffer_create(1000);
    const int bytes = static_cast<int>(state.range(0));
    for (auto _ : state) {
        (void)conf_buffer_append(&buffer, piece, bytes);
        conf_buffer_remove(buffer, 0, bytes);
    }
    conf_buffer_destroy(buffer);
}
BENCHMARK(append_and_remove)->Arg(16)->Arg(312)->Arg(1024);

void insert_in_front(benchmark::State& state) {
    conf_buffer_t* buffer = conf_buffer_create(1000);
    (void)conf_buffer_append(&buffer, piece, 1024);
    for (auto _ : state) {
        (void)conf_buffer_insert(&buffer, 0, piece, 12);
        conf_buffer_remove(buffer, 0, 12);
    }
    conf_buffer_destroy(buffer);
}
BENCHMARK(insert_in_front);

void slim(benchmark::State& state) {
    for (auto _ : state) {
        conf_buffer_t* buffer = conf_buffer_create(static_cast<int>(state.range(0)));
        conf_buffer_slim(&buffer);
        conf_buffer_destroy(buffer);
    }
}
BENCHMARK(slim)->Arg(1000)->Arg(100000);

void append_in_pieces(benchmark::State& state) {
    for (auto _ : state) {
        conf_buffer_t* buffer = conf_buffer_create(1000);
        for (auto left = state.range(0); left > 0; left -= sizeof piece)
            (void)conf_buffer_append(&buffer, piece, sizeof piece);
        conf_buffer_destroy(buffer);
    }
    count_bytes(state, static_cast<std::size_t>(state.range(0)));
}
BENCHMARK(append_in_pieces)
    ->Arg(1 << 16)
    ->Arg(1 << 20)
    ->Arg(1 << 26)
    ->Unit(benchmark::kMicrosecond);

// A table of 1021 buckets that holds so many keys.
struct filled_table {
    explicit filled_table(benchmark::IterationCount fill) {
        for (benchmark::IterationCount index = 0; index < fill; ++index) {
            keys.push_back("plugin_tid_" + std::to_string(index));
            (void)conf_hash_add(table, keys.back().data(), piece, 16);
        }
    }
    ~filled_table() { conf_hash_destroy(table); }
    filled_table(const filled_table&) = delete;
    filled_table& operator=(const filled_table&) = delete;

    conf_hash_tbl_t* table = conf_hash_create(1021);
    std::vector<std::string> keys;
};

void hash_get(benchmark::State& state) {
    filled_table filled(state.range(0));
    std::size_t index = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(
            conf_hash_get(filled.table, filled.keys[index++ % filled.keys.size()].data()));
}
BENCHMARK(hash_get)->Arg(1)->Arg(500)->Arg(1000)->Arg(10000);

void hash_add_and_delete(benchmark::State& state) {
    filled_table filled(state.range(0));
    char key[] = "plugin_tid_x";
    for (auto _ : state) {
        (void)conf_hash_add(filled.table, key, piece, 16);
        conf_hash_del(filled.table, key);
    }
}
BENCHMARK(hash_add_and_delete)->Arg(1)->Arg(500)->Arg(1000)->Arg(10000);

void vector_get(benchmark::State& state) {
    conf_vec_t* vector = conf_vector_create(1000);
    for (u32_t index = 0; index < 1000; ++index)
        (void)conf_vector_add(&vector, piece);
    u32_t index = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(conf_vector_get(vector, index++ % 1000));
    conf_vector_destroy(vector, nullptr);
}
BENCHMARK(vector_get);

xmlNode* new_tree(benchmark::IterationCount leaves) {
    xmlNode* root = xmlNewNode(nullptr, BAD_CAST "rpc");
    for (; leaves > 0; --leaves)
        xmlNewTextChild(root, nullptr, BAD_CAST "name", BAD_CAST "ge-0/0/1");
    return root;
}

void frame_build(benchmark::State& state) {
    xmlNode* root = new_tree(state.range(0));
    conf_buffer_t* buffer = conf_buffer_create(1000);
    int bytes = 0;
    for (auto _ : state) {
        (void)conf::append_frame(&buffer, root, 1);
        bytes = conf_buffer_length(buffer);
        conf_buffer_remove(buffer, 0, bytes);
    }
    count_bytes(state, static_cast<std::size_t>(bytes));
    conf_buffer_destroy(buffer);
    xmlFreeNode(root);
}
BENCHMARK(frame_build)->Arg(10)->Arg(1000)->Arg(100000);

void frame_parse(benchmark::State& state) {
    xmlNode* root = new_tree(state.range(0));
    conf_buffer_t* frame = conf_buffer_create(1000);
    conf_buffer_t* buffer = conf_buffer_create(1000);
    (void)conf::append_frame(&frame, root, 1);
    for (auto _ : state) {
        (void)conf_buffer_append(&buffer, frame->buf, frame->used);
        xmlFreeNode(plugin_parse_message(&buffer));
    }
    count_bytes(state, static_cast<std::size_t>(frame->used));
    conf_buffer_destroy(buffer);
    conf_buffer_destroy(frame);
    xmlFreeNode(root);
}
BENCHMARK(frame_parse)->Arg(10)->Arg(1000)->Arg(100000);

// So many bytes of path, with a quoted key in each node.
std::string long_path(benchmark::IterationCount bytes) {
    std::string path;
    while (path.size() < static_cast<std::size_t>(bytes))
        path += "/if:interface[name=\"ge-0/0/1\"]";
    return path;
}

void path_conversion(benchmark::State& state) {
    const std::string path = long_path(state.range(0));
    for (auto _ : state)
        std::free(plugin_path_data2std(path.c_str()));
    count_bytes(state, path.size());
}
BENCHMARK(path_conversion)->Arg(60)->Arg(1 << 10)->Arg(1 << 20);

void unquoting(benchmark::State& state) {
    const std::string path = long_path(state.range(0));
    std::string work = path;
    for (auto _ : state) {
        std::memcpy(work.data(), path.data(), path.size());
        benchmark::DoNotOptimize(conf::datastore_path_rm_quotes(work.data()));
    }
    count_bytes(state, path.size());
}
BENCHMARK(unquoting)->Arg(1 << 10)->Arg(1 << 15)->Arg(1 << 20);

// Values that never end: every opening quote is looked at, and none of them may cost the whole rest.
void unquoting_open_ends(benchmark::State& state) {
    std::string path;
    while (path.size() < static_cast<std::size_t>(state.range(0)))
        path += "[a=\"b\"";
    std::string work = path;
    for (auto _ : state) {
        std::memcpy(work.data(), path.data(), path.size());
        benchmark::DoNotOptimize(conf::datastore_path_rm_quotes(work.data()));
    }
    count_bytes(state, path.size());
}
BENCHMARK(unquoting_open_ends)->Arg(1 << 10)->Arg(1 << 15)->Arg(1 << 20);

// The second writes a line to /var/log/conf_plugin.log, in the private world that this runs in.
void log_below_gate(benchmark::State& state) {
    (void)econf_plugin_config_debug(DBG_ERROR, 1);
    for (auto _ : state)
        _conf_write_log(DBG_INFO, "Read message from pelmd(%d bytes).", 312);
    (void)econf_plugin_config_debug(0, 0);
}
BENCHMARK(log_below_gate);

void log_above_gate(benchmark::State& state) {
    (void)econf_plugin_config_debug(DBG_ERROR, 1);
    for (auto _ : state)
        _conf_write_log(DBG_ERROR, "Read message from pelmd(%d bytes).", 312);
    (void)econf_plugin_config_debug(0, 0);
}
BENCHMARK(log_above_gate);

// The client table: the last of so many entries is looked up, attaching included.
void client_table_get(benchmark::State& state) {
    const int entries = static_cast<int>(state.range(0));
    std::ofstream{"/mnt/squash/local/etc/pelmd/pelmd.conf"} << "{}"; // its inode is the table's key
    (void)conf_clishm_create(entries);
    conf_cli_info_t info{};
    for (int pid = 1; pid <= entries; ++pid) {
        info.sshd_pid = pid;
        (void)conf_save_client_info(&info);
    }
    for (auto _ : state)
        if (conf_get_client_info(entries, &info) < 0)
            state.SkipWithError("not found");
    conf_clishm_destroy();
}
BENCHMARK(client_table_get)->Arg(1)->Arg(100)->Arg(1000);

} // namespace

BENCHMARK_MAIN();
