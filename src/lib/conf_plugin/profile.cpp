#include "support/profile.h"
#include "conf_plugin.h"
#include "conf_plugin/log.h"
#include "support/bounded.h"
#include "support/handle.h"
#include "support/socket.h"

#include <algorithm>
#include <cJSON.h>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/mman.h>
#include <sys/stat.h>

char g_conf_agent_socket[256] = "/var/tmp/pelmd.agent.socket";
char g_conf_plugin_socket[256] = "/var/tmp/pelmd.plugin.socket";
char g_conf_notifier_socket[256] = "/var/tmp/pelmd.notifier.socket";

namespace conf {
namespace {

constexpr char agent_file[] = "pelmd.agent.socket";
constexpr char plugin_file[] = "pelmd.plugin.socket";
constexpr char notifier_file[] = "pelmd.notifier.socket";
constexpr std::size_t longest_file =
    std::max({sizeof agent_file, sizeof plugin_file, sizeof notifier_file}) - 1;

using unique_json = unique_handle<freed_by<cJSON, cJSON_Delete>>;

// A whole file, read-only. Nothing terminates its text.
class file_mapping {
public:
    file_mapping(int fd, std::size_t bytes) noexcept
        : address_(mmap(nullptr, bytes, PROT_READ, MAP_PRIVATE, fd, 0)), bytes_(bytes) {}
    file_mapping(const file_mapping&) = delete;
    file_mapping& operator=(const file_mapping&) = delete;
    ~file_mapping() {
        if (*this)
            (void)munmap(address_, bytes_);
    }
    explicit operator bool() const noexcept { return address_ != MAP_FAILED; }
    std::string_view text() const noexcept { return {static_cast<const char*>(address_), bytes_}; }

private:
    void* address_;
    std::size_t bytes_;
};

// Shows where the parser stopped, as far as the line of the log has room for it.
failure parse_failure(std::string_view rest) noexcept {
    constexpr std::size_t room = 255 - (sizeof "Json parse error()." - 1);
    return plugin_failure("Json parse error(%.*s).", static_cast<int>(std::min(rest.size(), room)),
                          rest.data());
}

bool is_working_dir(const cJSON* member) noexcept {
    return member->string != nullptr && std::strcmp(member->string, "working-dir") == 0 &&
           (member->type & 0xFF) == cJSON_String && member->valuestring != nullptr;
}

bool fits_an_address(const char* directory) noexcept {
    return std::strlen(directory) + 1 + longest_file <= longest_socket_path;
}

// Finds the directory that counts, the last one named; null when there is none.
int find_working_dir(const cJSON* profile, const char** directory) noexcept {
    *directory = nullptr;
    for (const cJSON* member = profile->child; member != nullptr; member = member->next) {
        if (!is_working_dir(member))
            continue;
        if (!fits_an_address(member->valuestring))
            return plugin_failure("The working-dir(%.200s) is too long for a socket address.",
                                  member->valuestring);
        *directory = member->valuestring;
    }
    return 0;
}

void set_path(char (&path)[256], const char* directory, const char* file) noexcept {
    (void)snprintf_s(path, sizeof path, sizeof path - 1, "%s/%s", directory, file);
}

int apply_working_dir(const char* directory, char** workding_dir) noexcept {
    if (workding_dir != nullptr) {
        unique_string copy{strdup(directory)};
        if (!copy)
            return plugin_failure("Copy the working-dir(%s) failed(%m).", directory);
        std::free(*workding_dir);
        *workding_dir = copy.release();
    }
    set_path(g_conf_agent_socket, directory, agent_file);
    set_path(g_conf_plugin_socket, directory, plugin_file);
    set_path(g_conf_notifier_socket, directory, notifier_file);
    return 0;
}

} // namespace
} // namespace conf

using namespace conf;

int conf_load_config(char** workding_dir) {
    unique_fd file{open(profile_path, O_RDONLY | O_CLOEXEC)};
    if (!file)
        return plugin_failure("Open default-pelmd-profile(%s) failed(%m).", profile_path);
    struct stat status;
    if (fstat(file.get(), &status) < 0 || status.st_size == 0)
        return plugin_failure("Pelmd's default-pelmd-profile is invalid.");
    const file_mapping mapping{file.get(), static_cast<std::size_t>(status.st_size)};
    if (!mapping)
        return plugin_failure("Mapping default-pelmd-profile to memory failed(%m).");
    const std::string_view text = mapping.text();
    const char* stop = nullptr;
    const unique_json profile{cJSON_ParseWithLengthOpts(text.data(), text.size(), &stop, 0)};
    if (!profile)
        return parse_failure({stop, static_cast<std::size_t>(text.end() - stop)});
    const char* directory;
    if (find_working_dir(profile.get(), &directory) < 0)
        return -1;
    return directory != nullptr ? apply_working_dir(directory, workding_dir) : 0;
}
