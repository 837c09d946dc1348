#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Compares the papers with the code, both ways: what the code has stands in its paper, and nothing else does.

    tests/papers.py                status 1 when they differ
    tests/papers.py --self-test    does this check notice what is missing, and what is invented?

It looks at the keys of the configuration, methods and arguments of the bus, what its state object tells, result codes, options and
result files; and that every key, path and log line that any paper names is there, and every key of a configuration that is shipped.
A log line is a code span in double quotes: `"Wan Detection over!"`, in a table followed by its level. Every program of the Debian
package has a manual page, about which mandoc must have nothing to say, and which names each option and command of the program.
"""
import re
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
CONFIGURATION, BUS, OPERATING, PORTING, MANUAL, README = PAPERS = (
    "docs/configuration.md", "docs/bus.md", "docs/operating.md", "docs/porting.md", "docs/wan_detect.8", "README.md")
ROOMS = ("core", "status", "adapters", "model", "probes", "platform")
SCRIPTS = ("router",)
SHIPPED = ("packaging",)    # configurations in folders of the name `config`
PAGES, PROGRAMS = "packaging/debian/man", "packaging/debian/preinst"
TOOLS = {"ubus.1": ("compat/libubus/cli/main.cpp",), "ubusd.8": ("compat/libubus/ubusd/main.cpp",),    # who reads their words
         "uci.1": ("compat/libuci/cli/main.cpp", "compat/libuci/cli/session.cpp")}
FOREIGN_PAGES = {"arping 8", "ping 8"}
LEVELS = {"Critical": "2", "Error": "3", "Warning": "4", "Notice": "5", "Info": "6", "Debug": "7"}
TYPES = {"INT32": "integer", "STRING": "string", "BOOL": "boolean"}
# What libraries, system and bus daemon bring, and no source of ours spells.
FOREIGN_PATHS = {"/tmp", "/tmp/.uci", "/usr/share/acl.d", "/var/run"}

TEXT = r'"(?:[^"\\\n]|\\.)*"'
SPAN = re.compile(r"`([^`\n]+)`")
PACKAGE = r"(?:network|switch|protocol|sysmode)"
KEY = re.compile(rf"{PACKAGE}\.(?:\w+|@\w+\[N\])\.\w+")
# Sections that the code walks through: where, what stands around the names of the options, how the keys begin.
WALKS = (
    ("model/port_config.cpp", r'find_config_option\(\w+, "(\w+)"\)', ["network.@device[N]"]),
    ("model/port_config.cpp", r'"((?:wan_)?port_\w+)"', ["network.auto_wan_detect"]),
    ("model/switch_attributes.cpp", r"PORT_OPTIONS\[\]\[9\] = \{([^}]*)\}", ["switch.portN"]),
    ("model/reserved_ports.cpp", r'strcmp\(name, "(\w+)"\)', ["switch.lan_agg"]),
    ("model/protocol_config.cpp", r'find_config_option\(section, "(protos)"\)', ["protocol.ipv4", "protocol.ipv6"]),
    ("model/static_config.cpp", r"PLAIN_STATIC = \{([^}]*)\}", ["protocol.static"]),
    ("model/static_config.cpp", r"PPPOE_SECONDARY = \{([^}]*)\}", ["protocol.pppoe"]),
    ("core/retries.cpp", r'find_config_option\(section, "(\w+)"\)', ["network.auto_wan_detect"]),
    ("core/hints.cpp", r'text_of\(wan, "(\w+)"\)', ["network.wan"]),
    ("core/hints.cpp", r'text_of\(section, "(\w+)"\)', ["network.@device[N]"]),
    ("model/static_config.cpp", r"TUNNEL_SECONDARY = \{([^}]*)\}", ["protocol.l2tp", "protocol.pptp"]),
)
# What the functions are that choose a word.
WORDS = {"reserved_as": "reserved"}
# What the lists of words are for.
LISTS = {"OPENERS": "opener", "FATES": "why", "DECISIONS": "decision", "SWAPS": "swap", "HINT_WORDS": "hint",
         "STATES": "state"}
# What a variable section stands for.
VARIABLE = {"switch": ["portN"], "protocol": ["pppoe", "l2tp", "pptp"]}


class Tree:
    """The texts of the project, one of them replaced, or added."""

    def __init__(self, replaced=None, text=""):
        self.replaced = {replaced: text} if replaced else {}

    def text(self, path):
        return self.replaced[path] if path in self.replaced else (ROOT / path).read_text(encoding="utf-8")

    def all(self, folders, pattern):
        paths = {path.relative_to(ROOT).as_posix() for folder in folders for path in (ROOT / folder).rglob(pattern) if path.is_file()}
        paths |= {path for path in self.replaced for folder in folders if Path(path).match(f"{folder}/**/{pattern}")}
        return {path: self.text(path) for path in sorted(paths)}

    def code(self):
        return {path: re.sub(r"//[^\n]*", "", text) for pattern in ("*.cpp", "*.h")
                for path, text in self.all(ROOMS, pattern).items()}

    def scripts(self):
        return self.all(SCRIPTS, "*")


# --- what the code has


def keys_of_code(tree):
    found = set()
    named = [text[1:-1] for source in tree.code().values() for text in re.findall(TEXT, source)
             if re.fullmatch(rf"{PACKAGE}\.[\w%]+\.\w+", text[1:-1])]
    named += [key for script in tree.scripts().values()
              for key in re.findall(rf"\b{PACKAGE}\.[\w$]+\.[a-z]\w*", script)]
    for key in named:
        package, section, option = key.split(".")
        sections = VARIABLE[package] if re.search(r"[%$]", section) else [section]
        found.update(f"{package}.{one}.{option}" for one in sections)
    for path, around, beginnings in WALKS:
        options = [name for match in re.findall(around, tree.text(path)) for name in re.findall(r'"(\w+)"', match) or [match]]
        if not options:
            sys.exit(f"papers.py: nothing in {path} looks like {around} any more; WALKS must learn how it reads its options")
        found.update(f"{beginning}.{option}" for beginning in beginnings for option in options)
    return found


def exports_of_code(tree):
    """Both objects and the event, and every argument with its type."""
    acts, tells = tree.text("adapters/bus_object.cpp"), tree.text("adapters/state_object.cpp")
    names = dict(re.findall(r'constexpr const char \*(\w+) = "([\w.]+)";', acts + tells))
    policies = {name: re.findall(r'\{"(\w+)", BLOBMSG_TYPE_(\w+)\}', fields)
                for name, fields in re.findall(r"blobmsg_policy (\w+)\[\w+\] = \{(.*?)\};", acts + tells, re.S)}
    methods = re.findall(r'method<\w+>\("(\w+)", (\w+)\)', acts) + [(names["BAN_EVENT"], "BAN_POLICY")]
    methods += re.findall(r'\{\.name = "(\w+)".*?\.policy = (\w+)', tells, re.S)
    return {f"object {names['OBJECT_NAME']}", f"object {names['STATE_OBJECT_NAME']}"} | {method for method, _ in methods} | {
        f"{method} {argument}: {TYPES.get(kind, kind)}" for method, policy in methods
        for argument, kind in policies.get(policy, [])}


def state_of_code(tree):
    """The fields that the state object tells, the words in them, and what it notifies of."""
    code = "".join(tree.text(f"adapters/state_{part}.cpp") for part in ("report", "reasons", "events"))
    fields = re.findall(r'\b(?:text|number|flag)\("(\w+)"|report_address\(\w+, "(\w+)"|'
                        r't_bus_(?:table|array) \w+\(\w+, "(\w+)"\)', code)
    lists = {name: re.findall(r"\w+", re.sub(r'\\0|"', " ", texts)) for name, texts in re.findall(
        r"constexpr char (\w+)\[\] = ([^;]*);", tree.text("model/chronicle_words.cpp") + tree.text("adapters/state_report.cpp") +
        tree.text("core/progress.cpp"))}
    fields += [(name,) for name in lists["NAMES"]]
    told = tree.text("core/progress.cpp") + code
    bodies = re.findall(r"^(?:static )?const char \*(\w+)\(([^\n]*\n\{.*?^)\}", told, re.M | re.S)
    words = {(WORDS[name], word) for name, body in bodies if name in WORDS for word in re.findall(r'return "(\w+)"', body)}
    words |= {(LISTS[name], word) for name in LISTS for word in lists[name]}
    words |= {("next", word) for word in re.findall(r'\{&t_wan_detect_engine::\w+, "(\w+)"\}', told)}
    return {f"field {name}" for found in fields for name in found if name} | {f"{what} {word}" for what, word in words} | {
        f"notification {name}" for name in re.findall(r'\bannounce\("(\w+)"', code)}


def codes_of_code(tree):
    code = tree.text("platform/result_codes.h") + tree.text("adapters/bus_object.cpp")
    return {f"{name} = {value}" for name, value in
            re.findall(r"constexpr int (OK|ERR_\w+|PROBE_\w+|DEVICE_\w+|REPLY_\w+(?<!_MS)) = (-?\d+);", code)}


def options_of_code(tree):
    """Those with a letter of their own among the short ones, and those without."""
    code = tree.text("core/options.cpp")
    short = re.search(r'getopt_long\(argc, argv, "([\w:]+)"', code).group(1)
    return {(f"-{letter} " if letter in short else "") + f"--{name}" + (" ..." if kind == "required" else "") for name, kind, letter in
            re.findall(r"""\{"([\w-]+)", (\w+)_argument, nullptr, '(\w)'\}""", code)}


def result_files_of_code(tree):
    return {path for code in tree.code().values() for path in re.findall(r'_RESULT_FILE = "([^"]+)"', code)}


def lines_of_code(tree):
    """Every log line with its level, what varies in it as a pattern."""
    for code in tree.code().values():
        for level, literals in re.findall(rf"\bLOG(?:_AS\(\S+|\(|_AS\(),?\s*({'|'.join(LEVELS)}),\s*((?:{TEXT}\s*)+)", code):
            text = "".join(part[1:-1] for part in re.findall(TEXT, literals)).replace(r"\"", '"').replace(r"\n", "").strip()
            yield LEVELS[level], re.compile(re.sub(r"%[-+ #0]*\d*[hlz]*[a-zA-Z]", ".*", re.escape(text)))


# --- what the papers say


def rows(text):
    """The cells of every row of every table; an empty first cell is the one above."""
    first = ""
    for line in text.splitlines():
        cells = [cell.strip().replace(r"\|", "|") for cell in re.split(r"(?<!\\)\|", line)[1:-1]]
        if cells and not set("".join(cells)) <= set("- "):
            first = cells[0] = cells[0] or first
            yield cells


def keys_of_paper(tree):
    return {key for cells in rows(tree.text(CONFIGURATION)) for key in KEY.findall(cells[0])}


def keys_named(text):
    """All keys of a paper, those of its examples too."""
    yield from (re.sub(r"^switch\.port\d+\.", "switch.portN.", key) for key in KEY.findall(text))
    package = section = None
    for line in text.splitlines():
        if found := re.match(r"# /etc/config/(\w+)$", line):
            package = found.group(1)
        elif found := re.match(r"config (\w+)(?: '(\w+)')?", line):
            section = "portN" if found.group(1) == "switch_port" else found.group(2) or f"@{found.group(1)}[N]"
        elif found := re.match(r"\t(?:option|list) (\w+)", line):
            yield f"{package}.{section}.{found.group(1)}"


def exports_of_paper(tree):
    text = tree.text(BUS)
    arguments = [[cell.strip("`") for cell in cells] for cells in rows(text) if cells[2:] and cells[2] in (*TYPES.values(), "none")]
    offered = re.search(r"offers\s+two\s+objects,(.*?)\. ", text, re.S)
    return {f"object {name}" for name in SPAN.findall(offered.group(1) if offered else "")} | {
        method for method, *_ in arguments} | {f"{method} {name}: {kind}" for method, name, kind, *_ in arguments if kind != "none"}


def state_of_paper(tree):
    """The same of the tables below the heading of the state object: each table is named by its first cell."""
    section = re.search(r"^## The state\n(.*?)^## ", tree.text(BUS), re.M | re.S)
    found, table = set(), None
    for line in section.group(1).splitlines() if section else []:
        cells = line[1:-1].split("|") if line.startswith("| ") else None
        if not cells:
            table = table if line.startswith("|") else None
        elif table is None:
            table = cells[0].strip(" `")
        else:
            first = SPAN.findall(cells[0])
            if table in ("field", "notification", "why", "decision", "hint"):
                found |= {f"{table} {word}" for word in first}
            if table == "notification":
                found |= {f"field {word}" for word in SPAN.findall(cells[1])}
            if table == "field" and first[0] in ("opener", "swap", "reserved", "state", "next"):
                found |= {f"{first[0]} {word}" for word in SPAN.findall(cells[1])}
            if table == "field" and first[0] == "answer":
                found |= {f"field {word}" for word in SPAN.findall(cells[1])}
    return found


def codes_of_paper(tree):
    return {f"{cells[1].strip('`')} = {cells[0]}" for cells in rows(tree.text(BUS))
            if re.fullmatch(r"-?\d+", cells[0]) and re.fullmatch(r"`[A-Z_]+`", cells[1])}


def options_of_paper(tree):
    return {(f"-{letter} " if letter else "") + f"--{name}" + (" ..." if argument else "") for letter, name, argument in
            re.findall(r"^\.It Fl (?:(\w) , Fl )?-([\w-]+)( Ar \w+)?$", tree.text(MANUAL), re.M)}


def result_files_of_paper(tree):
    return {cells[0].strip("`") for cells in rows(tree.text(BUS)) if cells[0].startswith("`/")}


def paths_named(text):
    for words in re.findall(r"^\.It Pa (.+)$", text, re.M) + SPAN.findall(text):
        yield from (word for word in re.split(r"[ ,]+", words) if re.fullmatch(r"/[\w./-]+", word))


def options_named(text):
    """What stands behind the daemon's name where it is called."""
    for options in re.findall(r"(?<![\w/] )\bwan_detect((?: -[\w-]+| \d| LEVEL)+)", text):
        yield from re.findall(r" (-[\w-]+)", options)


