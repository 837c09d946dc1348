# SPDX-License-Identifier: MIT
"""Attributes, messages and streams of the bus."""
import json
import struct

from seeds.store import GOLDEN, LARGEST_SEED, block, save

ARRAY, TABLE, STRING, INT64, INT32, INT16, INT8, DOUBLE = range(1, 9)


def padded(content):
    return content + bytes(-len(content) % 4)


def attribute(kind, content, extended=False):
    return padded(struct.pack(">I", kind << 24 | len(content) + 4 | (0x80000000 if extended else 0)) + content)


def field(kind, name, value):
    return attribute(kind, padded(struct.pack(">H", len(name)) + name.encode() + b"\0") + value, extended=True)


def text_field(name, value):
    return field(STRING, name, value.encode() + b"\0")


def number_field(name, value):
    return field(INT32, name, struct.pack(">i", value))


def bool_field(name, value):
    return field(INT8, name, bytes([value]))


METHODS = ("log", "proto_detect", "set", "hotplug", "wan_detect", "ban_event")
STATE_METHODS = ("status", "history", "explain")
STATE_OBJECT, LIFE = 0x08, 0x10


def handler_of(method):
    return METHODS.index(method) if method in METHODS else STATE_OBJECT | STATE_METHODS.index(method)


# What may have happened before: each step is one for a port, with its details behind it.
CYCLE_STEPS = ("opener", "begins", "fate", "decision", "swap", "confirmation", "ends")
STEPS = (*CYCLE_STEPS, "question", "answer", "lan_host", "link", "tables", "role", "settings", "progress")


def life(*steps):
    content = b"".join(bytes([port << 4 | STEPS.index(step), *details]) for port, step, *details in steps)
    return bytes([LIFE]) + block(content)


def calls(*steps):
    return b"".join(
        bytes([handler_of(method) | (0x80 if isinstance(content, str) else 0)]) + block(content)
        for method, content in steps
    )


