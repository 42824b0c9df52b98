#include "catcher.h"

#include "model/problem.h"
#include "model/xml.h"

#include <array>
#include <cerrno>
#include <conf_plugin.h>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <new>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace pelmtest {

using namespace pelmsim;

namespace {

[[noreturn]] void fail(const char* what) {
    throw problem(std::string(what) + ": " + std::strerror(errno));
}

void lead_to(const std::string& place) {
    (void)std::snprintf(g_conf_notifier_socket, sizeof g_conf_notifier_socket, "%s", place.c_str());
}

// A directory of its own for as long as a socket needs a place.
class short_lived_directory {
public:
    short_lived_directory() : name_(std::filesystem::temp_directory_path() / "pelmtest-XXXXXX") {
        if (mkdtemp(name_.data()) == nullptr)
            fail("No directory for the notifier's socket");
    }
    short_lived_directory(const short_lived_directory&) = delete;
    short_lived_directory& operator=(const short_lived_directory&) = delete;
    ~short_lived_directory() {
        (void)unlink(file().c_str());
        (void)rmdir(name_.c_str());
    }
    std::string file() const { return name_ + "/s"; }

private:
    std::string name_;
};

// Signals are the business of the test's own threads.
class no_signals {
public:
    no_signals() {
        sigset_t all;
        sigfillset(&all);
        (void)pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    no_signals(const no_signals&) = delete;
    no_signals& operator=(const no_signals&) = delete;
    ~no_signals() { (void)pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

private:
    sigset_t before_;
};

// The bytes of the frame at the front when it has arrived whole, or 0.
std::size_t front_frame(const std::string& received) {
    msg_head_t header;
    if (received.size() < sizeof header)
        return 0;
    std::memcpy(&header, received.data(), sizeof header);
    const std::size_t bytes = sizeof header + header.length;
    return received.size() < bytes ? 0 : bytes;
}

bool is_request(const std::string& frame) {
    return frame.compare(sizeof(msg_head_t), 4, "<rpc") == 0;
}

unique_node parse_frame(const std::string& frame) {
    conf_buffer_t* buffer = conf_buffer_create(static_cast<int>(frame.size()));
    if (buffer == nullptr)
        throw std::bad_alloc();
    unique_node body;
    if (conf_buffer_append(&buffer, const_cast<char*>(frame.data()),
                           static_cast<int>(frame.size())) == 0)
        body.reset(plugin_parse_message(&buffer));
    conf_buffer_destroy(buffer);
    return body;
}

} // namespace

std::string frame_of(const xmlNode* body) {
    const std::string text = compact_node(body);
    const msg_head_t header{CONF_MSG_MAGIC, static_cast<u32_t>(text.size()), 0, 0};
    return std::string(reinterpret_cast<const char*>(&header), sizeof header) + text;
}

catcher::catcher(unique_fd daemon_end)
    : process_(getpid()),
      standing_place_(g_conf_notifier_socket),
      daemon_end_(std::move(daemon_end)),
      stop_(eventfd(0, EFD_CLOEXEC)) {
    if (!stop_)
        fail("No event to end the kit's thread by");
    open_notifier();
    start();
    lead_notifications();
}

// In a child that was forked there is no such thread.
catcher::~catcher() {
    if (getpid() != process_)
        return;
    lead_to(standing_place_);
    (void)eventfd_write(stop_.get(), 1);
    (void)pthread_join(reader_, nullptr);
}

// Taken off the file system at once, the socket is found by its descriptor alone.
void catcher::open_notifier() {
    notifier_.reset(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const short_lived_directory place;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (place.file().size() >= sizeof address.sun_path)
        throw problem("TMPDIR is too long for the notifier's socket: " + place.file());
    place.file().copy(address.sun_path, sizeof address.sun_path - 1);
    if (!notifier_ ||
        bind(notifier_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) < 0)
        fail("No socket for notifications");
    notifier_file_.reset(open(address.sun_path, O_PATH | O_CLOEXEC));
    if (!notifier_file_)
        fail("The socket for notifications is not there");
}

void catcher::start() {
    const no_signals meanwhile;
    const auto run = [](void* self) -> void* {
        static_cast<catcher*>(self)->read_until_told();
        return nullptr;
    };
    errno = pthread_create(&reader_, nullptr, run, this);
    if (errno != 0)
        fail("No thread for the kit");
}

void catcher::lead_notifications() const {
    lead_to("/proc/self/fd/" + std::to_string(notifier_file_.get()));
}

void catcher::read_until_told() {
    std::array<pollfd, 3> watched{
        {{daemon_end_.get(), POLLIN, 0}, {notifier_.get(), POLLIN, 0}, {stop_.get(), POLLIN, 0}}};
    while (watched[2].revents == 0) {
        if (poll(watched.data(), watched.size(), -1) < 0 && errno != EINTR)
            return;
        const std::lock_guard hold(lock_);
        read_all();
        if (has_hung_up_)
            watched[0].fd = -1;
    }
}

void catcher::read_all() {
    read_connection();
    read_notifications();
}

void catcher::read_connection() {
    std::array<char, 65536> piece;
    ssize_t count;
    while ((count = recv(daemon_end_.get(), piece.data(), piece.size(), MSG_DONTWAIT)) > 0)
        received_.append(piece.data(), static_cast<std::size_t>(count));
    has_hung_up_ = count == 0;
    if (const std::size_t bytes = front_frame(received_); bytes > 0 && is_request(received_))
        answer_request();
}

// A callback that activates or deactivates its plugin waits for the daemon's consent.
void catcher::answer_request() {
    const unique_node request = parse_frame(received_.substr(0, front_frame(received_)));
    received_.erase(0, front_frame(received_));
    const unique_node answer(plugin_build_reply_message(new_element("result").release(),
                                                        plugin_get_msgid(request.get())));
    const std::string frame = frame_of(answer.get());
    (void)send(daemon_end_.get(), frame.data(), frame.size(), MSG_NOSIGNAL);
}

void catcher::read_notifications() {
    ssize_t size;
    while ((size = recv(notifier_.get(), nullptr, 0, MSG_PEEK | MSG_TRUNC)) >= 0) {
        std::string text(static_cast<std::size_t>(size), '\0');
        (void)recv(notifier_.get(), text.data(), text.size(), 0);
        if (text.ends_with('\0'))
            text.pop_back();
        notifications_.push_back(std::move(text));
    }
}

unique_node catcher::take_answer() {
    const std::lock_guard hold(lock_);
    read_all();
    const std::size_t bytes = front_frame(received_);
    if (bytes == 0)
        return nullptr;
    unique_node answer = parse_frame(received_.substr(0, bytes));
    received_.erase(0, bytes);
    return answer;
}

std::vector<std::string> catcher::take_notifications() {
    const std::lock_guard hold(lock_);
    read_all();
    return std::exchange(notifications_, {});
}

} // namespace pelmtest
