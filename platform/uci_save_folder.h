// SPDX-License-Identifier: MIT
// The folder in which changes of the configuration wait for their commit. It lies where anybody may create it, and the
// library trusts whoever did.
#pragma once

struct uci_context;

// Makes the save folder where there is none, and lets a new context forget it unless it is ours alone; an Error line
// says when it is somebody else's. False when memory is short.
bool uci_guard_save_folder(uci_context *context);

// The context sees and saves no changes that wait. False when memory is short.
bool uci_leave_save_folder(uci_context *context);

// Whether a change of the context can wait in its save folder. Where the usual one has no room, the context leaves it,
// unless changes of the package wait there already: they would count again afterwards.
bool uci_may_wait(uci_context *context, const char *package);

// A save folder for one commit of a context that has left the usual one; for any other context nothing is done.
class t_uci_own_save_folder {
public:
    explicit t_uci_own_save_folder(uci_context *context, const char *package);
    ~t_uci_own_save_folder();
    t_uci_own_save_folder(const t_uci_own_save_folder &) = delete;
    t_uci_own_save_folder &operator=(const t_uci_own_save_folder &) = delete;

    // False when it could not be made, or has no room; an Error line says so.
    bool is_ready() const { return ready_; }

private:
    char folder_[32];
    const char *package_; // borrowed
    bool ready_;
};
