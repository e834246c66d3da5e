"""Where a C++ source can be broken, and how. Used by scripts/mutate.

Knows no more of the language than this project's own format needs: blanks stand around operators,
not around the brackets of templates, and control statements have braces.
"""

import re
from typing import NamedTuple

KINDS = ("comparison", "off by one", "condition", "removed statement", "swapped statements")

COMPARISONS = {
    "==": ("!=",),
    "!=": ("==",),
    "<": ("<=", ">="),
    "<=": ("<", ">"),
    ">": (">=", "<="),
    ">=": (">", "<"),
}
BLOCK_HEADER = re.compile(r"\s*(?:(?:if|for|while|switch|do|else|try|catch)\b|$)")
TYPE_HEADER = re.compile(r"\b(namespace|class|struct|union|enum)\b")
LABEL = re.compile(r"(?:(?:case\b(?:[^:;]|::)*|default)\s*:(?!:)\s*)+")
COMMON_NAMES = set("auto bool char const else false if int return std true while 0 1".split())
NO_STATEMENT = re.compile(r"using\b|static_assert\b|friend\b|template\b|typedef\b")


class Mutant(NamedTuple):
    """Replaces the text of file from start to end by new."""

    file: str
    kind: str
    start: int
    end: int
    new: str


class Statement(NamedTuple):
    start: int
    end: int
    simple: bool  # ends in a semicolon, has no block
    last: bool = False  # of its function


def blank(source):
    """The source with blanks for comments, texts, directives and what they switch off."""

    def blanks(match):
        return re.sub(r"[^\n]", " ", match.group())

    def fill(match):
        text = match.group()
        return blanks(match) if text.startswith("/") else text[0] + "_" * (len(text) - 2) + text[0]

    token = r"//[^\n]*|/\*.*?\*/|\"(?:\\.|[^\"\\\n])*\"|(?<![0-9a-fA-F])'(?:\\.|[^'\\\n])+'"
    code = re.sub(token, fill, source, flags=re.DOTALL)
    code = re.sub(r"^#else\n.*?^#endif", blanks, code, flags=re.DOTALL | re.MULTILINE)
    return re.sub(r"^#(?:[^\n]*\\\n)*[^\n]*", blanks, code, flags=re.MULTILINE)


def closing(code, opening):
    """The bracket that closes the one at opening."""
    depth = 0
    for at in range(opening, len(code)):
        depth += (code[at] in "([{") - (code[at] in ")]}")
        if depth == 0:
            return at
    raise ValueError("unbalanced brackets")


def statements_of(code, at, stop, level, blocks):
    """Adds to blocks the statements of each block between at and stop that belongs to a function.

    The level is 0 outside of functions, 1 for the body of one, and so on.
    """
    block = []
    start = at
    while at < stop:
        character = code[at]
        if character in "([":
            at = closing(code, at)
        elif character == "{":
            end = closing(code, at)
            header = code[start:at]
            if level and BLOCK_HEADER.match(header):
                statements_of(code, at + 1, end, level + 1, blocks)
                more = re.compile(r"\s*(else|catch|while\s*\([^{}]*\)\s*;)").match(code, end + 1)
                if not more:
                    block.append(Statement(start, end + 1, False))
                    start = end + 1
            elif not level and "(" in header and " = " not in header:
                statements_of(code, at + 1, end, 1, blocks)
                start = end + 1
            elif not level and TYPE_HEADER.search(header):
                statements_of(code, at + 1, end, 0, blocks)
                start = end + 1
            at = end
        elif character == ";":
            block.append(Statement(start, at + 1, True))
            start = at + 1
        at += 1
    if level and block:
        block[-1] = block[-1]._replace(last=level == 1)
        blocks.append([trimmed(code, statement) for statement in block])


def trimmed(code, statement):
    text = code[statement.start : statement.end]
    start = statement.start + len(text) - len(text.lstrip())
    label = LABEL.match(code, start)
    return statement._replace(start=label.end() if label else start)


def names(code, statement):
    text = code[statement.start : statement.end]
    return set() if NO_STATEMENT.match(text) else set(re.findall(r"\w+", text)) - COMMON_NAMES


def comparisons(code):
    for match in re.finditer(r"(?<= )(==|!=|<=|>=|<|>)(?= )", code):
        for new in COMPARISONS[match.group()]:
            yield match.start(), match.end(), new


def off_by_one(code):
    for match in re.finditer(r"(?<![\w.\"'])(0|[1-9]\d*)(?=U?\b)(?![.'])", code):
        if not re.match(r"U?>|U?[;)] *= *(default|delete)", code[match.end() :]):
            yield match.start(), match.end(), str(int(match.group()) + 1)
    for match in re.finditer(r"\+\+|--", code):
        yield match.start(), match.end(), {"++": "--", "--": "++"}[match.group()]


def conditions(code):
    for match in re.finditer(r"\b(?:if|while) \(", code):
        end = closing(code, match.end() - 1)
        if ";" not in code[match.end() : end]:
            yield match.end(), end, f"!({{}})"
    for match in re.finditer(r"(?<=[ \n])(&&|\|\|)(?=[ \n])", code):
        yield match.start(), match.end(), {"&&": "||", "||": "&&"}[match.group()]
    for match in re.finditer(r"\b(true|false)\b", code):
        yield match.start(), match.end(), {"true": "false", "false": "true"}[match.group()]


def removed_statements(code):
    blocks = []
    statements_of(code, 0, len(code), 0, blocks)
    for statement in (statement for block in blocks for statement in block):
        text = code[statement.start : statement.end]
        is_result = statement.last and text.startswith("return ")  # undefined without it
        if statement.simple and not is_result and not NO_STATEMENT.match(text):
            yield statement.start, statement.end, ";"


def swapped_statements(code):
    blocks = []
    statements_of(code, 0, len(code), 0, blocks)
    for block in blocks:
        for first, second in zip(block, block[1:]):
            if names(code, first) & names(code, second):  # others are as good in either order
                yield first.start, second.end, (first.end, second.start)


def mutants_of(file, source):
    """All mutants of a source, in the order of the text and by kind."""
    code = blank(source)
    found = {kind: [] for kind in KINDS}
    for kind, finder in zip(
        KINDS, (comparisons, off_by_one, conditions, removed_statements, swapped_statements)
    ):
        for start, end, new in finder(code):
            if isinstance(new, tuple):
                between = source[new[0] : new[1]]
                new = source[new[1] : end] + between + source[start : new[0]]
            new = new.replace("{}", source[start:end]) if kind == "condition" else new
            found[kind].append(Mutant(file, kind, start, end, new))
    return found


def apply(mutant, source):
    return source[: mutant.start] + mutant.new + source[mutant.end :]
