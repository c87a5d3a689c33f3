"""Finds the possible mutations of C++ sources. Relies on the formatting of this repository."""

import dataclasses
import re

COMMENTS_AND_LITERALS = re.compile(
    r'//[^\n]*|/\*.*?\*/|R"(\w*)\(.*?\)\1"|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])\'', re.S)
COMPARISON = re.compile(r" (<=|>=|==|!=|<|>) ")
OTHER = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "==", "&&": "||", "||": "&&"}
LOGICAL = re.compile(r" (&&|\|\|) ")
CONDITION = re.compile(r"\b(?:if|while) \(")
NUMBER = re.compile(r"(?<![\w.'])(\d+)(?![\w.'])")
BUFFER = re.compile(r"std::array<(?:char|std::byte|unsigned char|std::uint8_t), $")
APPEARANCE = re.compile(r"\bset(?:ContentsMargins|Spacing)\([^;]*$|"
                        r"\bconstexpr int \w*(?:[mM]argin|[sS]pacing|[iI]nset) = $")
CALL = re.compile(r"^ +((?!return\b|throw\b|delete\b|using\b|case\b|if\b|for\b|while\b|static_assert\b)"
                  r"[A-Za-z_][\w:]*(?:(?:\.|->)\w+|\([^()\n]*\)(?=[.-]))*\([^\n]*\));$", re.M)
RETURN = re.compile(r"\breturn ([^;{}\n]+);")


@dataclasses.dataclass(frozen=True)
class Mutation:
    """A replacement of the characters from `begin` to `end` of a source file by `text`."""

    path: str    # relative to the repository
    line: int
    kind: str
    begin: int
    end: int
    text: str
    before: str  # the line with the original code
    after: str   # the line with the mutation

    @property
    def name(self):
        return f"{self.path}:{self.line}@{self.begin}:{self.kind}"

    def applied(self, source):
        return source[:self.begin] + self.text + source[self.end:]


def blanked(source):
    """Returns the source with spaces in place of comments, literals and preprocessor lines."""
    def spaces(found):
        return re.sub(r"[^\n]", " ", found[0])
    return re.sub(r"^#.*$", spaces, COMMENTS_AND_LITERALS.sub(spaces, source), flags=re.M)


def closing(code, opening):
    """Returns the position of the parenthesis that closes the one at `opening`, or None."""
    depth = 0
    for at in range(opening, len(code)):
        depth += {"(": 1, ")": -1}.get(code[at], 0)
        if depth == 0:
            return at
    return None


def successor(number):
    """Returns the number plus one, in the base of the number."""
    return f"0{int(number, 8) + 1:o}" if re.fullmatch(r"0[0-7]+", number) else str(int(number) + 1)


def changes(code):
    """Yields the kind, the begin, the end and the replacement of each possible mutation."""
    for found in COMPARISON.finditer(code):
        if found[1] in "<>" and code[:found.start()].rsplit("\n", 1)[-1].lstrip().startswith("template"):
            continue
        yield "comparison", found.start(1), found.end(1), OTHER[found[1]]
    for found in LOGICAL.finditer(code):
        yield "and/or", found.start(1), found.end(1), OTHER[found[1]]
    for found in CONDITION.finditer(code):
        end = closing(code, found.end() - 1)
        inside = code[found.end():end]
        if end and ";" not in inside and not re.match(r"(const )?auto\b|\w+[\w:<>]* \w+ = ", inside):
            yield "negated", found.end(), end, f"!({inside})"
    for found in NUMBER.finditer(code):
        before = code[:found.start()].rsplit("\n", 1)[-1]
        if not BUFFER.search(before) and not APPEARANCE.search(before):
            yield "off by one", found.start(1), found.end(1), successor(found[1])
    for found in CALL.finditer(code):
        yield "call removed", found.start(1), found.end(1), "(void)0"
    for found in RETURN.finditer(code):
        if found[1] not in ("false", "nullptr", "std::nullopt", "0"):
            yield "default returned", found.start(1), found.end(1), "{}"


def line_around(text, begin):
    return text[text.rfind("\n", 0, begin) + 1:].split("\n", 1)[0].strip()


def mutations_of(path, repository):
    """Returns all mutations of a source file."""
    source = path.read_text()
    code = blanked(source)
    found = []
    for kind, begin, end, text in changes(code):
        if kind == "negated":
            text = f"!({source[begin:end]})"
        changed = source[:begin] + text + source[end:]
        found.append(Mutation(str(path.relative_to(repository)), source.count("\n", 0, begin) + 1,
                              kind, begin, end, text, line_around(source, begin),
                              line_around(changed, begin)))
    return found
