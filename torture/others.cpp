// What is no plugin: agents, the daemon's sockets, the table of SSH clients, and the ground they stand on.
#include "scenarios.h"

#include "conf_agent.h"
#include "conf_api.h"
#include "conf_buffer.h"
#include "conf_hash.h"
#include "conf_misc.h"
#include "conf_plugin.h"
#include "conf_vec.h"
#include "support/plugin.h"
#include "support/profile.h"

#include <memory>
#include <sys/epoll.h>
#include <sys/sem.h>
#include <sys/shm.h>

namespace torture {
namespace {

outcome told(int result) { return {result >= 0 ? "done" : "failed"}; }

// A socket's file, where there is one: who may use it.
std::string mode_of(const char* path) {
    struct stat file {};
    return stat(path, &file) == 0 ? text(" %o", file.st_mode & 0777) : "";
}

struct endpoint {
    int (*enable)();
    void (*disable)(int);
    const char* path;
};

// An endpoint is there in between, and a file that a failure leaves is of the right mode.
std::vector<step> life_of(const std::string& kind, const endpoint& one,
                          const std::shared_ptr<int>& sock) {
    return {{"enable " + kind,
             [=]() -> outcome {
                 *sock = tried(one.enable);
                 return {told(*sock).value + mode_of(one.path), "", *sock < 0};
             }},
            {"disable " + kind,
             [=]() -> outcome {
                 tried([&] { return one.disable(std::exchange(*sock, -1)), 0; });
                 outcome came{"done" + mode_of(one.path)};
                 fs::remove(one.path);
                 return came;
             },
             true}};
}

constexpr endpoint agent_service{conf_agent_service_enable, conf_agent_service_disable,
                                 g_conf_agent_socket};
constexpr endpoint plugin_service{conf_plugin_service_enable, conf_plugin_service_disable,
                                  g_conf_plugin_socket};
constexpr endpoint notifier{conf_plugin_notifier_enable, conf_plugin_notifier_disable,
                            g_conf_notifier_socket};

// A buffer with room for a header, but not for a body; and an agent's connection.
struct agent_state {
    agent_state() {
        std::string filling(static_cast<std::size_t>(requests->total - 13), '.');
        conf_buffer_append(&requests, filling.data(), static_cast<int>(filling.size()));
    }
    agent_state(const agent_state&) = delete;
    agent_state& operator=(const agent_state&) = delete;
    ~agent_state() { conf_buffer_destroy(requests); }
    std::string bytes() const { return {requests->buf, static_cast<std::size_t>(requests->used)}; }

