# SPDX-License-Identifier: MIT
"""Small wrong turns in a C++ source: conditions flipped, bounds moved, statements left out, constants off by one, returns."""
import re
from dataclasses import dataclass

TOKEN = re.compile(r"""(?P<skip>//[^\n]*|/\*.*?\*/|^[ \t]*\#(?:[^\n]*\\\n)*[^\n]*|\s+)
    |(?P<text>(?:u8|[uUL])?R"\((?:.|\n)*?\)"|(?:u8|[uUL])?"(?:\\.|[^"\\\n])*"|'(?:\\.|[^'\\\n])+')
    |(?P<number>\d(?:[\w.]|'\d)*)
    |(?P<word>[A-Za-z_]\w*)
    |(?P<sign><=>|->\*?|::|<<=?|>>=|&&|\|\||[-+*/%&|^!=<>]=|\+\+|--|\.\.\.|.)""", re.X | re.S | re.M)
BOUNDS = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="}
LOGIC = {"&&": "||", "||": "&&"}
SUMS = {"+": "-", "-": "+"}
STEPS = {"++": "--", "--": "++", "+=": "-=", "-=": "+="}
# What only tells, and what holds at compile time.
SILENT_CALLS = {"LOG", "LOG_AS", "LOG_ENTER", "log_print_always", "static_assert", "assert", "dump_all_device",
                "dump_all_protocols"}
NO_STATEMENT = {"return", "if", "for", "while", "do", "switch", "case", "default", "break", "continue", "else", "const",
                "constexpr", "static", "auto", "using", "struct", "enum", "class", "namespace", "template", "extern", "int",
                "bool", "char", "unsigned", "size_t", "void", "uint8_t", "uint32_t", "int64_t", "public", "private", "delete"}
BEGINS_STATEMENT = {";", "{", "}", ":", "else"}


@dataclass
class Token:
    kind: str
    text: str
    start: int
    end: int


@dataclass
class Mutation:
    kind: str
    start: int
    end: int
    instead: str


def tokens_of(text):
    return [Token(found.lastgroup, found.group(), found.start(), found.end()) for found in TOKEN.finditer(text)
            if found.lastgroup != "skip"]


def closing_of(tokens, opening):
    """Index of the bracket that closes the one at this index, or None."""
    depth = 0
    for i in range(opening, len(tokens)):
        if tokens[i].text in "([{":
            depth += 1
        elif tokens[i].text in ")]}":
            depth -= 1
            if depth == 0:
                return i
    return None


def silent_spans(tokens):
    """Indices of the tokens inside calls that only tell."""
    silent = set()
    for i, token in enumerate(tokens):
        if token.text in SILENT_CALLS and i + 1 < len(tokens) and tokens[i + 1].text == "(":
            silent.update(range(i, (closing_of(tokens, i + 1) or i) + 1))
    return silent


def has_spaces_around(text, token):
    return text[token.start - 1:token.start].isspace() and text[token.end:token.end + 1].isspace()


def conditions(text, tokens, i):
    """The condition of if (...), while (...), turned round; behind a declaration only what follows it."""
    close = closing_of(tokens, i + 1)
    first = i + 2
    depth = 0
    for j in range(i + 1, close or 0):
        depth += (tokens[j].text in "([{") - (tokens[j].text in ")]}")
        if tokens[j].text == ";" and depth == 1:
            first = j + 1
    if close and first < close:
        start, end = tokens[first].start, tokens[close - 1].end
        yield Mutation("condition", start, end, f"!({text[start:end]})")


def statements(text, tokens, i):
    """The call or the assignment that begins at this token, left out."""
    if tokens[i].text in NO_STATEMENT or i == 0:
        return
    before = tokens[i - 1].text
    if before not in BEGINS_STATEMENT and before != ")":
        return
    depth = 0
    for j in range(i, min(i + 200, len(tokens))):
        depth += (tokens[j].text in "([{") - (tokens[j].text in ")]}")
        if depth < 0 or (depth == 0 and tokens[j].text in ("{", "}")):
            return
        if depth == 0 and tokens[j].text == ";":
            words = [token.text for token in tokens[i:j]]
            is_declaration = len(words) > 1 and tokens[i + 1].kind == "word" or words[1:2] in (["*"], ["&"], ["<"])
            if not is_declaration and ("(" in words or "=" in words or words[-1] in STEPS or words[0] in STEPS):
                yield Mutation("left out", tokens[i].start, tokens[j].end, "static_cast<void>(0);")
            return


def returns(text, tokens, i):
    end = next((j for j in range(i, len(tokens)) if tokens[j].text == ";"), None)
    if end is None:
        return
    if end == i + 1:
        yield Mutation("return", tokens[i].start, tokens[end].end, "static_cast<void>(0);")
        return
    value = text[tokens[i + 1].start:tokens[end - 1].end]
    others = {"true": "false", "false": "true", "OK": "-1", "nullptr": None, "0": None}
    other = others.get(value, "{}")
    if other and not value.startswith("{"):
        yield Mutation("return", tokens[i + 1].start, tokens[end - 1].end, other)
    if value.endswith(")"):    # where nothing is returned, and only this compiles
        yield Mutation("return", tokens[i].start, tokens[end].end, "return;")


def constants(token):
    found = re.fullmatch(r"(\d+)([uUlL]*)", token.text.replace("'", ""))
    if found:
        number = int(found.group(1))
        yield Mutation("constant", token.start, token.end, f"{number + 1}{found.group(2)}")
        if number > 0:
            yield Mutation("constant", token.start, token.end, f"{number - 1}{found.group(2)}")


def signs(text, tokens, i):
    token = tokens[i]
    for kind, others in (("bound", BOUNDS), ("logic", LOGIC), ("sum", SUMS)):
        if token.text in others and has_spaces_around(text, token):
            yield Mutation(kind, token.start, token.end, others[token.text])
    if token.text in STEPS:
        yield Mutation("step", token.start, token.end, STEPS[token.text])
    if token.text == "!" and tokens[i + 1].kind == "word":
        yield Mutation("condition", token.start, token.end, "")


def mutations_of(text):
    tokens = tokens_of(text)
    silent = silent_spans(tokens)
    for i, token in enumerate(tokens[:-1]):
        if i in silent:
            continue
        if token.text in ("if", "while") and tokens[i + 1].text == "(":
            yield from conditions(text, tokens, i)
        elif token.text == "return":
            yield from returns(text, tokens, i)
        elif token.text in ("true", "false") and tokens[i - 1].text != "return":
            yield Mutation("constant", token.start, token.end, "false" if token.text == "true" else "true")
        elif token.kind == "number":
            yield from constants(token)
        elif token.kind == "sign":
            yield from signs(text, tokens, i)
        if token.kind == "word" or token.text in ("++", "--"):
            yield from statements(text, tokens, i)
