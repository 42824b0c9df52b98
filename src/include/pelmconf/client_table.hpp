/**
 * @file client_table.hpp
 * The table of the clients of SSH servers, which all processes of the device share.
 */
#ifndef PELMCONF_CLIENT_TABLE_HPP
#define PELMCONF_CLIENT_TABLE_HPP

#include "error.hpp"

#include <conf_misc.h>
#include <unistd.h>

namespace pelmconf {
inline namespace PELMCONF_MODE {

/**
 * The table of whoever creates it, and the calls of all who use it. Move-only; one that was moved
 * from removes nothing, and neither does the copy in a child made by fork().
 */
class client_table {
public:
    /**
     * Creates the table.
     *
     * @return its owner, at whose end it goes. Fails as conf_clishm_create(); when there was a table
     *         already that is removed: try again
     */
    static or_error<client_table> create(int slots) {
        if (conf_clishm_create(slots) != 0)
            return detail::failed<client_table>(
                error(-1, "The table of clients cannot be made; syslog says why."));
        return client_table();
    }
    /** What was moved from removes nothing. */
    client_table(client_table&& other) noexcept : owner_(std::exchange(other.owner_, 0)) {}
    /** As above. */
    client_table& operator=(client_table&& other) noexcept {
        std::swap(owner_, other.owner_);
        return *this;
    }
    ~client_table() {
        if (owner_ == getpid())
            conf_clishm_destroy();
    }
    /** Leaves the table where it is, at the end of this object too. */
    void release() noexcept { owner_ = 0; }

    /** Stores a record. Fails when there is no free slot or no table. */
    static or_error<void> save(conf_cli_info_t client) {
        return detail::succeeded(conf_save_client_info(&client) == 0,
                                 "The client cannot be stored; syslog says why.");
    }
    /**
     * @return the first record of an SSH server process; nothing when there is none, or no table
     */
    static std::optional<conf_cli_info_t> find(pid_t server) {
        conf_cli_info_t found{};
        if (conf_get_client_info(server, &found) != 0)
            return std::nullopt;
        return found;
    }
    /** Frees the first slot of an SSH server process, if there is one. */
    static void remove(pid_t server) noexcept { conf_free_client_info(server); }

private:
    client_table() = default;

    pid_t owner_ = getpid(); // 0 for nobody
};

} // namespace PELMCONF_MODE
} // namespace pelmconf

#endif