def bus_messages():
    save(
        "bus_methods", "log", calls(("log", number_field("level", 7)), ("log", '{"level":-1}'), ("log", '{"level":8}'))
    )
    save(
        "bus_methods",
        "proto_detect",
        calls(
            (
                "proto_detect",
                text_field("device", "eth1") + text_field("protocol", "dhcp") + number_field("timeout", 3000),
            )
        ),
    )
    save(
        "bus_methods",
        "proto_detect_garbage",
        calls(
            ("proto_detect", '{"device":"eth9","protocol":"dhcpx","timeout":5}'),
            ("proto_detect", '{"protocol":"static"}'),
            ("proto_detect", '{"device":"' + "x" * 300 + '"}'),
            ("proto_detect", "{}"),
        ),
    )
    save("bus_methods", "set", calls(("set", bool_field("enable", 1)), ("set", '{"enable":false}'), ("set", "{}")))
    save(
        "bus_methods",
        "hotplug",
        calls(
            ("hotplug", text_field("name", "eth1") + bool_field("status", 1)),
            ("hotplug", '{"name":"eth1","status":true}'),
            ("hotplug", '{"name":"eth9"}'),
            ("hotplug", '{"status":true}'),
            ("hotplug", '{"name":"x","status":false}'),
        ),
    )
    save(
        "bus_methods",
        "wan_detect",
        calls(("wan_detect", "{}"), ("wan_detect", '{"delay":60}'), ("wan_detect", '{"delay":-1}')),
    )
    save(
        "bus_methods",
        "bans",
        calls(
            ("ban_event", text_field("name", "eth1") + number_field("time", 100)),
            ("ban_event", '{"name":"eth1","time":-1}'),
            ("ban_event", '{"name":"eth2","time":-1}'),
            ("ban_event", '{"name":"eth1"}'),
            ("ban_event", '{"name":"eth9","time":1}'),
        ),
    )
    save(
        "bus_methods",
        "wrong_types",
        calls(
            ("log", text_field("level", "7")),
            ("set", number_field("enable", 1)),
            ("hotplug", field(TABLE, "name", text_field("a", "b"))),
        ),
    )
    save(
        "bus_methods", "damaged", calls(("log", number_field("level", 7)[:-2]), ("set", b"\x87\0\0\3"), ("log", b"\0"))
    )
    save(
        "bus_methods",
        "state",
        calls(
            ("ban_event", text_field("name", "eth2") + number_field("time", 100)),
            ("status", "{}"),
            ("history", b""),
            ("explain", text_field("device", "eth2")),
            ("explain", '{"device":"eth1"}'),
            ("explain", '{"device":"eth9"}'),
            ("explain", text_field("device", "eth1")[:-2]),
            ("explain", b"\xff\xc3\n\""),
        ),
    )
    told = calls(("status", "{}"), ("history", "{}"), *(("explain", text_field("device", f"eth{i}")) for i in range(3)))
    links = [(port, step, *details) for port in range(3) for step, *details in (("link",), ("tables", 1))]
    asked = [(1, "fate", 9), (1, "question"), (1, "answer", 2, 192, 0, 1), (2, "fate", 9), (2, "question")]
    won = [(1, "fate", 15), (2, "fate", 10), (0, "fate", 7), (0, "lan_host"), (0, "decision", 2)]
    save(
        "bus_methods",
        "state_of_a_swap",
        life((0, "settings", 16, 1), *links, (0, "opener", 0), (0, "begins"), *asked, *won, (0, "swap", 0), (1, "ends", 1))
        + life((1, "role", 0, 0), (0, "progress", 2, 0x40, 0, 30, 0))
        + told
        + life((0, "opener", 4), (0, "begins"), (1, "fate", 1), (0, "confirmation", 1), (0, "decision", 1), (1, "ends", 1))
        + told,
    )
    save(
        "bus_methods",
        "state_of_a_failed_swap",
        life((0, "settings", 31, 1), *links, (0, "begins"), *asked, *won, (0, "swap", 255), (0, "role", 0, 0), (1, "ends", 1))
        + told
        + life((0, "role", 1, 120), (0, "begins"), (1, "fate", 8), (0, "progress", 1, 9, 9, 30, 0))
        + told,
    )
    save(
        "bus_replies",
        "interface",
        b"\0" + bool_field("up", 1) + text_field("state", "connected") + number_field("uptime", 9),
    )
    save(
        "bus_replies",
        "interface_json",
        b"\x80" + b'{"up":true,"state":"connecting","ipv4-address":[{"address":"192.0.2.2","mask":24}],"data":{}}',
    )
    save("bus_replies", "device", b"\0" + bool_field("up", 1) + bool_field("link", 0))
    save("bus_replies", "device_json", b"\x80" + b'{"up":true,"link":true}')
    save("bus_replies", "state_is_a_number", b"\x80" + b'{"state":5,"up":"yes"}')


def network_answers():
    def of_manager(status, reply=None):
        if reply is None:
            return bytes([0x40 | status])
        return bytes([status | (0x80 if isinstance(reply, str) else 0)]) + block(reply)

    connected, nothing, wrong = '{"state":"connected","up":true}', "{}", '{"state":5}'
    ended = struct.Struct(">h").pack
    save("network_status", "connected", b"\0" + of_manager(0, connected))
    save("network_status", "binary_reply", b"\0" + of_manager(0, text_field("state", "connecting")))
    save("network_status", "second_interface", b"\0" + of_manager(4) + of_manager(0, connected))
    save("network_status", "no_state", b"\0" + of_manager(0, nothing) + of_manager(0, wrong))
    save("network_status", "no_answer", b"\0" + of_manager(7) + of_manager(7))
    save("network_status", "reply_of_a_failed_call", b"\0" + of_manager(9, connected) + of_manager(9, connected))
    save("network_status", "ipv6", b"\1" + of_manager(0, connected))
    save("network_status", "confirmed", b"\2" + of_manager(0, connected) + ended(0))
    save("network_status", "not_online", b"\2" + of_manager(0, connected) + ended(256))
    save("network_status", "online_test_tried_again", b"\2" + of_manager(0, connected) + ended(-1) + ended(0))
    save("network_status", "online_test_killed", b"\2" + of_manager(0, connected) + ended(9) + ended(2 << 8))
    save("network_status", "no_shell", b"\6" + of_manager(0, connected))


