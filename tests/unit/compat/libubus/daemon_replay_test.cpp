// SPDX-License-Identifier: MIT
// The daemon's side of the recorded conversations: the frames of all recorded clients go to ubusd, and its answers must
// be those recorded, apart from the ids it makes up.
#include "bus_fixture.h"
#include "tests/unit/support/own_place.h"

#include <fstream>
#include <poll.h>

namespace {

constexpr uid_t NOBODY = 65534;
constexpr uint8_t TYPE_INVOKE = 5, TYPE_UNSUBSCRIBE = 9, TYPE_NOTIFY = 10;
constexpr size_t PEER_OFFSET = 4;

// Recorded ids to those of this run, learned as they are first seen.
class t_id_map {
public:
    t_bytes to_live(t_bytes frame) const
    {
        for (size_t at = PEER_OFFSET; at + 4 <= frame.size(); at += 4) {
            if (is_recorded_id(word_at(frame, at))) {
                set_word_at(frame, at, ids_.at(word_at(frame, at)));
            }
        }
        return frame;
    }

    t_bytes to_recorded(t_bytes live, const t_bytes &recorded)
    {
        for (size_t at = PEER_OFFSET; at + 4 <= live.size() && at + 4 <= recorded.size(); at += 4) {
            uint32_t expected = word_at(recorded, at), found = word_at(live, at);
            if (is_recorded_id(expected) && ids_.try_emplace(expected, found).first->second == found) {
                EXPECT_GE(found, 1024U) << "an id of the daemon's own objects";
                set_word_at(live, at, expected);
            }
        }
        return live;
    }

    bool knows(uint32_t recorded) const { return ids_.count(recorded) != 0; }

private:
    std::map<uint32_t, uint32_t> ids_;
};

struct t_player {
    t_conversation script;
    t_connection connection;
    size_t next = 0;

    const t_step *step() const { return next < script.steps.size() ? &script.steps[next] : nullptr; }
};

// One conversation must not take a step before another has come to a certain one.
struct t_barrier {
    std::string waiting;
    size_t at_step;
    std::string other;
    size_t until_step;
};

struct t_case {
    std::string scenario;
    std::vector<t_barrier> barriers;
    std::vector<std::string> of_nobody; // labels of clients that do not run as root
};

std::ostream &operator<<(std::ostream &out, const t_case &which)
{
    return out << which.scenario;
}

class daemon_replay : public t_bus_test, public testing::WithParamInterface<t_case> {
protected:
    void restart_with_recorded_access_list()
    {
        const std::string start = "note: ACL file n.json: ";
        std::ofstream(folder_.path("n.json")) << load_note(GetParam().scenario, start);
        ASSERT_EQ(daemon_->stop(), 0);
        daemon_.emplace(socket_, folder_.path("."));
    }

    uid_t user_of(const t_conversation &script)
    {
        for (const std::string &label : GetParam().of_nobody) {
            if (script.name.compare(0, label.size() + 1, label + ".") == 0) {
                return NOBODY;
            }
        }
        return 0;
    }

    bool is_held(const t_player &player)
    {
        for (const t_barrier &barrier : GetParam().barriers) {
            if (barrier.waiting != player.script.name || barrier.at_step != player.next) {
                continue;
            }
            for (const t_player &other : players_) {
                if (other.script.name == barrier.other && other.next >= barrier.until_step) {
                    return false;
                }
            }
            return true;
        }
        return false;
    }

    // Whether a recorded client that is connected already, or the daemon, must send the next frame.
    bool is_owed_a_frame(const t_player &player)
    {
        const t_step *step = player.step();
        if (!step || step->kind == t_step::daemon_closes) {
            return step != nullptr;
        }
        if (step->kind != t_step::from_daemon) {
            return !is_held(player);
        }
        switch (frame_type(step->frame)) {
        case TYPE_INVOKE:
            return ids_.knows(frame_peer(step->frame));
        case TYPE_UNSUBSCRIBE: // what another client does brings these
        case TYPE_NOTIFY:
            return false;
        default:
            return true;
        }
    }

    void receive(t_player &player)
    {
        std::optional<t_bytes> live = player.connection.receive();
        const t_step *step = player.step();
        ASSERT_TRUE(step && step->kind == t_step::from_daemon)
            << player.script.name << " is sent " << (live ? to_hex(*live) : "the end") << " at step " << player.next;
        ASSERT_TRUE(live) << player.script.name << " is cut off at step " << player.next;
        ASSERT_EQ(to_hex(ids_.to_recorded(*live, step->frame)), to_hex(step->frame))
            << player.script.name << " step " << player.next;
        player.next++;
    }

    // What the client does on its own account, up to the point where it waits.
    void act(t_player &player)
    {
        while (player.step() && player.step()->kind != t_step::from_daemon && !is_held(player)) {
            if (player.step()->kind == t_step::from_client) {
                ASSERT_TRUE(player.connection.send(ids_.to_live(player.step()->frame))) << player.script.name;
            } else if (player.step()->kind == t_step::client_closes) {
                player.connection.close();
                ASSERT_NO_FATAL_FAILURE(expect_alive()); // and has noticed by now
            } else {
                ASSERT_TRUE(player.connection.is_closed_by_peer()) << player.script.name;
                player.connection.close();
            }
            player.next++;
        }
    }

