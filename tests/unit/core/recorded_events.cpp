// SPDX-License-Identifier: MIT
#include "tests/unit/core/recorded_events.h"

#include "adapters/state_events.h"
#include "model/chronicle.h"

std::vector<std::string> recorded_events;

static std::string number_of_cycle()
{
    return std::to_string(newest_cycle()->number);
}

void announce_link(const t_device *dev)
{
    recorded_events.push_back(std::string("link ") + dev->name + (dev->link_active ? " up " : " down ") +
                              std::to_string(dev->notes.link_changes));
}

void announce_cycle(bool begins)
{
    recorded_events.push_back("cycle " + number_of_cycle() + (begins ? " begins" : " ends"));
}

void announce_verdict()
{
    recorded_events.push_back("verdict " + number_of_cycle());
}

void announce_swap(const t_device *dev, int status, int pause_s)
{
    recorded_events.push_back(std::string("swap ") + dev->name + " " + std::to_string(status) + " " +
                              std::to_string(pause_s));
}

void announce_ban(const t_device *dev, int32_t seconds)
{
    recorded_events.push_back(std::string("ban ") + dev->name + " " + std::to_string(seconds));
}