def status_pictures():
    for kept in sorted(GOLDEN.glob("status/*.json")):
        replies = json.loads(kept.read_text(encoding="utf-8"))
        status, history = (json.dumps(replies[method], separators=(",", ":")).encode() for method in ("status", "history"))
        save("status_picture", kept.stem, b"\x81" + block(status) + history)
    port = field(TABLE, "", text_field("name", "eth0") + bool_field("link", 1) + number_field("banned", -1))
    hints = field(ARRAY, "hints", attribute(STRING, padded(struct.pack(">H", 0) + b"\0") + b"pool\0", extended=True))
    save("status_picture", "binary", b"\0" + block(text_field("wan", "eth0") + field(ARRAY, "ports", port) + hints))
    save("status_picture", "no_lists", b"\x80" + block(b'{"ports":{"a":1},"hints":"vlan","cycle":[]}') + b'{"cycles":7}')
    save("status_picture", "deep", b"\x80" + block(b'{"a":' * 12 + b"1" + b"}" * 12))


def blobs():
    everything = (
        bool_field("up", 1)
        + number_field("level", -7)
        + text_field("name", 'a"b\n')
        + field(TABLE, "data", text_field("x", "y"))
        + field(INT64, "big", bytes([0x7F] + [0xFF] * 7))
        + field(INT16, "small", b"\x80\0")
        + field(DOUBLE, "part", struct.pack(">d", 1.5))
        + field(ARRAY, "list", field(STRING, "", b"a\0") + field(STRING, "", b"b\0"))
        + field(0, "nothing", b"")
    )
    save("blob", "every_type", attribute(0, everything))
    save("blob", "table", attribute(TABLE, everything, extended=False))
    save("blob", "bus_attributes", attribute(0, b"".join(attribute(i, struct.pack(">I", i)) for i in range(15))))
    save("blob", "named_table", field(TABLE, "data", everything))
    save("blob", "deep", attribute(TABLE, deep(60)))
    save("blob", "name_without_end", attribute(TABLE, attribute(STRING, b"\0\x03abcd", extended=True)))
    save("blob", "length_beyond_the_end", b"\0\0\x01\0" + everything)
    for number, line in enumerate((GOLDEN / "blobmsg" / "blob_to_json.txt").read_text().splitlines()):
        content = bytes.fromhex(line.split("\t")[0])
        if number % 8 == 0 and len(content) <= 300:
            save("blob", f"golden_{number:03}", content)
    for name in ("json_to_blob", "json_lenient", "json_rejected"):
        for number, line in enumerate((GOLDEN / "blobmsg" / f"{name}.txt").read_text(errors="replace").splitlines()):
            json = line.split("\t")[0]
            if number % 3 == 0 and len(json) <= 300:
                save("json_to_blob", f"{name}_{number:03}", json)


def deep(levels):
    content = b""
    for _ in range(levels):
        content = field(TABLE, "", content)
    return content


def frame(kind, seq, peer, content=b""):
    return struct.pack(">BBHI", 0, kind, seq, peer) + attribute(0, content)


STATUS, DATA, PING, LOOKUP, INVOKE, ADD, REMOVE, SUBSCRIBE, UNSUBSCRIBE, NOTIFY = range(1, 11)
AT_STATUS, AT_PATH, AT_ID, AT_METHOD, AT_TYPE, AT_SIGNATURE, AT_DATA, AT_TARGET = range(1, 9)
AT_ACTIVE, AT_NO_REPLY, AT_SUBSCRIBERS = range(9, 12)
DEMO = 0xA0000002
EVENT_OBJECT = 1


def word(kind, value):
    return attribute(kind, struct.pack(">I", value))


def octet(kind, value):
    return attribute(kind, bytes([value]))


def name(kind, text):
    return attribute(kind, text.encode() + b"\0")


SIGNATURE = attribute(AT_SIGNATURE, field(TABLE, "echo", number_field("id", 5)) + field(TABLE, "later", b""))


