# SPDX-License-Identifier: MIT
"""Small wrong turns in a C++ source: conditions turned round, bounds moved, statements left out, constants off by one, returns."""
import re
from collections import Counter
from dataclasses import dataclass, field

TOKEN = re.compile(r"""(?P<skip>//[^\n]*|/\*.*?\*/|^[ \t]*\#(?:[^\n]*\\\n)*[^\n]*|\s+)
    |(?P<text>(?:u8|[uUL])?R"\((?:.|\n)*?\)"|(?:u8|[uUL])?"(?:\\.|[^"\\\n])*"|'(?:\\.|[^'\\\n])+')
    |(?P<number>\d(?:[\w.]|'\d)*)
    |(?P<word>[A-Za-z_]\w*)
    |(?P<sign><=>|->\*?|::|<<=?|>>=|&&|\|\||[-+*/%&|^!=<>]=|\+\+|--|\.\.\.|.)""", re.X | re.S | re.M)
BOUNDS = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="}
LOGIC = {"&&": "||", "||": "&&"}
SUMS = {"+": "-", "-": "+"}
STEPS = {"++": "--", "--": "++", "+=": "-=", "-=": "+="}
BINDING = {"||": 1, "&&": 2, "|": 3, "^": 4, "&": 5, "==": 6, "!=": 6, "<": 7, "<=": 7, ">": 7, ">=": 7, "<=>": 8,
           "<<": 9, ">>": 9, "+": 10, "-": 10, "*": 11, "/": 11, "%": 11}
ENDS_OPERAND = {";", ",", "?", ":", "=", "+=", "-=", "*=", "/=", "%=", "|=", "&=", "^=", "<<=", ">>=", "return", "else", "case"}
# What only tells, and what holds at compile time.
SILENT_CALLS = {"LOG", "LOG_AS", "LOG_ENTER", "log_print_always", "static_assert", "assert", "dump_all_device",
                "dump_all_protocols"}
NO_STATEMENT = {"return", "if", "for", "while", "do", "switch", "case", "default", "break", "continue", "else", "const",
                "constexpr", "static", "auto", "using", "struct", "enum", "class", "namespace", "template", "extern", "int",
                "bool", "char", "unsigned", "size_t", "void", "uint8_t", "uint32_t", "int64_t", "public", "private", "delete"}
BEGINS_STATEMENT = {";", "{", "}", ":", "else"}
OTHER_RETURNS = {"true": "false", "false": "true", "OK": "-1", "nullptr": None, "0": None}
FUNCTION = re.compile(r"^(?!static_assert)(?:(?:template <[^\n]*> )?(?:struct|class) (?P<record>\w+)[^;\n]*\{"
                      r"|[A-Za-z_][^;={\n]*?(?P<name>~?\w+)\()", re.M)
NAMED_CONSTANT = re.compile(r"^constexpr ((?:unsigned |signed )?[\w:]+) (\w+) = ([^;{]+);", re.M)


@dataclass
class Token:
    kind: str
    text: str
    start: int
    end: int


@dataclass
class Mutation:
    """Of the text from `start` to `end`. `form` has %s for the call that asks whether this one is chosen, and %s for
    that text, in which others may stand."""
    kind: str
    start: int
    end: int
    before: str
    after: str
    form: str
    function: str = ""
    again: int = 1    # the second, third of the same words in this function
    path: str = ""
    number: int = 0

    @property
    def key(self):
        """The same wherever the lines move."""
        times = f" #{self.again}" if self.again > 1 else ""
        return f"{self.path} {self.function}: {self.kind}: {self.before} -> {self.after}{times}"


@dataclass
class Source:
    text: str
    tokens: list = field(default_factory=list)
    closing: dict = field(default_factory=dict)    # index of an opening bracket: of the one that closes it
    opening: dict = field(default_factory=dict)

    def __post_init__(self):
        self.tokens = [Token(found.lastgroup, found.group(), found.start(), found.end())
                       for found in TOKEN.finditer(self.text) if found.lastgroup != "skip"]
        still_open = []
        for i, token in enumerate(self.tokens):
            if token.text in ("(", "[", "{"):
                still_open.append(i)
            elif token.text in (")", "]", "}") and still_open:
                self.closing[still_open[-1]] = i
                self.opening[i] = still_open.pop()

    def part(self, first, last):
        return self.text[self.tokens[first].start:self.tokens[last].end]

    def is_binary(self, i):
        token = self.tokens[i]
        return (token.text in BINDING and self.text[token.start - 1:token.start].isspace()
                and self.text[token.end:token.end + 1].isspace())

    def mutation(self, kind, first, last, after, form, before=None):
        return Mutation(kind, self.tokens[first].start, self.tokens[last].end, short(before or self.part(first, last)),
                        short(after), form)


