"""Finds what can be changed in a C++ source that is formatted as this repository's are."""

import dataclasses
import re

COMMENTS_AND_TEXTS = re.compile(
    r'//[^\n]*|/\*.*?\*/|R"(\w*)\(.*?\)\1"|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])\'', re.S)
COMPARISON = re.compile(r" (<=|>=|==|!=|<|>) ")
OTHER = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "==", "&&": "||", "||": "&&"}
LOGICAL = re.compile(r" (&&|\|\|) ")
CONDITION = re.compile(r"\b(?:if|while) \(")
NUMBER = re.compile(r"(?<![\w.'])(\d+)(?![\w.'])")
CALL = re.compile(r"^ +((?!return\b|throw\b|delete\b|using\b|case\b|if\b|for\b|while\b|static_assert\b)"
                  r"[A-Za-z_][\w:]*(?:(?:\.|->)\w+|\([^()\n]*\)(?=[.-]))*\([^\n]*\));$", re.M)
RETURN = re.compile(r"\breturn ([^;{}\n]+);")


@dataclasses.dataclass(frozen=True)
class Mutation:
    path: str    # below the repository
    line: int
    kind: str
    begin: int   # of what is replaced
    end: int
    text: str    # in its place
    before: str  # the line
    after: str

    @property
    def name(self):
        return f"{self.path}:{self.line}@{self.begin}:{self.kind}"

    def applied(self, source):
        return source[:self.begin] + self.text + source[self.end:]


def blanked(source):
    """The source with spaces in place of comments, texts and preprocessor lines."""
    def spaces(found):
        return re.sub(r"[^\n]", " ", found[0])
    return re.sub(r"^#.*$", spaces, COMMENTS_AND_TEXTS.sub(spaces, source), flags=re.M)


def closing(code, opening):
    """Where the bracket that opens at `opening` closes."""
    depth = 0
    for at in range(opening, len(code)):
        depth += {"(": 1, ")": -1}.get(code[at], 0)
        if depth == 0:
            return at
    return None


def changes(code):
    """What can be changed: kind, begin, end and replacement."""
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
        yield "off by one", found.start(1), found.end(1), str(int(found[1]) + 1)
    for found in CALL.finditer(code):
        yield "call removed", found.start(1), found.end(1), "(void)0"
    for found in RETURN.finditer(code):
        if found[1] not in ("false", "nullptr", "std::nullopt", "0"):
            yield "default returned", found.start(1), found.end(1), "{}"


def line_around(text, begin):
    return text[text.rfind("\n", 0, begin) + 1:].split("\n", 1)[0].strip()


def mutations_of(path, repository):
    """All mutations of a source file."""
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
