#include "plugin.h"

#include "check.h"
#include "conf_api.h"
#include "daemon.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <new>
#include <poll.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace stress {
namespace {

namespace fs = std::filesystem;

ledger* ours; // in the plugin
char operated_path[] = "/o";

void note(bool is_good) { ours->bad += is_good ? 0 : 1; }

// Asks for what the daemon has; a refusal or a hang-up leaves nothing.
void pull() {
    xmlNode* found = nullptr;
    const int result = econf_plugin_pull(0, "/c", &found);
    note(result == 0 ? found != nullptr : found == nullptr);
    xmlFreeNodeList(found);
}

int change(int, int oper, int, int, const char* path) {
    ++ours->callbacks;
    note(path != nullptr && std::strcmp(path, "/c[k=x]") == 0);
    pull();
    if ((oper & CONFIG_OP_RM) == 0)
        return 0;
    ++ours->refused;
    econf_plugin_error(7, "refused");
    return -1;
}

int tell(int, const char*, const char*, xmlNode** status) {
    ++ours->callbacks;
    *status = xmlNewNode(nullptr, BAD_CAST "s");
    return 0;
}

int operate(int, xmlNode* input, xmlNode** output) {
    ++ours->callbacks;
    note(input != nullptr);
    (void)econf_plugin_push("/c", input);
    (void)econf_plugin_config_deployment("/c", 0, input);
    (void)econf_plugin_save_deployment();
    (void)econf_plugin_copy_running_to_deployment(1);
    xmlNode* position = nullptr;
    (void)econf_plugin_locate(0, "/c", &position);
    xmlFreeNodeList(position);
    *output = xmlCopyNode(input, 1);
    return 0;
}

void kick_off() {
    ++ours->callbacks;
    econf_plugin_deactivate();
    (void)econf_plugin_activate(ACTIVATE_WITH_NONE);
}

econf_config_cb_info_t changes[] = {{"/c", 1, change}, {}};
econf_status_cb_info_t states[] = {{"/s", tell}, {}};
econf_operate_cb_info_t operations[] = {{operated_path, operate}, {}};
econf_plugin_subpub_info_t tables{changes, states, operations, kick_off};

long own_descriptors() { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); }

// From one registration to the end of its connection.
void live(int sock) {
    if (econf_plugin_activate(ACTIVATE_WITH_NONE) < 0)
        return;
    ++ours->lives;
    pollfd daemon{sock, POLLIN | POLLRDHUP, 0};
    do
        econf_plugin_run();
    while (poll(&daemon, 1, -1) == 1 && daemon.revents == POLLIN);
}

// Until the other end of the leash is let go.
void run(int leash) {
    (void)std::signal(SIGPIPE, SIG_IGN);
    constexpr int retry_ms = 1;
    const long before = own_descriptors();
    pollfd over{leash, POLLIN, 0};
    while (poll(&over, 1, 0) == 0) {
        const int sock = econf_plugin_init("stress", &tables);
        if (sock < 0) { // there is no daemon now
            (void)poll(&over, 1, retry_ms);
            continue;
        }
        live(sock);
        econf_plugin_close();
        note(own_descriptors() == before);
    }
    std::exit(ours->bad == 0 ? 0 : 1);
}

} // namespace

plugin_process::plugin_process() {
    void* const shared =
        mmap(nullptr, sizeof(ledger), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    int ends[2];
    require(shared != MAP_FAILED && pipe(ends) == 0, "a plugin can be started");
    seen_ = ours = new (shared) ledger;
    leash_ = ends[1];
    pid_ = fork();
    if (pid_ == 0) {
        (void)close(ends[1]);
        run(ends[0]);
    }
    (void)close(ends[0]);
}

plugin_process::~plugin_process() {
    if (pid_ > 0) {
        (void)kill(pid_, SIGKILL);
        (void)waitpid(pid_, nullptr, 0);
    }
    (void)munmap(seen_, sizeof *seen_);
}

bool plugin_process::has_ended_well() {
    (void)close(leash_);
    int status = -1;
    (void)waitpid(pid_, &status, 0);
    pid_ = -1;
    return status == 0;
}

long plugin_process::private_kib() const {
    std::ifstream rollup("/proc/" + std::to_string(pid_) + "/smaps_rollup");
    for (std::string word; rollup >> word;) {
        long kib = 0;
        if (word == "Private_Dirty:" && rollup >> kib)
            return kib;
    }
    return -1;
}

long plugin_process::descriptors() const {
    return std::distance(fs::directory_iterator("/proc/" + std::to_string(pid_) + "/fd"), {});
}

long plugin_process::mappings() const {
    std::ifstream maps("/proc/" + std::to_string(pid_) + "/maps");
    return static_cast<long>(std::count(std::istreambuf_iterator<char>(maps), {}, '\n'));
}

void let_register(line& to) {
    require(holds(to.answer(), "<method>register</method>"), "a plugin registers first");
    require(holds(to.answer(), "<method>activate</method>"), "then it goes active");
}

void live_whole_life(line& with) {
    const auto change = [&](const char* oper) {
        return with.request("publish", "<type>config</type><session-id>1</session-id><callback>1"
                                       "</callback><info><priority>1</priority><path>/c[k=\"x\"]"
                                       "</path><oper-type>" +
                                           std::string(oper) + "</oper-type></info>");
    };
    let_register(with);
    require(holds(change("1"), "<result/>"), "a change is taken");
    require(holds(change("2"), "<message>refused</message>"), "a deletion is refused");
    const std::string state = with.request(
        "subscribe", "<session-id>1</session-id><callback>2</callback><path>/s</path>");
    require(holds(state, "<s/>"), "the status is told: " + state);
    const std::string came =
        with.request("publish", "<type>operate</type><session-id>1</session-id>"
                                "<callback>3</callback><info><v>1</v></info>");
    require(holds(came, "<v>1</v>"), "the input comes back: " + came);
    (void)with.request("kickoff", "");
}

} // namespace stress