def done(seq, peer=0):
    return frame(STATUS, seq, peer, word(AT_STATUS, 0))


def to_client(actions, piece, stream, endings=0):
    return bytes([actions, endings, piece]) + stream


def client_streams():
    added = frame(DATA, 1, 0, word(AT_ID, DEMO) + word(AT_TYPE, 0xA0000003)) + done(1)
    call = frame(
        INVOKE, 7, 0xA0000009, word(AT_ID, DEMO) + name(AT_METHOD, "echo") + attribute(AT_DATA, number_field("id", 5))
    )
    later = frame(INVOKE, 8, 0xA0000009, word(AT_ID, DEMO) + name(AT_METHOD, "later") + attribute(AT_DATA, b""))
    save("bus_client", "serves_calls", to_client(0x02, 0, added + call + later))
    save("bus_client", "serves_calls_in_pieces", to_client(0x02, 13, added + call + later))
    save("bus_client", "call_while_waiting", to_client(0x02, 0, call + added + call))
    save("bus_client", "frees_itself", to_client(0x42, 0, added + call + later))
    save(
        "bus_client",
        "hears_events",
        to_client(
            0x04,
            0,
            frame(DATA, 1, 0, word(AT_ID, DEMO))
            + done(1)
            + done(2, EVENT_OBJECT)
            + frame(
                INVOKE, 1, 0, word(AT_ID, DEMO) + name(AT_METHOD, "demo.x") + attribute(AT_DATA, text_field("a", "b"))
            ),
        ),
    )
    found = frame(DATA, 1, 0, name(AT_PATH, "demo") + word(AT_ID, 0xA0000005) + word(AT_TYPE, 0xA0000006) + SIGNATURE)
    save(
        "bus_client",
        "looks_up_and_calls",
        to_client(
            0x18,
            0,
            found
            + done(1)
            + found.replace(b"\0\1\0\0", b"\0\2\0\0", 1)
            + done(2)
            + frame(DATA, 3, 0xA0000005, attribute(AT_DATA, bool_field("ok", 1)))
            + done(3, 0xA0000005),
        ),
    )
    save("bus_client", "answer_later", to_client(0x20, 0, frame(DATA, 1, 1, attribute(AT_DATA, b"")) + done(1, 1)))
    save(
        "bus_client",
        "ends_what_it_began",
        to_client(
            0x26,
            0,
            added + frame(DATA, 2, 0, word(AT_ID, 0xA0000004)) + done(2) + done(3, 1) + done(5, 1) + done(6) + done(7),
            endings=0x0F,
        ),
    )
    save("bus_client", "reconnects", to_client(0x82, 0, added + call))
    client_subscriptions(added)
    save("bus_client", "greeting_only", to_client(0x01, 0, bytes.fromhex("00000000a000000100000004")))
    save("bus_client", "wrong_version", to_client(0x01, 0, bytes.fromhex("01000000a000000100000004")))
    save("bus_client", "huge_length", to_client(0, 0, bytes.fromhex("0002000100000000") + b"\0\xff\xff\xff" + bytes(8)))


def client_subscriptions(added):
    subscriber, stranger = 0xA0000004, 0xA0000009
    subscribed = frame(DATA, 2, 0, word(AT_ID, subscriber)) + done(2) + done(3)
    heard = frame(
        INVOKE, 7, stranger, word(AT_ID, subscriber) + name(AT_METHOD, "ev") + attribute(AT_DATA, number_field("n", 1))
    )
    target_gone = frame(UNSUBSCRIBE, 1, 0, word(AT_ID, subscriber) + word(AT_TARGET, 1))
    save("bus_client", "subscribes", to_client(0x02, 0, added + subscribed + heard + target_gone, endings=0x10))
    save("bus_client", "target_goes_meanwhile", to_client(0x02, 0, added + target_gone + subscribed, endings=0x90))
    save("bus_client", "frees_itself_when_told", to_client(0x42, 0, added + subscribed + target_gone, endings=0x10))
    active, idle = (frame(NOTIFY, i, 0, word(AT_ID, DEMO) + octet(AT_ACTIVE, i)) for i in (1, 0))
    names = frame(
        STATUS,
        2,
        DEMO,
        word(AT_ID, DEMO)
        + attribute(AT_SUBSCRIBERS, word(0, subscriber) + word(0, stranger))
        + word(AT_STATUS, 0),
    )
    answers = b"".join(frame(STATUS, 2, who, word(AT_STATUS, 0) + word(AT_ID, who)) for who in (stranger, subscriber))
    save("bus_client", "notifies", to_client(0x02, 0, added + active + idle, endings=0x20))
    save("bus_client", "notifies_and_waits", to_client(0x02, 0, added + active + names + answers, endings=0x40))
    save("bus_client", "notification_refused", to_client(0x02, 0, added + done(2, DEMO) + idle, endings=0x40))