def short(text):
    text = " ".join(text.split())
    return text if len(text) <= 70 else text[:67] + "..."


def escaped(text):
    return text.replace("%", "%%")


def instead(text):
    return f"(%s ? ({escaped(text)}) : (%s))"


TURNED_ROUND = "(%s != static_cast<bool>(%s))"
LEFT_OUT = "{ if (!%s) %s }"


def silent_spans(source):
    """Indices of the tokens inside calls that only tell."""
    silent = set()
    for i, token in enumerate(source.tokens):
        if token.text in SILENT_CALLS and i + 1 in source.closing:
            silent.update(range(i, source.closing[i + 1] + 1))
    return silent


# --- how far what belongs to a sign reaches

def is_value(source, closing):
    """Of braces: int64_t{1}, and no block."""
    opening = source.opening.get(closing, 0)
    return source.tokens[opening - 1].kind == "word" and source.tokens[opening - 1].end == source.tokens[opening].start


def left_of(source, i, binding):
    first = j = i - 1
    while j >= 0:
        token = source.tokens[j]
        if token.text in ENDS_OPERAND or token.text in ("(", "[", "{") or (token.text == "}" and not is_value(source, j)):
            break
        if source.is_binary(j) and BINDING[token.text] < binding:
            break
        j = source.opening[j] if j in source.opening else j
        first, j = j, j - 1
    return first


def right_of(source, i, binding):
    last = j = i + 1
    while j < len(source.tokens):
        token = source.tokens[j]
        if token.text in ENDS_OPERAND or token.text in (")", "]", "}"):
            break
        if source.is_binary(j) and BINDING[token.text] <= binding:
            break
        j = source.closing.get(j, j)
        last, j = j, j + 1
    return last


def reach_of_step(source, i):
    """What ++ or -- stands before or behind."""
    def is_name(token):
        return token.kind == "word" or token.text in (".", "->", "::")
    first, last = i, i
    if source.tokens[i + 1].kind == "word" or source.tokens[i + 1].text in ("*", "("):
        last = i + 1
        while source.tokens[last].text == "*":
            last += 1
        last = source.closing.get(last, last)
        while is_name(source.tokens[last + 1]) or source.tokens[last + 1].text == "[":
            last = source.closing.get(last + 1, last + 1)
        return first, last
    first = source.opening.get(i - 1, i - 1)
    while is_name(source.tokens[first - 1]) or first in source.closing:
        first = source.opening.get(first - 1, first - 1)
    return first, last


# --- the kinds

def conditions(source, i):
    """The condition of if (...), while (...), turned round; behind a declaration only what follows it."""
    close = source.closing.get(i + 1)
    if not close:
        return
    first = next((j + 1 for j in range(close - 1, i + 1, -1) if source.tokens[j].text == ";"), i + 2)
    if first < close:
        yield source.mutation("condition", first, close - 1, f"!({source.part(first, close - 1)})", TURNED_ROUND)


def statements(source, i):
    """The call or the assignment that begins at this token, left out."""
    tokens = source.tokens
    if tokens[i].text in NO_STATEMENT or i == 0 or (tokens[i - 1].text not in BEGINS_STATEMENT and tokens[i - 1].text != ")"):
        return
    j = i
    while j < len(tokens) and tokens[j].text not in (";", "{", "}", ")"):
        j = source.closing.get(j, j) + 1
    if j >= len(tokens) or tokens[j].text != ";":
        return
    words = [token.text for token in tokens[i:j]]
    is_declaration = len(words) > 1 and tokens[i + 1].kind == "word" or words[1:2] in (["*"], ["&"], ["<"])
    if words and not is_declaration and ("(" in words or "=" in words or words[-1] in STEPS or words[0] in STEPS):
        yield source.mutation("left out", i, j, "(nothing)", LEFT_OUT)