def lines_named(text):
    """Log lines, and the level that stands beside them."""
    for cells in [*rows(text), *([line] for line in re.sub(r"^\|.*", "", text, flags=re.M).splitlines())]:
        for cell, beside in zip(cells, cells[1:] + [None]):
            for line in re.findall(r'`"([^`]+)"`', cell):
                yield line, beside if beside in LEVELS.values() else None


# --- the manual pages of the Debian package


def pages(tree):
    """Their texts by their names."""
    return {Path(path).name: text for path, text in tree.all([PAGES], "*").items()} | {Path(MANUAL).name: tree.text(MANUAL)}


def pages_needed(tree):
    programs = re.search(r"for program in (.*); do", tree.text(PROGRAMS)).group(1).split()
    return {f"{Path(program).name}.{1 if program.startswith('bin/') else 8}" for program in programs}


def words_of_tool(tree, sources):
    """Its commands, and its options, with a colon where a value follows."""
    code = "".join(tree.text(source) for source in sources)
    options = re.findall(r"\w:?", re.search(r'getopt\(argc, argv, "([\w:]+)"', code).group(1))
    return {f"-{option}" for option in options} | set(re.findall(r'\{"(\w+)", (?:\d, \d, )?\w+\}', code))


def words_of_page(text):
    found = set()
    for kind, names, value in re.findall(r"^\.It (Fl|Ic) (\w+(?: , \w+)*)( Ar)?", text, re.M):
        found |= {f"-{name}{':' if value else ''}" if kind == "Fl" else name for name in names.split(" , ")}
    return found