    conf_buffer_t* requests = conf_buffer_create(1);
    int sock = -1;
};

// Builds a request behind what is there, or leaves that as it is.
step build(const char* name, const std::shared_ptr<agent_state>& at,
           int (*builder)(conf_buffer_t**, int)) {
    return {name, [=]() -> outcome {
                const std::string before = at->bytes();
                const int result = tried([&] { return builder(&at->requests, 7); });
                const std::string after = at->bytes();
                if (result < 0)
                    return {after == before ? "failed" : "failed and left something"};
                return {"done " + after.substr(before.size() + sizeof(msg_head_t))};
            }};
}

conf_cli_info_t client(int key) {
    conf_cli_info_t record{};
    record.sshd_pid = key;
    record.cli_port = 22;
    record.addr_buf[0] = 7;
    return record;
}

int segment() { return shmget(ftok(conf::profile_path, 0), 0, 0); }
int semaphore() { return semget(ftok(conf::profile_path, 0), 0, 0); }

// Whether the first entry of the table is in use.
bool has_entry() {
    const auto* const at = static_cast<const char*>(shmat(segment(), nullptr, SHM_RDONLY));
    conf_cli_info_t first;
    std::memcpy(&first, at + sizeof(int), sizeof first);
    (void)shmdt(at);
    return first.valid != 0;
}

// What there is of a table in the system, and how often this process is attached.
std::string traces() {
    shmid_ds memory{};
    std::string found = semaphore() >= 0 ? " semaphore" : "";
    if (shmctl(segment(), IPC_STAT, &memory) == 0)
        found += text(" segment attached %d times", static_cast<int>(memory.shm_nattch));
    return found;
}

// What came of a use. An unlocking that failed is made up for, as the kernel does when a process ends.
outcome used(const std::string& value) {
    const union {
        int value;
        void* place; // gives the union the size that semctl() expects
    } unlocked{1};
    if (semaphore() >= 0)
        (void)semctl(semaphore(), 0, SETVAL, unlocked);
    return {value + traces()};
}

void remove_table() {
    (void)shmctl(segment(), IPC_RMID, nullptr);
    (void)semctl(semaphore(), 0, IPC_RMID);
}

// The calls on entries, where the process is attached and where it is not.
void add_uses(std::vector<step>& steps, const std::string& where) {
    steps.push_back({"save " + where, []() -> outcome {
                         conf_cli_info_t record = client(5);
                         const int result = tried([&] { return conf_save_client_info(&record); });
                         return used(told(result).value);
                     }});
    steps.push_back({"look up " + where, []() -> outcome {
                         conf_cli_info_t found = client(1);
                         const int result = tried([&] { return conf_get_client_info(5, &found); });
                         return used(told(result).value +
                                     text(" %d %d", found.sshd_pid, static_cast<int>(found.valid)));
                     }});
    steps.push_back({"free " + where, []() -> outcome {
                         tried([] { return conf_free_client_info(5), 0; });
                         return used(has_entry() ? "failed" : "done");
                     }});
}

step destroy(const char* name) {
    return {name,
            []() -> outcome {
                tried([] { return conf_clishm_destroy(), 0; });
                outcome came{"done" + traces()};
                remove_table();
                return came;
            },
            true};
}

// Containers that have to grow, and are as before when they cannot.
outcome grow_table() {
    char key[] = "k";
    conf_hash_tbl_t* const table = conf_hash_create(3);
    (void)conf_hash_add(table, key, key, 1);
    const int result = tried([&] { return conf_hash_add(table, key, key, 2); });
    const bool is_there = conf_hash_get(table, key) != nullptr;
    conf_hash_del(table, key);
    conf_hash_destroy(table);
    return {told(result).value + (is_there ? " there" : " gone")};
}

outcome grow_vector() {
    int element = 0;
    conf_vec_t* vector = conf_vector_create(1);
    (void)conf_vector_add(&vector, &element);
    const int result = tried([&] { return conf_vector_add(&vector, &element); });
    outcome came{told(result).value + text(" size %d", conf_vector_size(vector))};
    conf_vector_destroy(vector, nullptr);
    return came;
}

// @param change  is given a buffer that is full but for one byte
outcome change_buffer(const std::function<int(conf_buffer_t**)>& change) {
    std::string filling(4087, 'x');
    conf_buffer_t* buffer = conf_buffer_create(0);
    (void)conf_buffer_append(&buffer, filling.data(), 4087);
    const int result = tried([&] { return change(&buffer); });
    outcome came{told(result).value + text(" %d of %d", buffer->used, buffer->total)};
    conf_buffer_destroy(buffer);
    return came;
}

step change(const char* name, const std::function<int(conf_buffer_t**)>& change) {
    return {name, [=] { return change_buffer(change); }};
}

// What is made by a call, and given back at once.
template <class Make, class Free> step make(const char* name, Make made, Free give_back) {
    return {name, [=] {
                auto* const object = tried(made);
                give_back(object);
                return told(object != nullptr ? 0 : -1);
            }};
}

// A message at the front of a buffer, which goes in every case, and one behind it.
outcome parse() {
    std::string frames = frame_of("<a k='v'><b>" + secret + "</b></a>");
    frames += frame_of("<next/>");
    conf_buffer_t* buffer = conf_buffer_create(0);
    (void)conf_buffer_append(&buffer, frames.data(), static_cast<int>(frames.size()));
    const conf::unique_node root{tried([&] { return plugin_parse_message(&buffer); })};
    outcome came{(root ? text_of(root.get()) : "failed") + text(", %d left", buffer->used)};
    conf_buffer_destroy(buffer);
    return came;
}

step convert(const char* name, char* (*function)(const char*), const char* given) {
    return {name, [=]() -> outcome {
                const conf::unique_string made{tried([&] { return function(given); })};
                return {made ? made.get() : "failed"};
            }};
}

} // namespace

std::vector<step> agent() {
    const auto service = std::make_shared<int>(-1);
    const auto at = std::make_shared<agent_state>();
    std::vector<step> steps = life_of("service", agent_service, service);
    const std::vector<step> between = {
        {"connect", [=] { return told(at->sock = tried(conf_agent_init)); }},
        build("session", at, conf_agent_build_session),
        build("subscription", at, conf_agent_build_notify_rpc),
        build("capability", at, conf_agent_build_capability),
        {"disconnect",
         [=]() -> outcome {
             return tried([&] { return conf_agent_exit(at->sock), outcome{"done"}; });
         },
         true}};
    steps.insert(std::prev(steps.end()), between.begin(), between.end());
    return steps;
}

std::vector<step> endpoints() {
    const auto service = std::make_shared<int>(-1);
    const auto queue = std::make_shared<int>(-1);
    const auto element = std::make_shared<conf::unique_node>(
        nodes_of("<a k='v'>" + std::string(20000, 'x') + "</a>"));
    const auto notify = [=](const char* name, auto send) -> step {
        return {name, [=] {
                    const int result = tried(send);
                    char bytes[30000] = "";
                    (void)recv(*queue, bytes, sizeof bytes, MSG_DONTWAIT);
                    return outcome{told(result).value, bytes};
                }};
    };
    static char alarm[] = "alarm";
    std::vector<step> steps = life_of("service", plugin_service, service);
    const std::vector<step> datagrams = life_of("notifier", notifier, queue);
    steps.insert(steps.end(), datagrams.begin(), datagrams.end());
    const std::vector<step> between = {
        notify("element", [=] { return econf_notify(alarm, element->get()); }),
        notify("text", [] { return conf_notify(alarm, alarm); }),
        notify("text at once", [] { return conf_notify_nonblock(alarm, alarm); })};
    steps.insert(std::prev(steps.end()), between.begin(), between.end());
    return steps;
}

std::vector<step> table() {
    const auto create_elsewhere = []() -> outcome {
        const pid_t child = fork();
        if (child == 0)
            _exit(conf_clishm_create(2));
        (void)waitpid(child, nullptr, 0);
        return {"done" + traces()};
    };
    std::vector<step> steps = {{"create", []() -> outcome {
                                    const int result = tried([] { return conf_clishm_create(2); });
                                    return {told(result).value + traces(), "", result < 0};
                                }}};
    add_uses(steps, "here");
    steps.push_back(destroy("destroy"));
    steps.push_back({"create elsewhere", create_elsewhere});
    add_uses(steps, "from elsewhere");
    steps.push_back(destroy("destroy from elsewhere"));
    return steps;
}

std::vector<step> containers() {
    static char byte[] = "y";
    static char file[] = "/var/log/debug";
    const auto destroy_vector = [](conf_vec_t* made) {
        if (made != nullptr)
            conf_vector_destroy(made, nullptr);
    };
    return {
        make(
            "hash table", [] { return conf_hash_create(3); }, conf_hash_destroy),
        {"hash table grows", grow_table},
        make(
            "vector", [] { return conf_vector_create(1); }, destroy_vector),
        {"vector grows", grow_vector},
        make(
            "buffer", [] { return conf_buffer_create(1); }, conf_buffer_destroy),
        change("append", [](auto buffer) { return conf_buffer_append(buffer, byte, 1); }),
        change("insert", [](auto buffer) { return conf_buffer_insert(buffer, 3, byte, 1); }),
        change("slim",
               [](auto buffer) {
                   conf_buffer_flush(*buffer);
                   return conf_buffer_slim(buffer), 0;
               }),
        convert("strip", conf_strip, " x "),
        convert("schema path", plugin_path_schema2std, "/a:b/a:c[k=\"%n\"]/a:d"),
        convert("data path", plugin_path_data2std, "/a:b/a:c[k=\"%n\"]/a:d"),
        convert("database path", plugin_path_std2db, "/a:b/a:c[k=\"%n\"]/a:d"),
        {"message", parse},
        {"debug file",
         []() -> outcome {
             const int result = tried([] { return conf_dbg_enable(3, file); });
             conf_dbg_disable();
             return told(result);
         }},
        {"profile",
         []() -> outcome {
             char* directory = strdup("before");
             std::strcpy(g_conf_agent_socket, "before");
             const int result = tried([&] { return conf_load_config(&directory); });
             const conf::unique_string owned{directory};
             return {told(result).value + " " + directory + " " + g_conf_agent_socket};
         }},
        {"descriptor",
         []() -> outcome {
             const conf::unique_fd sock{socket(AF_UNIX, SOCK_STREAM, 0)};
             const conf::unique_fd set{epoll_create1(EPOLL_CLOEXEC)};
             const int fd = sock.get();
             std::string value = told(tried([&] { return conf_non_block_fd(fd); })).value;
             const int added = tried([&] { return conf_event_add(set.get(), fd, 1, 2); });
             const int changed = tried([&] { return conf_event_reset(set.get(), fd, 2, 3); });
             return {value + " " + told(added).value + " " + told(changed).value};
         }},
    };
}

// Before the line there is as much as the log may hold, or one byte more.
std::vector<step> log() {
    static constexpr const char* path = "/var/log/conf_plugin.log";
    const auto write = [](const char* name, std::uintmax_t before) -> step {
        return {name, [=]() -> outcome {
                    std::ofstream(path).flush();
                    fs::resize_file(path, before);
                    errno = EXDEV;
                    tried([] { return _conf_write_log(DBG_ERROR, "a line"), 0; });
                    const bool is_kept = errno == EXDEV;
                    const std::uintmax_t after = fs::exists(path) ? fs::file_size(path) : 0;
                    const char* const file = after > before    ? "one more line"
                                             : after == before ? "as it was"
                                             : after > 0       ? "a new line"
                                                               : "no file";
                    return {text("%s, %s", is_kept ? "errno kept" : "failed", file)};
                }};
    };
    return {write("first line", 0), write("last line", 0x200000), write("line too many", 0x200001)};
}

} // namespace torture
