// SPDX-License-Identifier: MIT
#include "model/chronicle.h"

#include <algorithm>
#include <numeric>

#include "model/port_model.h"
#include "platform/clock.h"

t_chronicle chronicle;

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
    chronicle.next_opener = opener;
}

void note_cycle_begins()
{
    t_cycle_note &note = note_of(++chronicle.counters.cycles);
    note = {};
    note.number = chronicle.counters.cycles;
    note.begun = get_time_stamp();
    note.opener = chronicle.next_opener;
    note.winner = NO_PORT;
}

void note_fate(const t_device *dev, t_fate fate)
{
    t_cycle_note *note = newest_cycle();
    const int8_t place = port_place(dev);
    if (note && place != NO_PORT)
        note->fates[place] = fate;
}

void note_decision(t_decision decision)
{
    t_cycle_note *note = newest_cycle();
    if (note && note->decision == t_decision::none)
        note->decision = decision;
}

void note_cycle_ends(const t_device *winner)
{
    t_cycle_note *note = newest_cycle();
    if (!note)
        return;
    note_decision(t_decision::nobody);
    note->took_ms = static_cast<uint32_t>(milliseconds_since(note->begun));
    note->winner = port_place(winner);
}

// --- questions and answers

static uint32_t minute_now()
{
    return monotonic_s() / 60;
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
    t_port_notes &notes = dev->notes;
    turn_to(&notes, minute_now());
    uint8_t &count = notes.questions[notes.minute % MINUTES_COUNTED];
    count = static_cast<uint8_t>(std::min(count + 1, UINT8_MAX));
    notes.asked_s = monotonic_s();
    notes.was_asked = 1;
    chronicle.counters.questions++;
    if (t_cycle_note *note = newest_cycle(); note && note->decision == t_decision::none)
        if (const int8_t place = port_place(dev); place != NO_PORT)
            note->asked = static_cast<uint16_t>(note->asked | 1U << place);
}

uint32_t questions_last_hour(const t_device *dev)
{
    t_port_notes notes = dev->notes;
    turn_to(&notes, minute_now());
    return std::accumulate(notes.questions, notes.questions + MINUTES_COUNTED, uint32_t{0});
}

void note_answer(t_device *dev, const char *protocol)
{
    dev->notes.answered_s = monotonic_s();
    dev->notes.answer = protocol;
    dev->notes.learned = dev->result;
    chronicle.counters.answers++;
}