def flaws_of_pages(tree):
    texts = pages(tree)
    found = differences("manual page", PAGES, pages_needed(tree), set(texts))
    for name, sources in TOOLS.items():
        found += differences("option or command", name, words_of_tool(tree, sources), words_of_page(texts.get(name, "")))
    for name, text in texts.items():
        found += [f"{name} refers to {page}, which is not there" for page in re.findall(r"^\.Xr ([\w-]+ \d)", text, re.M)
                  if page not in FOREIGN_PAGES and page.replace(" ", ".") not in texts]
        lint = subprocess.run(["mandoc", "-Tlint"], input=text, capture_output=True, text=True, check=False)
        found += [f"{name}: {line}" for line in lint.stdout.splitlines() if "referenced manual not found" not in line]
    return found


# --- the comparison


def differences(what, paper, code, written):
    return [f"{paper} lacks the {what} {one}" for one in sorted(code - written)] + \
        [f"{paper} tells of the {what} {one}, which is not in the code" for one in sorted(written - code)]


def flaws(tree):
    keys, options = keys_of_code(tree), " ".join(options_of_code(tree)).split()
    found = differences("key", CONFIGURATION, keys, keys_of_paper(tree))
    found += differences("method, event or argument", BUS, exports_of_code(tree), exports_of_paper(tree))
    found += differences("state's", BUS, state_of_code(tree), state_of_paper(tree))
    found += differences("code", BUS, codes_of_code(tree), codes_of_paper(tree))
    found += differences("option", MANUAL, options_of_code(tree), options_of_paper(tree))
    found += differences("result file", BUS, result_files_of_code(tree), result_files_of_paper(tree))
    said, spelt = list(lines_of_code(tree)), "\n".join([*tree.code().values(), *tree.scripts().values()])
    for paper in PAPERS:
        text = tree.text(paper)
        unknown = [key for key in keys_named(text) if key not in keys and key not in keys_of_paper(tree)]
        unknown += [option for option in options_named(text) if option not in options]
        unknown += [path for path in paths_named(text) if path not in spelt and path not in FOREIGN_PATHS
                    and not re.fullmatch(r"/etc/config/" + PACKAGE, path)]
        unknown += [f'"{line}"' for line, level in lines_named(text)
                    if not any(level in (None, one) and pattern.fullmatch(line) for one, pattern in said)]
        found += [f"{paper} names {one}, which is not in the code" for one in unknown]
    for path, text in tree.all(SHIPPED, "config/*").items():
        found += [f"{path} sets {key}, which nobody reads" for key in keys_named(f"# /etc/config/{Path(path).name}\n{text}")
                  if key not in keys]
    return found + flaws_of_pages(tree)


