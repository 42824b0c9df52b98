/**
 * @file client_table.hpp
 * The table of the clients of SSH servers, which all processes of the device share.
 */
#ifndef PELMCONF_CLIENT_TABLE_HPP
#define PELMCONF_CLIENT_TABLE_HPP

#include "error.hpp"

#include <conf_misc.h>

namespace pelmconf {
inline namespace PELMCONF_MODE {

/**
 * The table of whoever creates it, and the calls of all who use it. Move-only; one that was moved
 * from removes nothing.
 */
class client_table {
public:
    /**
     * Creates the table.
     *
     * @return its owner, at whose end it goes Fails as conf_clishm_create(); when there was a table
     *         already that is removed: try again
     */
    static or_error<client_table> create(int slots) {
        if (conf_clishm_create(slots) != 0)
            return detail::failed<client_table>(
                error(-1, "The table of clients cannot be made; syslog says why."));
        return client_table();
    }
    /** What was moved from removes nothing. */
    client_table(client_table&& other) noexcept : owns_(std::exchange(other.owns_, false)) {}
    /** As above. */
    client_table& operator=(client_table&& other) noexcept {
        std::swap(owns_, other.owns_);
        return *this;
    }
    ~client_table() {
        if (owns_)
            conf_clishm_destroy();
    }
    /** Leaves the table where it is, at the end of this object too. */
    void release() noexcept { owns_ = false; }

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

    bool owns_ = true;
};

} // namespace PELMCONF_MODE
} // namespace pelmconf

#endif