# The steps of bus_session_fuzz.cpp.
PREPARE_BYTES, ARRIVE, ASK_STATUS, FIRE_TIMER, KNOCK_ANSWERED, HANG_UP_NOW, REFUSE, ACCEPT = range(8)
CONFIRM = 0x80
GREETING = bytes.fromhex("00000000a000000100000004")


def session_steps(*parts):
    return b"".join(block(part) if isinstance(part, bytes) else bytes([part]) for part in parts)


def daemon_sessions():
    """What the bus daemon says to the daemon; its requests count from 1."""

    STATE = DEMO + 3

    def offer_taken(first):
        object_added = frame(DATA, first, 0, word(AT_ID, DEMO) + word(AT_TYPE, 0xA0000003)) + done(first)
        listener_added = frame(DATA, first + 1, 0, word(AT_ID, DEMO + 2)) + done(first + 1)
        state_added = frame(DATA, first + 3, 0, word(AT_ID, STATE) + word(AT_TYPE, 0xA0000004)) + done(first + 3)
        return object_added + listener_added + done(first + 2, EVENT_OBJECT) + state_added

    object_type = word(AT_TYPE, 0xA0000006) + SIGNATURE

    def call(method, arguments, of=DEMO):
        return frame(INVOKE, 9, 0xA0000009, word(AT_ID, of) + name(AT_METHOD, method) + attribute(AT_DATA, arguments))

    def status_answer(first, state):
        unknown_method = frame(STATUS, first, EVENT_OBJECT, word(AT_STATUS, 3))
        found = frame(DATA, first + 1, 0, name(AT_PATH, "network.interface") + word(AT_ID, 0xA0000005) + object_type)
        reply = frame(DATA, first + 2, 0xA0000005, attribute(AT_DATA, text_field("state", state)))
        return unknown_method + found + done(first + 1) + reply + done(first + 2, 0xA0000005)

    start = GREETING + offer_taken(1)
    calls = (
        call("log", number_field("level", 7))
        + call("hotplug", text_field("name", "eth1") + bool_field("status", 1))
        + call("wan_detect", b"")
        + call("proto_detect", text_field("device", "eth1") + number_field("timeout", 3000))
        + call("nothing", b"")
        + call("status", b"", of=STATE)
        + call("explain", text_field("device", "eth1"), of=STATE)
    )
    event = frame(
        INVOKE,
        9,
        0,
        word(AT_ID, DEMO + 2)
        + name(AT_METHOD, "wan_detect_add_banned_dev")
        + attribute(AT_DATA, text_field("name", "eth1") + number_field("time", 60)),
    )
    lookup_failed = frame(STATUS, 6, 0, word(AT_STATUS, 4))
    save("bus_session", "calls", session_steps(start, ARRIVE, calls))
    save("bus_session", "event", session_steps(start, ARRIVE, event))
    save("bus_session", "status", session_steps(start, PREPARE_BYTES, status_answer(5, "connected"), ASK_STATUS))
    save(
        "bus_session",
        "status_and_calls_meanwhile",
        session_steps(start, PREPARE_BYTES, calls + status_answer(5, "connecting"), ASK_STATUS | CONFIRM, FIRE_TIMER),
    )
    save(
        "bus_session",
        "interface_not_found",
        session_steps(
            start,
            PREPARE_BYTES,
            frame(STATUS, 5, EVENT_OBJECT, word(AT_STATUS, 3)) + lookup_failed + status_answer(7, "connected"),
            ASK_STATUS,
        ),
    )
    save("bus_session", "nobody_answers", session_steps(start, ASK_STATUS, ARRIVE, calls))
    save(
        "bus_session",
        "lost_and_back",
        session_steps(
            start,
            HANG_UP_NOW,
            FIRE_TIMER,
            PREPARE_BYTES,
            GREETING
            + frame(DATA, 5, 0, word(AT_ID, DEMO) + word(AT_TYPE, 0xA0000003))
            + done(5)
            + frame(DATA, 6, 0, word(AT_ID, DEMO + 2))
            + done(6)
            + frame(DATA, 7, 0, name(AT_PATH, "wan_detect") + word(AT_ID, DEMO) + object_type)
            + done(7)
            + done(8, EVENT_OBJECT)
            + frame(DATA, 9, 0, word(AT_ID, STATE) + word(AT_TYPE, 0xA0000004))
            + done(9),
            KNOCK_ANSWERED,
            ARRIVE,
            calls + event,
        ),
    )
    save("bus_session", "refused", session_steps(start, HANG_UP_NOW, REFUSE, FIRE_TIMER, ACCEPT, FIRE_TIMER))
    save("bus_session", "name_taken", session_steps(GREETING + frame(STATUS, 1, 0, word(AT_STATUS, 2))))
    save("bus_session", "no_greeting", session_steps(GREETING[:5]))


