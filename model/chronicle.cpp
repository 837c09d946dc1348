// SPDX-License-Identifier: MIT
#include "model/chronicle.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "model/port_model.h"
#include "platform/clock.h"

constexpr uint32_t SECONDS_PER_MINUTE = 60;

t_chronicle chronicle;

void begin_chronicle()
{
    chronicle = {};
    chronicle.started_s = monotonic_s();
    chronicle.next_opener = t_opener::wan_loss;
}

int8_t port_place(const t_device *dev)
{
    int8_t place = 0;
    for (const t_device *other = port_model.dev_hashmap_head; other; other = static_cast<t_device *>(other->hh.next)) {
        if (other == dev)
            return place;
        place++;
    }
    return NO_PORT;
}

static t_cycle_note &note_of(uint32_t number)
{
    return chronicle.cycles[number % REMEMBERED_CYCLES];
}

t_cycle_note *newest_cycle()
{
    return chronicle.counters.cycles == 0 ? nullptr : &note_of(chronicle.counters.cycles);
}

const t_cycle_note *remembered_cycle(int age)
{
    const uint32_t newest = chronicle.counters.cycles;
    if (age < 0 || age >= REMEMBERED_CYCLES || static_cast<uint32_t>(age) >= newest)
        return nullptr;
    return &note_of(newest - static_cast<uint32_t>(age));
}

void note_opener(t_opener opener)
{
    chronicle.asked_opener = opener;
}

void note_cycle_over_all()
{
    chronicle.next_opener = chronicle.asked_opener;
}

void note_cycle_begins()
{
    t_cycle_note &note = note_of(++chronicle.counters.cycles);
    note = {};
    note.number = chronicle.counters.cycles;
    note.begun = get_time_stamp();
    note.opener = std::exchange(chronicle.next_opener, t_opener::wan_loss);
    note.winner = NO_PORT;
}

void note_fate(const t_device *dev, t_fate fate)
{
    t_cycle_note *note = newest_cycle();
    const int8_t place = port_place(dev);
    if (!note || place == NO_PORT)
        return;
    note->fates[place] = fate;
    if (fate == t_fate::asked)
        note->asked = static_cast<uint16_t>(note->asked | 1U << place);
}

static t_fate fate_in(const t_cycle_note *note, const t_device *dev)
{
    const int8_t place = port_place(dev);
    return note && place != NO_PORT ? note->fates[place] : t_fate::not_looked_at;
}

t_fate noted_fate(const t_device *dev)
{
    return fate_in(newest_cycle(), dev);
}

bool was_silent_before(const t_device *dev)
{
    const t_fate fate = fate_in(remembered_cycle(1), dev);
    return fate == t_fate::silent || fate == t_fate::no_gateway;
}

void note_decision(t_decision decision)
{
    if (t_cycle_note *note = newest_cycle())
        note->decision = decision;
}

void note_cycle_ends(const t_device *winner)
{
    t_cycle_note *note = newest_cycle();
    if (!note)
        return;
    if (note->decision == t_decision::none)
        note->decision = t_decision::nobody;
    note->took_ms = static_cast<uint32_t>(std::max<int64_t>(milliseconds_since(note->begun), 1));
    note->winner = port_place(winner);
    if (winner && winner != port_model.wan_dev && note->decision != t_decision::wan_works)
        note->swap = note->swap == t_swap::done ? t_swap::failed : t_swap::called_off;
    chronicle.counters.verdicts++;
}

// --- swaps

void note_swap(int status)
{
    chronicle.counters.swaps_asked++;
    if (t_cycle_note *note = newest_cycle()) {
        note->swap = t_swap::done;
        note->swap_status = static_cast<int16_t>(status);
        chronicle.swapped_in = note->number;
    }
}

void note_confirmation(bool agreed)
{
    t_counters &counters = chronicle.counters;
    counters.swaps_confirmed += agreed;
    counters.swaps_failed_in_a_row = agreed ? 0 : counters.swaps_failed_in_a_row + 1;
    t_cycle_note &note = note_of(chronicle.swapped_in);
    if (note.number == chronicle.swapped_in) // else it is forgotten already
        note.confirmation = agreed ? t_confirmation::agreed : t_confirmation::disagreed;
}

// --- questions and answers

static uint32_t minute_now()
{
    return monotonic_s() / SECONDS_PER_MINUTE;
}

// Empties the counts of the minutes in which nobody asked.
static void turn_to(t_port_notes *notes, uint32_t minute)
{
    const uint32_t passed = std::min<uint32_t>(minute - notes->minute, MINUTES_COUNTED);
    for (uint32_t age = 0; age < passed; age++)
        notes->questions[(minute - age) % MINUTES_COUNTED] = 0;
    notes->minute = minute;
}

void note_question(t_device *dev)
{
    chronicle.counters.questions++;
    if (!dev)
        return;
    t_port_notes &notes = dev->notes;
    turn_to(&notes, minute_now());
    uint8_t &count = notes.questions[notes.minute % MINUTES_COUNTED];
    count = static_cast<uint8_t>(std::min(count + 1, UINT8_MAX));
    notes.asked_s = monotonic_s();
    notes.was_asked = 1;
}

uint32_t questions_last_hour(const t_device *dev)
{
    t_port_notes notes = dev->notes;
    turn_to(&notes, minute_now());
    return std::accumulate(notes.questions, notes.questions + MINUTES_COUNTED, uint32_t{0});
}

void note_answer(t_device *dev, const char *protocol, const t_detect_result &learned)
{
    chronicle.counters.answers++;
    if (!dev || !dev->link_active) // whoever answered is not there any more
        return;
    dev->notes.answered_s = monotonic_s();
    if (!protocol)
        return;
    dev->notes.answer = protocol;
    dev->notes.learned = learned;
}

void note_lan_host(t_device *dev)
{
    dev->notes.lan_hosts = static_cast<uint16_t>(std::min(dev->notes.lan_hosts + 1, UINT16_MAX));
    dev->notes.lan_seen_s = monotonic_s();
}