    // False when nobody hears anything any more.
    bool receive_one()
    {
        std::vector<pollfd> sockets;
        for (t_player &player : players_) {
            sockets.push_back({.fd = player.connection.fd(), .events = POLLIN, .revents = 0});
        }
        int limit = static_cast<int>(std::chrono::milliseconds(PATIENCE).count());
        if (poll(sockets.data(), sockets.size(), limit) <= 0) {
            return false;
        }
        for (size_t i = 0; i < players_.size(); i++) {
            if (sockets[i].revents) {
                receive(players_[i]);
                return !HasFatalFailure();
            }
        }
        return false;
    }

    void act_all()
    {
        size_t steps_before, steps_after;
        do { // what one does may lift another's barrier
            steps_before = total_steps();
            for (t_player &player : players_) {
                ASSERT_NO_FATAL_FAILURE(act(player));
            }
            steps_after = total_steps();
        } while (steps_after != steps_before);
    }

    size_t total_steps()
    {
        size_t total = 0;
        for (const t_player &player : players_) {
            total += player.next;
        }
        return total;
    }

    void run_until_nothing_is_owed()
    {
        for (;;) {
            ASSERT_NO_FATAL_FAILURE(act_all());
            bool is_waiting = false;
            for (const t_player &player : players_) {
                is_waiting = is_waiting || is_owed_a_frame(player);
            }
            if (!is_waiting) {
                return;
            }
            ASSERT_TRUE(receive_one()) << "a recorded frame does not come";
        }
    }

    // A ping is answered after everything that was sent before.
    void expect_nothing_more()
    {
        for (t_player &player : players_) {
            if (!player.connection.is_open()) {
                continue;
            }
            EXPECT_EQ(player.step(), nullptr) << player.script.name << " has not been sent everything";
            player.connection.send(from_hex("00037777000000000000000c0300000800000005"));
            EXPECT_EQ(to_hex(player.connection.receive().value_or("")), "00027777000000000000000c0300000800000005")
                << player.script.name << " is sent something that was not recorded";
        }
    }

    std::vector<t_player> players_;
    t_id_map ids_;
};

TEST_P(daemon_replay, every_answer_is_the_recorded_one)
{
    if (!GetParam().of_nobody.empty())
        NEEDS_OTHER_USERS();
    if (GetParam().scenario == "21_nonroot_acl")
        restart_with_recorded_access_list();
    for (t_conversation &script : load_conversations(GetParam().scenario)) {
        uid_t user = user_of(script);
        players_.push_back({.script = std::move(script), .connection = t_connection(socket_, user), .next = 0});
        ASSERT_NO_FATAL_FAILURE(run_until_nothing_is_owed());
    }
    ASSERT_FALSE(players_.empty());
    // Events are owed by no particular client, so the last ones may still be under way.
    while (!HasFatalFailure()) {
        bool is_waiting = false;
        for (t_player &player : players_) {
            is_waiting = is_waiting || (player.step() && player.step()->kind == t_step::from_daemon);
        }
        if (!is_waiting) {
            break;
        }
        ASSERT_TRUE(receive_one()) << "a recorded event does not come";
        ASSERT_NO_FATAL_FAILURE(act_all());
    }
    expect_nothing_more();
}

INSTANTIATE_TEST_SUITE_P(
    recorded, daemon_replay,
    testing::Values(t_case{"01_hello", {}, {}}, t_case{"02_objects", {}, {}}, t_case{"03_list", {}, {}},
                    t_case{"04_call_table", {}, {}}, t_case{"05_call_missing_object", {}, {}},
                    t_case{"06_call_missing_method", {}, {}}, t_case{"07_call_errors", {}, {}},
                    t_case{"08_events", {}, {}}, t_case{"09_cli_listen", {}, {}}, t_case{"10_object_events", {}, {}},
                    t_case{"11_invoke_timeout", {}, {}}, t_case{"12_service_dies", {}, {}},
                    t_case{"13_caller_dies", {}, {}}, t_case{"14_deferred", {}, {}},
                    // The service waits until the subscriber has made all its requests.
                    t_case{"15_notify", {{"service.1", 7, "subscriber.1", 17}}, {}}, t_case{"17_wait_for", {}, {}},
                    // The service goes away between the caller's lookup and its call.
                    t_case{"18_dead_object", {{"service.1", 4, "caller.1", 4}, {"caller.1", 4, "service.1", 5}}, {}},
                    t_case{"19_register_errors", {}, {}}, t_case{"20_nonroot", {}, {"cli", "svc2"}},
                    t_case{"21_nonroot_acl", {}, {"cli", "lst", "svc2"}}, t_case{"23_raw", {}, {}},
                    t_case{"24_raw_framing", {}, {}}, t_case{"25_null_data", {}, {}},
                    t_case{"27_signature_types", {}, {}}),
    [](const auto &which) { return "scenario_" + which.param.scenario; });

} // namespace
