# SPDX-License-Identifier: MIT
"""The page in memory by which the preloaded fault library is told what to refuse, as laid out in faults.h."""
import ctypes
import errno
import mmap

SLOTS, NAME_SIZE, STACK_DEPTH, SURVEY_CAPACITY = 24, 32, 24, 1 << 18
UNLIMITED = 0
NO_LIMIT = -1


class Slot(ctypes.Structure):
    _fields_ = [("name", ctypes.c_char * NAME_SIZE), ("error", ctypes.c_int32), ("spare", ctypes.c_int32),
                ("limit", ctypes.c_int32), ("calls", ctypes.c_int32), ("refused", ctypes.c_int32),
                ("unused", ctypes.c_int32)]


class Memory(ctypes.Structure):
    _fields_ = [("allocations", ctypes.c_int64), ("first", ctypes.c_int64), ("count", ctypes.c_int64),
                ("refused", ctypes.c_int64), ("living", ctypes.c_int64), ("spared", ctypes.c_int64),
                ("surveying", ctypes.c_int64), ("stack", ctypes.c_uint64 * STACK_DEPTH)]


class Layout(ctypes.Structure):
    _fields_ = [("shortest_wait_ms", ctypes.c_int64), ("descriptors", ctypes.c_int64),
                ("more_memory", ctypes.c_int64), ("slots", Slot * SLOTS), ("memory", Memory),
                ("survey", ctypes.c_uint64 * SURVEY_CAPACITY)]


class FaultPage:
    """One page, for one life of the daemon after the other."""

    def __init__(self, path, clock):
        self.path = path
        self.shortest_wait_ms = round(clock.speed)
        path.write_bytes(bytes(ctypes.sizeof(Layout)))
        with open(path, "r+b") as stream:
            self.mapped = mmap.mmap(stream.fileno(), 0)
        self.layout = Layout.from_buffer(self.mapped)
        self.memory = self.layout.memory

    def clear(self):
        head = ctypes.sizeof(Layout) - ctypes.sizeof(ctypes.c_uint64) * SURVEY_CAPACITY
        ctypes.memset(ctypes.addressof(self.layout), 0, head)
        self.layout.shortest_wait_ms, self.layout.more_memory = self.shortest_wait_ms, NO_LIMIT

    def refuse_memory(self, first, count=1):
        """Refuses the allocation of that number, counted from 1, and those behind it."""
        self.memory.count, self.memory.first = count, first

    def fail(self, call, error, spare=0, limit=UNLIMITED):
        """From now on the call fails with that error, by name, once `spare` of them have worked, `limit` times."""
        slot = self.slot(call) or next(slot for slot in self.layout.slots if not slot.error)
        slot.error = 0
        slot.name, slot.spare, slot.limit, slot.calls, slot.refused = call.encode(), spare, limit, 0, 0
        slot.error = getattr(errno, error)

    def work_again(self, call):
        """The call works again; returns how many were refused."""
        slot = self.slot(call)
        slot.error = 0
        return slot.refused

    def slot(self, call):
        return next((slot for slot in self.layout.slots if slot.name == call.encode()), None)

    def stack(self):
        """Return addresses of the first refused allocation, innermost first."""
        return [address for address in self.memory.stack if address]