def returns(source, i):
    end = next((j for j in range(i, len(source.tokens)) if source.tokens[j].text == ";"), None)
    if end is None:
        return
    if end == i + 1:
        yield source.mutation("return", i, end, "(nothing)", LEFT_OUT)
        return
    value = source.part(i + 1, end - 1)
    other = OTHER_RETURNS.get(value, "{}")
    if other and not value.startswith("{"):
        yield source.mutation("return", i, end, f"return {other};", "{ if (%s) return " + other + "; %s }")
    if value.endswith(")"):    # where nothing is returned, and only this compiles
        yield source.mutation("return", i, end, "return;", "{ if (%s) return; %s }")


def constants(source, i):
    found = re.fullmatch(r"(0|[1-9]\d*)([uUlL]*)", source.tokens[i].text.replace("'", ""))
    if found:
        number = int(found.group(1))
        for other in [number + 1] + ([number - 1] if number > 0 else []):
            yield source.mutation("constant", i, i, in_its_line(source, i, f"{other}{found.group(2)}"),
                                  instead(f"{other}{found.group(2)}"), in_its_line(source, i))


def in_its_line(source, i, other=None):
    """A number tells nothing without what stands around it."""
    token = source.tokens[i]
    before = source.text[source.text.rfind("\n", 0, token.start) + 1:token.start].split("//")[0].strip()[-30:]
    after = source.text[token.end:source.text.find("\n", token.end)].split("//")[0].strip()[:15]
    return f"{before} {other or token.text} {after}".strip()


def signs(source, i):
    token = source.tokens[i]
    for kind, others in (("bound", BOUNDS), ("logic", LOGIC), ("sum", SUMS)):
        if token.text in others and source.is_binary(i):
            first, last = left_of(source, i, BINDING[token.text]), right_of(source, i, BINDING[token.text])
            other = f"({source.part(first, i - 1)}) {others[token.text]} ({source.part(i + 1, last)})"
            yield source.mutation(kind, first, last, others[token.text], instead(other))
    if token.text in ("++", "--"):
        first, last = reach_of_step(source, i)
        other = source.part(first, last).replace(token.text, STEPS[token.text])
        yield source.mutation("step", first, last, other, instead(other))
    elif token.text in STEPS:
        first, last = left_of(source, i, 0), right_of(source, i, 0)
        other = f"{source.part(first, i - 1)} {STEPS[token.text]} {source.part(i + 1, last)}"
        yield source.mutation("step", first, last, other, instead(other))
    if token.text == "!" and source.tokens[i + 1].kind == "word":
        last = i + 1
        while source.tokens[last + 1].text in (".", "->", "::", "(", "["):
            last = source.closing.get(last + 1, last + 2 if source.tokens[last + 1].text in (".", "->", "::") else last + 1)
        yield source.mutation("condition", i, last, source.part(i + 1, last), TURNED_ROUND)


def found_in(source):
    silent = silent_spans(source)
    for i, token in enumerate(source.tokens[:-1]):
        if i in silent:
            continue
        if token.text in ("if", "while") and source.tokens[i + 1].text == "(":
            yield from conditions(source, i)
        elif token.text == "return":
            yield from returns(source, i)
        elif token.text in ("true", "false") and source.tokens[i - 1].text != "return":
            other = "false" if token.text == "true" else "true"
            yield source.mutation("constant", i, i, in_its_line(source, i, other), instead(other), in_its_line(source, i))
        elif token.kind == "number":
            yield from constants(source, i)
        elif token.kind == "sign":
            yield from signs(source, i)
        if token.kind == "word" or token.text in ("++", "--"):
            yield from statements(source, i)


def mutations_of(path, text):
    """Each once: a condition that is one "!", "==" or "!=" and no more is turned round by that sign."""
    source = Source(text)
    functions = [(found.start(), found["record"] or found["name"]) for found in FUNCTION.finditer(text)]
    constants_named = list(NAMED_CONSTANT.finditer(text))
    mutations = list(found_in(source))
    turned = {(m.start, m.end) for m in mutations if m.kind == "bound" and m.after in ("==", "!=")}
    seen = Counter()
    for mutation in mutations:
        if mutation.form == TURNED_ROUND:
            if (mutation.start, mutation.end) in turned:
                continue
            turned.add((mutation.start, mutation.end))
        mutation.path = path
        mutation.function = next((name for start, name in reversed(functions) if start < mutation.start), "")
        if named := next((m for m in constants_named if m.start() <= mutation.start < m.end()), None):
            mutation.function = named.group(2)
        seen[mutation.key] += 1
        mutation.again = seen[mutation.key]
        yield mutation
