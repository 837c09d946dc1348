// SPDX-License-Identifier: MIT
// DHCP servers for measuring against: one thread that answers every DISCOVER on its side of the cables at once.
#pragma once

#include <atomic>
#include <string>
#include <thread>
#include <vector>

class t_dhcp_peers {
public:
    explicit t_dhcp_peers(const std::vector<std::string> &interfaces);
    ~t_dhcp_peers();
    t_dhcp_peers(const t_dhcp_peers &) = delete;
    t_dhcp_peers &operator=(const t_dhcp_peers &) = delete;

private:
    void serve();
    std::vector<int> sockets_;
    std::atomic<bool> stop_ = false;
    std::thread thread_;
};
