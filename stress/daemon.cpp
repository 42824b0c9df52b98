#include "daemon.h"

#include "check.h"
#include "conf_plugin.h"
#include "support/peer.h"

#include <algorithm>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace stress {
namespace {

// What stands between two tags, of the last such element.
std::string last_element(const std::string& body, const std::string& name) {
    const std::size_t begin = body.rfind("<" + name + ">") + name.size() + 2;
    const std::size_t end = body.find("</", begin);
    require(begin < body.size() && end != body.npos, "a message without " + name + ": " + body);
    return body.substr(begin, end - begin);
}

} // namespace

bool holds(std::string_view text, std::string_view part) { return text.find(part) != text.npos; }

std::string request_text(const std::string& method, const std::string& params, int id) {
    return frame_of("<rpc><method>" + method + "</method><params>" + params + "</params><id>" +
                    std::to_string(id) + "</id></rpc>");
}

service::service() : listener_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un place{};
    place.sun_family = AF_UNIX;
    std::strcpy(place.sun_path, g_conf_plugin_socket);
    (void)unlink(place.sun_path);
    const bool is_there =
        bind(listener_.get(), reinterpret_cast<sockaddr*>(&place), sizeof place) == 0;
    require(is_there && listen(listener_.get(), 8) == 0, "the daemon's socket can be made");
}

service::~service() { (void)unlink(g_conf_plugin_socket); }

int service::accept() const { return accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC); }

void line::send(std::string_view bytes) {
    const bool is_last = bytes.size() >= out_left_;
    bytes = bytes.substr(0, out_left_);
    while (!bytes.empty()) {
        const ssize_t count = ::send(sock_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count <= 0)
            throw hung_up();
        bytes.remove_prefix(static_cast<std::size_t>(count));
        out_ += static_cast<std::size_t>(count);
        out_left_ -= static_cast<std::size_t>(count);
    }
    if (is_last)
        throw hung_up();
}

std::string line::read(std::size_t count) {
    std::string bytes(std::min(count, in_left_), '\0');
    for (std::size_t have = 0; have < bytes.size();) {
        const ssize_t more = recv(sock_.get(), &bytes[have], bytes.size() - have, 0);
        if (more <= 0)
            throw hung_up();
        have += static_cast<std::size_t>(more);
    }
    in_ += bytes.size();
    in_left_ -= bytes.size();
    if (in_left_ == 0)
        throw hung_up();
    return bytes;
}

std::string line::receive() {
    msg_head_t header;
    const std::string bytes = read(sizeof header);
    std::memcpy(&header, bytes.data(), sizeof header);
    require(header.magic == CONF_MSG_MAGIC, "frames begin with their mark");
    return read(header.length);
}

std::string line::answer(const std::string& outcome) {
    std::string body = receive();
    send(frame_of("<reply>" + outcome + "<id>" + last_element(body, "id") + "</id></reply>"));
    return body;
}

std::string line::next_answer() {
    for (;;) {
        std::string body = receive();
        if (body.starts_with("<reply>"))
            return body;
        const char* const found =
            holds(body, "<method>pull</method>") ? "<data><v>1</v></data>" : "";
        send(frame_of("<reply><result>" + std::string(found) + "</result><id>" +
                      last_element(body, "id") + "</id></reply>"));
    }
}

std::string line::request(const std::string& method, const std::string& params) {
    const std::string id = std::to_string(++next_id_);
    send(request_text(method, params, next_id_));
    std::string body = next_answer();
    require(last_element(body, "id") == id, "an answer has its request's id " + id + ": " + body);
    return body;
}

void line::request_amid(const std::string& method, const std::string& params) {
    const std::string id = std::to_string(++next_id_);
    send(request_text(method, params, next_id_));
    while (last_element(next_answer(), "id") != id) {
    }
}

} // namespace stress
