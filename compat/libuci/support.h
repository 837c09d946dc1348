// SPDX-License-Identifier: MIT
// Scope guards, the error state of a context, and the frame around every public function.
#pragma once

#include <uci.h>

#include <cstdlib>
#include <memory>
#include <unistd.h>

struct uci_parse_context {
    const char *reason; // null unless the last error was found inside a text; static string
    int line;
    int byte;
};

namespace uci_impl {

struct free_memory {
    void operator()(void *p) const { free(p); }
};

template <typename T> using heap = std::unique_ptr<T, free_memory>;

// A descriptor owned by its scope.
class scoped_fd {
public:
    scoped_fd() = default;
    explicit scoped_fd(int fd) : fd_(fd) {}
    scoped_fd(const scoped_fd &) = delete;
    scoped_fd &operator=(const scoped_fd &) = delete;
    ~scoped_fd() { reset(); }

    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }
    void reset(int fd = -1)
    {
        if (fd_ >= 0)
            close(fd_);
        fd_ = fd;
    }

private:
    int fd_ = -1;
};

// Runs the body of a public function and keeps its result as the error of the context.
template <typename body_type> int guarded(uci_context *ctx, body_type body)
{
    if (ctx == nullptr)
        return UCI_ERR_INVAL;
    ctx->pctx->reason = nullptr;
    ctx->err = body();
    return ctx->err;
}

} // namespace uci_impl
