// SPDX-License-Identifier: MIT
// Bytes between a client and the bus daemon: connecting, whole frames out, whole frames in.
#include "library.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

namespace ubus_library {
namespace {

// So many frames in a row must fit into the initial buffer before a larger one is given back.
constexpr int SMALL_FRAMES_BEFORE_REDUCTION = 32;

using ubus_frame::HEADER_BYTES;
using ubus_frame::SMALLEST_FRAME_BYTES;

bool wait_until_writable(int fd)
{
    pollfd writable = {.fd = fd, .events = POLLOUT, .revents = 0};
    return poll(&writable, 1, -1) >= 0 || errno == EINTR;
}

void advance(msghdr &message, size_t written)
{
    while (message.msg_iovlen > 0 && written >= message.msg_iov->iov_len) {
        written -= message.msg_iov->iov_len;
        message.msg_iov++;
        message.msg_iovlen--;
    }
    if (message.msg_iovlen > 0) {
        message.msg_iov->iov_base = static_cast<char *>(message.msg_iov->iov_base) + written;
        message.msg_iov->iov_len -= written;
    }
}

bool write_all(int fd, iovec *parts, size_t count)
{
    msghdr message = {};
    message.msg_iov = parts;
    message.msg_iovlen = static_cast<decltype(message.msg_iovlen)>(count); // an int on some C libraries
    while (message.msg_iovlen > 0) {
        ssize_t written = sendmsg(fd, &message, MSG_NOSIGNAL);
        if (written >= 0) {
            advance(message, static_cast<size_t>(written));
        } else if (errno == EAGAIN) {
            if (!wait_until_writable(fd)) {
                return false;
            }
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

bool ensure_capacity(ubus_context *ctx, size_t blob_length)
{
    if (ctx->msgbuf.data && blob_length <= ctx->msgbuf_data_len) {
        return true;
    }
    size_t chunks = (blob_length + UBUS_MSG_CHUNK_SIZE - 1) / UBUS_MSG_CHUNK_SIZE;
    size_t capacity = chunks * UBUS_MSG_CHUNK_SIZE;
    void *grown = realloc(ctx->msgbuf.data, capacity);
    if (!grown) {
        return false;
    }
    ctx->msgbuf.data = static_cast<blob_attr *>(grown);
    ctx->msgbuf_data_len = static_cast<uint32_t>(capacity);
    return true;
}

// How many bytes the frame at hand has, as far as is known; 0 if its header is not acceptable.
size_t frame_size(const ubus_context *ctx)
{
    if (ctx->internal.state.received < SMALLEST_FRAME_BYTES) {
        return SMALLEST_FRAME_BYTES;
    }
    size_t blob_length = blob_raw_len(ctx->msgbuf.data);
    if (ctx->msgbuf.hdr.version != ubus_frame::VERSION || !ubus_frame::is_valid_blob_length(blob_length)) {
        return 0;
    }
    return HEADER_BYTES + blob_length;
}

// What read() would return for the rest of a frame of that size.
ssize_t read_rest(ubus_context *ctx, size_t size)
{
    size_t received = ctx->internal.state.received;
    char *head = reinterpret_cast<char *>(&ctx->msgbuf.hdr);
    char *blob = reinterpret_cast<char *>(ctx->msgbuf.data);
    if (received >= HEADER_BYTES) {
        return read(ctx->sock.fd, blob + (received - HEADER_BYTES), size - received);
    }
    iovec parts[] = {{.iov_base = head + received, .iov_len = HEADER_BYTES - received},
                     {.iov_base = blob, .iov_len = size - HEADER_BYTES}};
    return readv(ctx->sock.fd, parts, 2);
}

void take_frame(ubus_context *ctx, received_frame &frame)
{
    frame = {.head = ubus_frame::decode(ctx->msgbuf.hdr), .data = ctx->msgbuf.data, .capacity = ctx->msgbuf_data_len};
    ctx->msgbuf.data = nullptr;
    ctx->msgbuf_data_len = 0;
    ctx->internal.state.received = 0;
}

} // namespace

int open_socket(const char *path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    size_t length = strlen(path);
    if (length >= sizeof(address.sun_path)) {
        return -1;
    }
    memcpy(address.sun_path, path, length);
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return -1;
    }
    if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) < 0) {
        close(fd);
        return -1;
    }
    return fd;
}

bool send_frame(ubus_context *ctx, const ubus_frame::header &head, const blob_attr *message)
{
    if (ctx->sock.fd < 0 || ctx->sock.eof) {
        return false;
    }
    ubus_msghdr wire = ubus_frame::encode(head);
    iovec parts[] = {{.iov_base = &wire, .iov_len = sizeof(wire)},
                     {.iov_base = const_cast<blob_attr *>(message), .iov_len = blob_raw_len(message)}};
    if (!write_all(ctx->sock.fd, parts, 2)) {
        give_up_connection(ctx);
        return false;
    }
    return true;
}

receive_result receive_frame(ubus_context *ctx, received_frame &frame)
{
    for (;;) {
        size_t size = frame_size(ctx);
        if (size == 0 || !ensure_capacity(ctx, size - HEADER_BYTES)) {
            return receive_result::connection_lost;
        }
        size_t &received = ctx->internal.state.received;
        if (received >= SMALLEST_FRAME_BYTES && received == size) {
            take_frame(ctx, frame);
            return receive_result::frame;
        }
        ssize_t count = read_rest(ctx, size);
        if (count > 0) {
            received += static_cast<size_t>(count);
        } else if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
            return receive_result::connection_lost;
        } else if (errno == EAGAIN) {
            return receive_result::nothing_yet;
        }
    }
}

void recycle_frame(ubus_context *ctx, received_frame &frame)
{
    bool is_small = blob_raw_len(frame.data) <= UBUS_MSG_CHUNK_SIZE;
    ctx->msgbuf_reduction_counter = is_small ? ctx->msgbuf_reduction_counter + 1 : 0;
    bool is_oversized = frame.capacity > UBUS_MSG_CHUNK_SIZE;
    bool is_unused = is_oversized && ctx->msgbuf_reduction_counter > SMALL_FRAMES_BEFORE_REDUCTION;
    if (ctx->msgbuf.data || is_unused) {
        free(frame.data);
    } else {
        ctx->msgbuf.data = frame.data;
        ctx->msgbuf_data_len = frame.capacity;
    }
    frame.data = nullptr;
}

void give_up_connection(ubus_context *ctx)
{
    ctx->sock.eof = true;
    shutdown(ctx->sock.fd, SHUT_RDWR);
}

void reset_receiver(ubus_context *ctx)
{
    free(ctx->msgbuf.data);
    ctx->msgbuf.data = nullptr;
    ctx->msgbuf_data_len = 0;
    ctx->msgbuf_reduction_counter = 0;
    ctx->internal.state.received = 0;
}

} // namespace ubus_library
