// SPDX-License-Identifier: MIT
#include "model/chronicle.h"

#include <set>

#include "model/chronicle_words.h"
#include "tests/unit/model/model_test.h"
#include "tests/unit/support/fake_clock.h"

namespace {

constexpr int MINUTE_S = 60;

class chronicle_notes : public t_model_test {
protected:
    chronicle_notes()
    {
        fake_clock.set(1000 * MINUTE_S);
        begin_chronicle();
        eth0 = add_port("eth0");
        eth1 = add_port("eth1");
    }
    static void wait_s(int seconds) { fake_clock.advance_ms(int64_t{seconds} * 1000); }
    static void run_cycle(const t_device *winner = nullptr)
    {
        note_cycle_begins();
        note_cycle_ends(winner);
    }

    t_device *eth0;
    t_device *eth1;
};

} // namespace

// holds: chronicle-bounds
TEST_F(chronicle_notes, nothing_is_known_before_the_first_cycle)
{
    EXPECT_EQ(newest_cycle(), nullptr);
    EXPECT_EQ(remembered_cycle(0), nullptr);
    note_fate(eth0, t_fate::won);
    note_decision(t_decision::priority);
    note_cycle_ends(eth0);
    note_swap(0);
    EXPECT_EQ(noted_fate(eth0), t_fate::not_looked_at);
    EXPECT_EQ(chronicle.counters.verdicts, 0u);
    EXPECT_EQ(chronicle.started_s, 1000u * MINUTE_S);
}

// holds: chronicle-bounds
TEST_F(chronicle_notes, the_last_32_cycles_are_kept)
{
    for (int i = 0; i < 40; i++)
        run_cycle();
    EXPECT_EQ(newest_cycle()->number, 40u);
    EXPECT_EQ(remembered_cycle(0)->number, 40u);
    EXPECT_EQ(remembered_cycle(31)->number, 9u);
    EXPECT_EQ(remembered_cycle(32), nullptr);
    EXPECT_EQ(remembered_cycle(-1), nullptr);
    EXPECT_EQ(chronicle.counters.cycles, 40u);
}

// holds: chronicle-decisions
TEST_F(chronicle_notes, a_cycle_that_nobody_decided_ended_with_nobody)
{
    note_cycle_begins();
    wait_s(3);
    note_cycle_ends(nullptr);
    EXPECT_EQ(newest_cycle()->decision, t_decision::nobody);
    EXPECT_EQ(newest_cycle()->took_ms, 3000u);
    EXPECT_EQ(newest_cycle()->winner, NO_PORT);
}

// holds: chronicle-openers
TEST_F(chronicle_notes, who_asked_last_opens_the_cycle_over_all_ports_and_a_loss_any_other)
{
    note_opener(t_opener::start_up);
    note_opener(t_opener::bus_call);
    run_cycle();
    EXPECT_EQ(newest_cycle()->opener, t_opener::wan_loss);
    note_cycle_over_all();
    run_cycle();
    EXPECT_EQ(newest_cycle()->opener, t_opener::bus_call);
    run_cycle();
    EXPECT_EQ(newest_cycle()->opener, t_opener::wan_loss);
}

// holds: chronicle-fates
TEST_F(chronicle_notes, the_last_fate_counts_and_being_asked_is_kept)
{
    const t_device stranger = {};
    note_cycle_begins();
    note_fate(eth1, t_fate::asked);
    note_fate(eth1, t_fate::silent);
    note_fate(&stranger, t_fate::won);
    EXPECT_EQ(noted_fate(eth1), t_fate::silent);
    EXPECT_EQ(noted_fate(eth0), t_fate::not_looked_at);
    EXPECT_EQ(noted_fate(&stranger), t_fate::not_looked_at);
    EXPECT_EQ(newest_cycle()->asked, 1 << port_place(eth1));
    EXPECT_FALSE(was_silent_before(eth1));
    note_cycle_ends(nullptr);
    note_cycle_begins();
    EXPECT_TRUE(was_silent_before(eth1));
    EXPECT_FALSE(was_silent_before(eth0));
}

// holds: chronicle-swaps
TEST_F(chronicle_notes, a_swap_whose_cycle_is_forgotten_is_confirmed_all_the_same)
{
    note_cycle_begins();
    note_swap(1);
    port_model.wan_dev = eth1;
    note_cycle_ends(eth1);
    EXPECT_EQ(newest_cycle()->swap, t_swap::done);
    EXPECT_EQ(newest_cycle()->swap_status, 1);
    for (int i = 0; i < REMEMBERED_CYCLES; i++)
        run_cycle();
    note_confirmation(true);
    EXPECT_EQ(chronicle.counters.swaps_confirmed, 1u);
    for (int age = 0; age < REMEMBERED_CYCLES; age++)
        EXPECT_EQ(remembered_cycle(age)->confirmation, t_confirmation::unknown);
}

