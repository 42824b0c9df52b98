/*
 * An agent: it opens a session with the daemon, asks what the daemon can do, subscribes to
 * notifications, and prints every element that comes, until the daemon hangs up.
 */
#include <conf_agent.h>

#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

/* A socket takes as many bytes at a time as it has room for. */
static int write_all(int sock, conf_buffer_t* out) {
    while (conf_buffer_length(out) > 0) {
        ssize_t written = write(sock, conf_buffer_data(out), (size_t)conf_buffer_length(out));
        if (written > 0)
            conf_buffer_remove(out, 0, (int)written);
        else if (errno != EINTR)
            return -1;
    }
    return 0;
}

static int ask(int sock) {
    conf_buffer_t* out = conf_buffer_create(0);
    int result = -1;

    if (conf_agent_build_session(&out, 1) == 0 && conf_agent_build_capability(&out, 2) == 0 &&
        conf_agent_build_notify_rpc(&out, 3) == 0)
        result = write_all(sock, out);
    conf_buffer_destroy(out);
    return result;
}

/* Bytes of the frame that the buffer begins with; 0 while some are missing, -1 when it is none. */
static int frame_bytes(conf_buffer_t* in) {
    msg_head_t head;

    if (conf_buffer_length(in) < (int)sizeof head)
        return 0;
    memcpy(&head, conf_buffer_data(in),
           sizeof head); /* where it lies need not suit an msg_head_t */
    if (head.magic != CONF_MSG_MAGIC || head.length > CONF_MSG_MAX_LENGTH)
        return -1;
    int bytes = (int)(sizeof head + head.length);
    return conf_buffer_length(in) < bytes ? 0 : bytes;
}

/* Takes the whole frames out of the buffer; what stays is the beginning of the next one. */
static int print_frames(conf_buffer_t* in) {
    const int head_bytes = (int)sizeof(msg_head_t);
    int bytes;

    while ((bytes = frame_bytes(in)) > 0) {
        printf("%.*s\n", bytes - head_bytes, (char*)conf_buffer_data(in) + head_bytes);
        conf_buffer_remove(in, 0, bytes);
    }
    return bytes;
}

/* A read brings any number of bytes: a part of a frame, or several frames. 0 at the end. */
static int print_all(int sock) {
    conf_buffer_t* in = conf_buffer_create(0);
    char chunk[4096];
    ssize_t got;

    while ((got = read(sock, chunk, sizeof chunk)) != 0) {
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0 || conf_buffer_append(&in, chunk, (int)got) < 0 || print_frames(in) < 0)
            break;
    }
    conf_buffer_destroy(in);
    return got == 0 ? 0 : -1;
}

int main(void) {
    (void)signal(SIGPIPE, SIG_IGN); /* a dying daemon is an error to report, not an end */
    (void)setvbuf(stdout, NULL, _IOLBF, 0);

    int sock = conf_agent_init();
    if (sock < 0) {
        (void)fprintf(stderr, "There is no daemon to talk to; syslog says why.\n");
        return 1;
    }
    int result = ask(sock) == 0 && print_all(sock) == 0 ? 0 : 1;
    conf_agent_exit(sock);
    if (result != 0)
        (void)fprintf(stderr, "The conversation with the daemon broke off.\n");
    return result;
}
