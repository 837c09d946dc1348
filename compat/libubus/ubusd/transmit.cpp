// SPDX-License-Identifier: MIT
// Frames to a client. The daemon never waits for one: a client that does not read loses frames, not the bus.
#include "bus.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/uio.h>

namespace ubusd {
namespace {

constexpr size_t QUEUE_LIMIT_BYTES = 1048576;

struct queued_frame {
    list_head list;
    size_t length;
    size_t sent;
    char bytes[];
};

// Bytes written, 0 if the socket is full; -1 if the client is gone.
ssize_t write_some(client &to, iovec *parts, size_t count)
{
    msghdr message = {};
    message.msg_iov = parts;
    message.msg_iovlen = static_cast<decltype(message.msg_iovlen)>(count); // an int on some C libraries
    ssize_t written;
    do {
        written = sendmsg(to.sock.fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    } while (written < 0 && errno == EINTR);
    return written < 0 && errno == EAGAIN ? 0 : written;
}

// Its hang-up removes it; until then what it sent earlier is still served.
void stop_sending(client &to)
{
    to.can_send = false;
    drop_queue(to);
}

// Half a frame is out and the rest cannot follow: the stream is of no more use.
void break_off(client &to)
{
    stop_sending(to);
    shutdown(to.sock.fd, SHUT_RDWR);
}

queued_frame *copy_rest(const iovec *parts, size_t already_sent)
{
    size_t total = parts[0].iov_len + parts[1].iov_len;
    auto *frame = static_cast<queued_frame *>(malloc(sizeof(queued_frame) + total));
    if (!frame) {
        return nullptr;
    }
    memcpy(frame->bytes, parts[0].iov_base, parts[0].iov_len);
    memcpy(frame->bytes + parts[0].iov_len, parts[1].iov_base, parts[1].iov_len);
    frame->length = total;
    frame->sent = already_sent;
    return frame;
}

void enqueue(client &to, const iovec *parts, size_t already_sent)
{
    queued_frame *frame = copy_rest(parts, already_sent);
    if (!frame) {
        if (already_sent > 0) {
            break_off(to);
        }
        return;
    }
    list_add_tail(&frame->list, &to.queue);
    to.queued_bytes += frame->length - frame->sent;
    uloop_fd_add(&to.sock, ULOOP_READ | ULOOP_WRITE);
}

void dequeue(client &to, queued_frame *frame)
{
    to.queued_bytes -= frame->length - frame->sent;
    list_del(&frame->list);
    free(frame);
}

} // namespace

void send_frame(client &to, const ubus_frame::header &head, const blob_attr *body)
{
    if (!to.can_send || !body) {
        return;
    }
    ubus_msghdr wire = ubus_frame::encode(head);
    iovec parts[] = {{.iov_base = &wire, .iov_len = sizeof(wire)},
                     {.iov_base = const_cast<blob_attr *>(body), .iov_len = blob_raw_len(body)}};
    size_t total = parts[0].iov_len + parts[1].iov_len;
    if (!list_empty(&to.queue)) {
        if (to.queued_bytes + total <= QUEUE_LIMIT_BYTES) {
            enqueue(to, parts, 0);
        }
        return;
    }
    ssize_t written = write_some(to, parts, 2);
    if (written < 0) {
        stop_sending(to);
    } else if (static_cast<size_t>(written) < total) {
        enqueue(to, parts, static_cast<size_t>(written));
    }
}

void flush_queue(client &to)
{
    while (!list_empty(&to.queue)) {
        queued_frame *frame = list_first_entry(&to.queue, queued_frame, list);
        iovec rest = {.iov_base = frame->bytes + frame->sent, .iov_len = frame->length - frame->sent};
        ssize_t written = write_some(to, &rest, 1);
        if (written < 0) {
            stop_sending(to);
            return;
        }
        frame->sent += static_cast<size_t>(written);
        to.queued_bytes -= static_cast<size_t>(written);
        if (frame->sent < frame->length) {
            return;
        }
        dequeue(to, frame);
    }
    uloop_fd_add(&to.sock, ULOOP_READ);
}

void drop_queue(client &to)
{
    while (!list_empty(&to.queue)) {
        dequeue(to, list_first_entry(&to.queue, queued_frame, list));
    }
    if (to.sock.registered) {
        uloop_fd_add(&to.sock, ULOOP_READ);
    }
}

} // namespace ubusd