// holds: chronicle-swaps
TEST_F(chronicle_notes, only_a_winner_that_did_not_get_the_role_is_a_failed_swap)
{
    port_model.wan_dev = eth0;
    note_cycle_begins();
    note_swap(0);
    note_cycle_ends(nullptr); // the role was given back
    EXPECT_EQ(newest_cycle()->swap, t_swap::done);
    note_cycle_begins();
    note_swap(0);
    note_cycle_ends(eth1);
    EXPECT_EQ(newest_cycle()->swap, t_swap::failed);
}

// holds: chronicle-bounds
TEST_F(chronicle_notes, questions_of_the_last_60_minutes_are_counted)
{
    note_question(eth0);
    wait_s(59 * MINUTE_S);
    note_question(eth0);
    note_question(eth0);
    EXPECT_EQ(questions_last_hour(eth0), 3u);
    EXPECT_EQ(questions_last_hour(eth1), 0u);
    wait_s(MINUTE_S);
    EXPECT_EQ(questions_last_hour(eth0), 2u);
    wait_s(58 * MINUTE_S);
    EXPECT_EQ(questions_last_hour(eth0), 2u);
    wait_s(MINUTE_S);
    EXPECT_EQ(questions_last_hour(eth0), 0u);
    wait_s(1000 * MINUTE_S);
    note_question(eth0);
    EXPECT_EQ(questions_last_hour(eth0), 1u);
    EXPECT_EQ(chronicle.counters.questions, 4u);
    EXPECT_EQ(eth0->notes.asked_s, 1000u * MINUTE_S + 1119u * MINUTE_S);
}

// holds: chronicle-bounds
TEST_F(chronicle_notes, a_minute_counts_255_questions_at_most)
{
    for (int i = 0; i < 300; i++)
        note_question(eth0);
    EXPECT_EQ(questions_last_hour(eth0), 255u);
    EXPECT_EQ(chronicle.counters.questions, 300u);
}

// holds: chronicle-wire
TEST_F(chronicle_notes, an_answer_that_confirms_keeps_what_was_learned)
{
    t_detect_result learned = {};
    learned.gateway.ipv4_be = 7;
    eth0->link_active = 1;
    note_answer(eth0, "dhcp", learned);
    wait_s(2);
    note_answer(eth0, nullptr);
    note_answer(nullptr, "dhcp");
    note_question(nullptr);
    EXPECT_STREQ(eth0->notes.answer, "dhcp");
    EXPECT_EQ(eth0->notes.learned.gateway.ipv4_be, 7u);
    EXPECT_EQ(eth0->notes.answered_s, 1000u * MINUTE_S + 2);
    EXPECT_EQ(chronicle.counters.answers, 3u);
}

// holds: chronicle-wire
TEST_F(chronicle_notes, an_answer_that_a_lost_link_leaves_in_the_socket_is_nobodys)
{
    eth0->link_active = 0;
    note_answer(eth0, "dhcp", {});
    EXPECT_EQ(eth0->notes.answer, nullptr);
    EXPECT_EQ(eth0->notes.answered_s, 0u);
    EXPECT_EQ(chronicle.counters.answers, 1u);
}

TEST_F(chronicle_notes, every_value_has_a_word_of_its_own)
{
    std::set<std::string> words;
    for (int i = 0; i <= static_cast<int>(t_fate::won); i++)
        if (const char *word = fate_word(static_cast<t_fate>(i)))
            words.insert(word);
    EXPECT_EQ(words.size(), static_cast<size_t>(t_fate::won));
    words.clear();
    for (int i = 0; i <= static_cast<int>(t_decision::nobody); i++)
        words.insert(decision_word(static_cast<t_decision>(i)));
    EXPECT_EQ(words.size(), static_cast<size_t>(t_decision::nobody) + 1);
    words.clear();
    for (int i = 0; i <= static_cast<int>(t_opener::look_again); i++)
        words.insert(opener_word(static_cast<t_opener>(i)));
    for (int i = 0; i <= static_cast<int>(t_swap::failed); i++)
        words.insert(swap_word(static_cast<t_swap>(i)));
    for (t_hint hint : HINTS)
        words.insert(hint_word(hint));
    EXPECT_EQ(words.size(), 6u + 3u + 5u);
}
