// SPDX-License-Identifier: MIT
// The classic filter language: what the daemon's filters use of it, and a failure for the rest.
#include "tests/simulation/packets.h"

#include "tests/simulation/scheduler.h"

namespace sim {

namespace {

struct t_machine {
    const std::string &frame;
    uint32_t packet_type;
    uint32_t a = 0, x = 0;
    bool in_bounds = true;
    uint32_t memory[BPF_MEMWORDS] = {};

    void load(uint32_t offset, uint16_t size)
    {
        if (offset == static_cast<uint32_t>(SKF_AD_OFF + SKF_AD_PKTTYPE)) {
            a = packet_type;
            return;
        }
        const size_t bytes = size == BPF_W ? 4 : size == BPF_H ? 2 : 1;
        in_bounds = offset <= frame.size() && frame.size() - offset >= bytes;
        a = 0;
        for (size_t i = 0; in_bounds && i < bytes; i++)
            a = a << 8 | static_cast<uint8_t>(frame[offset + i]);
    }
    bool test(const sock_filter &one) const
    {
        const uint32_t other = BPF_SRC(one.code) == BPF_X ? x : one.k;
        switch (BPF_OP(one.code)) {
        case BPF_JEQ:
            return a == other;
        case BPF_JGT:
            return a > other;
        case BPF_JGE:
            return a >= other;
        case BPF_JSET:
            return a & other;
        }
        fail("a filter jumps in a way that the simulation does not know");
    }
    void calculate(const sock_filter &one)
    {
        const uint32_t other = BPF_SRC(one.code) == BPF_X ? x : one.k;
        switch (BPF_OP(one.code)) {
        case BPF_AND:
            a &= other;
            return;
        case BPF_OR:
            a |= other;
            return;
        case BPF_ADD:
            a += other;
            return;
        case BPF_SUB:
            a -= other;
            return;
        case BPF_LSH:
            a <<= other;
            return;
        case BPF_RSH:
            a >>= other;
            return;
        }
        fail("a filter calculates in a way that the simulation does not know");
    }
    void load_by(const sock_filter &one)
    {
        if (BPF_MODE(one.code) == BPF_ABS)
            load(one.k, BPF_SIZE(one.code));
        else if (BPF_MODE(one.code) == BPF_IND)
            load(one.k + x, BPF_SIZE(one.code));
        else if (BPF_MODE(one.code) == BPF_MEM)
            a = memory[one.k % BPF_MEMWORDS];
        else if (BPF_MODE(one.code) == BPF_LEN)
            a = static_cast<uint32_t>(frame.size());
        else
            a = one.k;
    }
};

} // namespace

uint32_t run_filter(const std::vector<sock_filter> &program, const std::string &frame, uint32_t packet_type)
{
    t_machine machine = {frame, packet_type};
    for (size_t at = 0; at < program.size() && machine.in_bounds; at++) {
        const sock_filter &one = program[at];
        switch (BPF_CLASS(one.code)) {
        case BPF_RET:
            return BPF_RVAL(one.code) == BPF_A ? machine.a : one.k;
        case BPF_LD:
            machine.load_by(one);
            break;
        case BPF_LDX:
            machine.x = BPF_MODE(one.code) == BPF_MSH && one.k < frame.size()
                            ? 4 * (static_cast<uint8_t>(frame[one.k]) & 0xfU)
                            : one.k;
            break;
        case BPF_ST:
            machine.memory[one.k % BPF_MEMWORDS] = machine.a;
            break;
        case BPF_ALU:
            machine.calculate(one);
            break;
        case BPF_JMP:
            at += BPF_OP(one.code) == BPF_JA ? one.k : machine.test(one) ? one.jt : one.jf;
            break;
        case BPF_MISC:
            BPF_MISCOP(one.code) == BPF_TAX ? machine.x = machine.a : machine.a = machine.x;
            break;
        default:
            fail("a filter does what the simulation does not know: %u", one.code);
        }
    }
    return 0;
}

} // namespace sim