# --- does this find what is wrong?

MISTAKES = (    # where, what stands there, what is written instead, and what is to be said of it
    (CONFIGURATION, "`network.wan.carrier`", "`network.wan.courier`", ["lacks the key network.wan.carrier",
                                                                       "tells of the key network.wan.courier"]),
    (CONFIGURATION, "\toption label", "\toption lable", ["names switch.portN.lable"]),
    (OPERATING, "network.auto_wan_detect.enable=", "network.auto_wan_detect.enabled=", ["names network.auto_wan_detect.enabled"]),
    (BUS, "| `delay` | integer", "| `delay` | string", ["lacks the method, event or argument wan_detect delay: integer",
                                                        "tells of the method, event or argument wan_detect delay: string"]),
    (BUS, "| `time` | integer", "| `until` | integer", ["lacks the method, event or argument wan_detect_add_banned_dev time"]),
    (BUS, "| -97 |", "| -197 |", ["lacks the code ERR_ALREADY_PRESENT = -97", "tells of the code ERR_ALREADY_PRESENT = -197"]),
    (BUS, "| `/tmp/wan_detect_result`", "| `/tmp/wan_result`", ["lacks the result file /tmp/wan_detect_result",
                                                               "names /tmp/wan_result"]),
    (MANUAL, ".It Fl -watch", ".It Fl -follow", ["lacks the option --watch", "tells of the option --follow"]),
    (MANUAL, ".It Fl d , Fl -debug", ".It Fl D , Fl -debug", ["lacks the option -d --debug", "tells of the option -D --debug"]),
    (PORTING, "wan_detect -d 7", "wan_detect -x 7", ["names -x"]),
    (OPERATING, "Wan Detection over!", "Wan detection over!", ['names "Wan detection over!"']),
    (OPERATING, '`"Wan Detection over!"` | 6', '`"Wan Detection over!"` | 5', ['names "Wan Detection over!"']),
    (PORTING, "`/sbin/wanlan_port_reload`", "`/sbin/wanlan_reload`", ["names /sbin/wanlan_reload"]),
    ("model/current_wan.cpp", '"network.wan.carrier"', '"network.wan.courier"', ["lacks the key network.wan.courier"]),
    ("model/reserved_ports.cpp", '"lanport"', '"lanports"', ["lacks the key switch.lan_agg.lanports"]),
    ("model/static_config.cpp", '"static_gateway"', '"static_router"', ["lacks the key protocol.pptp.static_router"]),
    ("core/hints.cpp", 'text_of(wan, "ifname")', 'text_of(wan, "netdev")', ["lacks the key network.wan.netdev"]),
    ("router/online-test", "protocol.static.gateway", "protocol.static.hop", ["lacks the key protocol.static.hop"]),
    (BUS, "| `lan_hosts`, `lan_seen` |", "| `lan_hosts` |", ["lacks the state's field lan_seen"]),
    (BUS, "| `silent`, `other_answered` |", "| `quiet`, `other_answered` |", ["lacks the state's why silent",
                                                                             "tells of the state's why quiet"]),
    (BUS, "| `swap` | `name`, `status`, `pause` |", "| `swap` | `name`, `status` |", ["lacks the state's field pause"]),
    ("model/chronicle_words.cpp", '"look_again\\0"', '"look_anew\\0"', ["lacks the state's opener look_anew"]),
    ("core/progress.cpp", '"judging\\0"', '"judged\\0"', ["lacks the state's state judged"]),
    ("core/progress.cpp", '"judgement"', '"verdict"', ["lacks the state's next verdict"]),
    ("adapters/state_events.cpp", 'announce("ban"', 'announce("banned"', ["lacks the state's notification banned"]),
    ("adapters/state_report.cpp", '"wan", wan->name', '"role", wan->name', ["lacks the state's field role"]),
    ("adapters/state_object.cpp", '"explain"', '"tell"', ["lacks the method, event or argument tell device"]),
    ("adapters/bus_object.cpp", '("hotplug"', '("coldplug"', ["lacks the method, event or argument coldplug name"]),
    ("platform/result_codes.h", "ERR_BUSY = -85", "ERR_BUSY = -86", ["lacks the code ERR_BUSY = -86"]),
    ("core/options.cpp", '{"help",', '{"halt",', ["lacks the option -h --halt"]),
    ("core/proto_stage.h", "/tmp/protocol_detect_result", "/tmp/found", ["lacks the result file /tmp/found"]),
    (MANUAL, ".Sh FILES", ".Sh FILE", ["wan_detect.8: mandoc: <stdin>", "possible typo in section name"]),
    (f"{PAGES}/uci.1", ".Sh FILES", ".Sh FILE", ["uci.1: mandoc: <stdin>", "possible typo in section name"]),
    (f"{PAGES}/uci.1", ".Xr ubus 1", ".Xr bus 1", ["uci.1 refers to bus 1"]),
    (f"{PAGES}/uci.1", ".It Ic delete , del", ".It Ic delete", ["uci.1 lacks the option or command del"]),
    (f"{PAGES}/ubusd.8", ".It Fl s Ar socket", ".It Fl s", ["lacks the option or command -s:", "tells of the option or command -s,"]),
    ("compat/libuci/cli/session.cpp", '{"revert",', '{"undo",', ["uci.1 lacks the option or command undo"]),
    ("compat/libubus/cli/main.cpp", '{"send", send}', '{"emit", send}', ["ubus.1 lacks the option or command emit"]),
    (PROGRAMS, "bin/uci ", "bin/uci bin/uca ", [f"{PAGES} lacks the manual page uca.1"]),
    (PROGRAMS, "sbin/online-test ", "", [f"{PAGES} tells of the manual page online-test.8"]),
)


def self_test():
    failed = []
    for path, there, instead, wanted in MISTAKES:
        text = Tree().text(path)
        if there not in text:
            failed.append(f"{path} has no {there!r} that could be mistaken")
            continue
        told = "\n".join(flaws(Tree(path, text.replace(there, instead))))
        failed += [f"nobody says {one!r} of {instead!r} in {path}" for one in wanted if one not in told]
    shipped = Tree("packaging/any/config/network", "config interface 'wan'\n\toption courier '4'\n")
    if not any("sets network.wan.courier" in flaw for flaw in flaws(shipped)):
        failed.append("nobody looks at a configuration that is shipped")
    return failed


def main():
    found = self_test() if sys.argv[1:] == ["--self-test"] else flaws(Tree())
    for flaw in found:
        print(f"papers.py: {flaw}", file=sys.stderr)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