SEND, STOP_READING, READ_AGAIN, READ_IN_PIECES, SHUT_DOWN, HANG_UP = range(6)


def step(who, what, content=b""):
    return bytes([who | what << 2]) + (block(content) if what == SEND else b"")


def daemon_streams():
    add = frame(ADD, 1, 0, name(AT_PATH, "demo") + SIGNATURE)
    call = frame(
        INVOKE, 2, DEMO, word(AT_ID, DEMO) + name(AT_METHOD, "echo") + attribute(AT_DATA, number_field("id", 5))
    )
    reply = frame(DATA, 2, 0xA0000004, word(AT_ID, DEMO) + attribute(AT_DATA, b"")) + frame(
        STATUS, 2, 0xA0000004, word(AT_STATUS, 0) + word(AT_ID, DEMO)
    )
    save(
        "bus_daemon",
        "call_and_answer",
        step(0, SEND, add) + step(1, SEND, call) + step(0, SEND, reply) + step(0, SHUT_DOWN),
    )
    listen = frame(ADD, 1, 0) + frame(
        INVOKE,
        2,
        1,
        word(AT_ID, EVENT_OBJECT)
        + name(AT_METHOD, "register")
        + attribute(AT_DATA, number_field("object", DEMO - (1 << 32)) + text_field("pattern", "*")),
    )
    event = frame(
        INVOKE,
        1,
        1,
        word(AT_ID, EVENT_OBJECT)
        + name(AT_METHOD, "send")
        + attribute(AT_DATA, text_field("id", "demo.x") + field(TABLE, "data", number_field("a", 1))),
    )
    save(
        "bus_daemon",
        "events",
        step(0, SEND, listen)
        + step(1, SEND, event)
        + step(1, SEND, add)
        + step(0, SEND, frame(REMOVE, 3, 0, word(AT_ID, DEMO))),
    )
    save(
        "bus_daemon",
        "slow_reader",
        step(0, SEND, listen)
        + step(0, READ_IN_PIECES)
        + step(1, SEND, event * 3)
        + step(0, STOP_READING)
        + step(1, SEND, event * 3)
        + step(0, READ_AGAIN),
    )
    save(
        "bus_daemon",
        "look_up",
        step(0, SEND, add)
        + step(
            1,
            SEND,
            frame(LOOKUP, 1, 0)
            + frame(LOOKUP, 2, 0, name(AT_PATH, "de*"))
            + frame(LOOKUP, 3, 0, name(AT_PATH, "demo")),
        ),
    )
    save(
        "bus_daemon",
        "common_user",
        step(3, SEND, add) + step(3, SEND, frame(ADD, 2, 0)) + step(3, SEND, call) + step(3, SEND, event),
    )
    save("bus_daemon", "hang_up", step(0, SEND, add + call) + step(0, HANG_UP) + step(1, SEND, call))
    save("bus_daemon", "half_a_frame", step(0, SEND, add[:9]) + step(0, SEND, add[9:20]) + step(0, SEND, add[20:]))
    save("bus_daemon", "forty_pings", step(0, SEND, frame(PING, 1, 0) * 40))
    daemon_subscriptions(add)
    for path in sorted((GOLDEN / "ubus").glob("*.hex")):
        stream = b"".join(bytes.fromhex(line[2:]) for line in path.read_text().splitlines() if line.startswith("> "))
        if path.name.startswith(("02", "19", "23", "24", "27")) and 0 < len(stream) <= LARGEST_SEED:
            save("bus_daemon", "golden_" + path.stem.replace(".", "_"), step(0, SEND, stream))


