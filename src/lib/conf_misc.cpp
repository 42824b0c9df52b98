#include "conf_misc.h"

#include "support/bounded.h"
#include "support/division.h"
#include "support/report.h"

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <limits>
#include <sys/epoll.h>
#include <sys/time.h>

using namespace conf;

namespace {

int set_interest(int epfd, int action, int fd, int event, int para) noexcept {
    epoll_event interest;
    wipe(&interest, sizeof interest);
    interest.events = EPOLLET | EPOLLRDHUP;
    if ((event & CONF_EVENT_IN) != 0)
        interest.events |= EPOLLIN;
    if ((event & CONF_EVENT_OUT) != 0)
        interest.events |= EPOLLOUT;
    interest.data.u32 = static_cast<u32_t>(para);
    return epoll_ctl(epfd, action, fd, &interest);
}

bool is_space(char byte) noexcept { return std::isspace(static_cast<unsigned char>(byte)) != 0; }

} // namespace

int conf_non_block_fd(int fd) {
    const int flags = fcntl(fd, F_GETFL);
    if (flags < 0)
        return syslog_failure("[ERROR] Get options of fd(%d) failed(%m).\n", fd);
    if (fcntl(fd, F_SETFL, flags | O_NONBLOCK) < 0)
        return syslog_failure("[ERROR] Set options of fd(%d) failed(%m).\n", fd);
    return 0;
}

int conf_event_add(int epfd, int fd, int event, int para) {
    if (set_interest(epfd, EPOLL_CTL_ADD, fd, event, para) < 0)
        return syslog_failure("[ERROR] Add event(fd=%d, event=%d, para=%d) failed(%m).\n", fd,
                              event, para);
    return 0;
}

int conf_event_reset(int epfd, int fd, int event, int para) {
    if (set_interest(epfd, EPOLL_CTL_MOD, fd, event, para) < 0)
        return syslog_failure("[ERROR] Reset event(fd=%d, event=%d, para=%d) failed(%m).\n", fd,
                              event, para);
    return 0;
}

char* conf_strip(const char* str) {
    if (str == nullptr)
        return nullptr;
    const char* end = str + strlen(str);
    while (end != str && is_space(end[-1]))
        --end;
    if (end == str)
        return nullptr;
    while (is_space(*str))
        ++str;
    const auto length = static_cast<std::size_t>(end - str);
    auto* copy = static_cast<char*>(std::malloc(length + 1));
    if (copy == nullptr)
        return nullptr;
    (void)memmove_s(copy, length + 1, str, length);
    copy[length] = '\0';
    return copy;
}

long long conf_get_unix_time(void) {
    timeval now{};
    (void)gettimeofday(&now, nullptr); // cannot fail for an area of our own
    return static_cast<long long>(now.tv_sec) * 1000000 + now.tv_usec;
}

const char* conf_get_node_content(xmlNode* node) {
    if (node == nullptr || (node->type != XML_ELEMENT_NODE && node->type != XML_ATTRIBUTE_NODE))
        return nullptr;
    const xmlNode* first = node->children; // at the same place in an attribute
    if (first == nullptr || first->type != XML_TEXT_NODE)
        return nullptr;
    return reinterpret_cast<const char*>(first->content);
}

char* conf_itoa(long i, char* buf, unsigned int size) {
    if (buf == nullptr)
        return nullptr;
    // Each message holds a number or two, and nothing else that an untroubled process says needs the
    // number formats of printf and their pages.
    char digits[std::numeric_limits<long>::digits10 + 3]; // one more, the sign and the terminator
    char* first = std::end(digits);
    *--first = '\0';
    auto rest = static_cast<unsigned long>(i);
    if (i < 0)
        rest = -rest;
    do {
        const auto tens = quotient_of(rest, 10UL);
        *--first = static_cast<char>('0' + (rest - tens * 10));
        rest = tens;
    } while (rest != 0);
    if (i < 0)
        *--first = '-';
    (void)strncpy_s(buf, size, first, size - 1); // what does not fit is cut
    return buf;
}
