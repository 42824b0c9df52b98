#include "support/handle.h"

#include <cerrno>
#include <unistd.h>

namespace conf {

void fd_traits::close(int fd) noexcept {
    const int saved = errno;
    (void)::close(fd);
    errno = saved;
}

} // namespace conf