def daemon_subscriptions(add):
    publisher, subscriber = 0xA0000001, 0xA0000005
    pair = word(AT_ID, subscriber) + word(AT_TARGET, DEMO)
    news = word(AT_ID, DEMO) + name(AT_METHOD, "ev") + attribute(AT_DATA, number_field("n", 1))
    both = step(0, SEND, add) + step(1, SEND, frame(ADD, 1, 0) + frame(SUBSCRIBE, 2, 0, pair))
    notified = step(0, SEND, frame(NOTIFY, 2, DEMO, news + octet(AT_NO_REPLY, 1)) + frame(NOTIFY, 3, DEMO, news))
    answered = step(1, SEND, frame(STATUS, 3, publisher, word(AT_STATUS, 0) + word(AT_ID, subscriber)))
    ended = step(1, SEND, frame(UNSUBSCRIBE, 3, 0, pair) * 2)
    save("bus_daemon", "notifications", both + notified + answered + ended + notified)
    save("bus_daemon", "target_removed", both + step(0, SEND, frame(REMOVE, 3, 0, word(AT_ID, DEMO))) + ended)
    save("bus_daemon", "publisher_dies", both + notified + step(0, HANG_UP) + ended + both)
    save("bus_daemon", "subscriber_dies", both + step(1, SHUT_DOWN) + notified)
    save("bus_daemon", "deaf_subscriber", both + step(1, STOP_READING) + notified * 3 + step(1, READ_IN_PIECES))
    mutual = word(AT_ID, DEMO) + word(AT_TARGET, subscriber)
    save("bus_daemon", "subscribed_to_each_other", both + step(0, SEND, frame(SUBSCRIBE, 4, 0, mutual)) + notified)
    itself = word(AT_ID, DEMO) + word(AT_TARGET, DEMO)
    save("bus_daemon", "subscribed_to_itself", step(0, SEND, add + frame(SUBSCRIBE, 2, 0, itself)))
    save(
        "bus_daemon",
        "common_subscriber",
        step(0, SEND, add) + step(3, SEND, frame(ADD, 1, 0) + frame(SUBSCRIBE, 2, 0, pair)),
    )
    save(
        "bus_daemon",
        "subscribes_wrongly",
        both
        + step(1, SEND, frame(SUBSCRIBE, 5, 0, word(AT_ID, subscriber)) + frame(UNSUBSCRIBE, 6, 0, word(AT_TARGET, DEMO)))
        + step(1, SEND, frame(SUBSCRIBE, 7, 0, word(AT_ID, DEMO) + word(AT_TARGET, subscriber)))
        + step(0, SEND, frame(NOTIFY, 8, 0) + frame(NOTIFY, 9, 0, word(AT_ID, DEMO)) + frame(NOTIFY, 9, 0, news[:8] * 2)),
    )


def make():
    bus_messages()
    blobs()
    network_answers()
    status_pictures()
    client_streams()
    daemon_sessions()
    daemon_streams()
