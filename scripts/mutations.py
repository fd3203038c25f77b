"""Small changes of a C++ source, found by its tokens: another operator, another number, a condition that never holds, a
statement that is gone.

Comments, texts, preprocessor lines, attributes and what only states something while compiling are left alone. The sources
are formatted by clang-format, by which a binary operator stands between blanks and a template's bracket does not.
"""

import dataclasses
import hashlib
import re

TOKEN = re.compile(r"""
    (?P<blank>\s+)
  | (?P<comment>//[^\n]*|/\*.*?\*/)
  | (?P<text>"(?:\\.|[^"\\\n])*")
  | (?P<char>'(?:\\.|[^'\\\n])+')
  | (?P<number>0[xX][0-9a-fA-F']+[uUlL]*|\d[\d']*(?:\.\d+)?[uUlL]*)
  | (?P<word>[A-Za-z_]\w*)
  | (?P<operator><<=|>>=|<=>|->|::|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||\+=|-=|\*=|/=|%=|&=|\|=|\^=|\.\.\.|.)
""", re.VERBOSE | re.DOTALL)
DIRECTIVE = re.compile(r"^[ \t]*#(?:[^\n]*\\\n)*[^\n]*", re.MULTILINE)

# What stands between operands, by what takes its place.
BINARY = {"==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">", "&&": "||", "||": "&&", "+": "-", "-": "+",
          "*": "+", "/": "*", "%": "/", "<<": ">>", ">>": "<<", "&": "|", "|": "&", "^": "|", "+=": "-=", "-=": "+=",
          "|=": "&=", "&=": "|=", "<<=": ">>=", ">>=": "<<="}
STEPS = {"++": "--", "--": "++"}
WORDS = {"true": "false", "false": "true"}

# Their arguments only state something while compiling.
STATEMENTS_OF_FACT = {"static_assert", "QDT_FIELD_AT", "QDT_RECORD_SIZE", "QDT_BITS_AT", "alignas", "__attribute__"}
# No expression statement starts with these.
DECLARES = {"using", "return", "case", "default", "goto", "const", "static", "constexpr", "struct", "class", "enum", "union",
            "namespace", "friend", "template", "typedef", "extern", "public", "private", "protected", "if", "for", "while",
            "do", "switch", "else", "auto", "static_assert", "thread_local", "constinit", "typename"}
KEYWORDS_BEFORE_UNARY = {"return", "case", "else", "do", "sizeof", "co_return"}


@dataclasses.dataclass(frozen=True)
class Token:
    kind: str
    text: str
    begin: int
    end: int


@dataclasses.dataclass(frozen=True)
class Mutation:
    """`text` in place of what stands at begin to end of a file; `nth` of this kind among lines that read alike."""
    path: str
    begin: int
    end: int
    text: str
    line: int
    source: str  # the line, without blanks around it
    what: str
    nth: int = 0

    def key(self):
        """What it is called in lists: independent of what stands in other lines."""
        return f"{self.path} | {self.source} | {self.what}" + (f" #{self.nth + 1}" if self.nth else "")

    def rank(self, seed):
        """Its place in a draw, which changes elsewhere leave as it is."""
        return hashlib.sha256(f"{seed}|{self.key()}".encode()).digest()

    def apply(self, source):
        # Lines keep their numbers, which logs and what is allocated tell.
        gone = source[self.begin:self.end].count("\n") - self.text.count("\n")
        return source[:self.begin] + self.text + "\n" * gone + source[self.end:]


def tokens_of(source):
    """The tokens of code; directives and comments become blanks."""
    source = DIRECTIVE.sub(lambda match: re.sub(r"[^\n]", " ", match.group()), source)
    found = []
    for match in TOKEN.finditer(source):
        if match.lastgroup not in ("blank", "comment"):
            found.append(Token(match.lastgroup, match.group(), match.start(), match.end()))
    return found


def closing(tokens, at):
    """The place of the bracket that closes the one at `at`."""
    pairs = {"(": ")", "[": "]", "{": "}"}
    opening, close, depth = tokens[at].text, pairs[tokens[at].text], 0
    for place in range(at, len(tokens)):
        if tokens[place].text == opening:
            depth += 1
        elif tokens[place].text == close:
            depth -= 1
            if depth == 0:
                return place
    raise ValueError(f"nothing closes the bracket at byte {tokens[at].begin}")


def facts(tokens):
    """The places of tokens that are left alone."""
    left = set()
    for at, token in enumerate(tokens[:-1]):
        following = tokens[at + 1].text
        if token.text in STATEMENTS_OF_FACT and following == "(":
            left.update(range(at, closing(tokens, at + 1) + 1))
        elif token.text == "[" and following == "[":
            left.update(range(at, closing(tokens, at) + 1))
        elif token.text == "operator":
            left.update((at, at + 1))
    return left


class Finder:
    """Finds what can be changed in one file."""

    def __init__(self, path, source):
        self.path, self.source = path, source
        self.tokens = tokens_of(source)
        self.left = facts(self.tokens)
        self.found = []
        # Where the parentheses of conditions and loops end.
        self.heads = {closing(self.tokens, at + 1) for at, token in enumerate(self.tokens)
                      if token.text in ("if", "for", "while", "switch") and self.tokens[at + 1].text == "("}
        self.lines = source.split("\n")

    def add(self, begin, end, text, what):
        line = self.source.count("\n", 0, begin)
        self.found.append(Mutation(self.path, begin, end, text, line + 1, self.lines[line].strip(), what))

    def replace(self, token, text):
        self.add(token.begin, token.end, text, f"{token.text} -> {text or 'nothing'}")

    def spaced(self, token):
        """Whether it stands between blanks, as binary operators do."""
        return self.source[token.begin - 1].isspace() and self.source[token.end:token.end + 1].isspace()

    def after_operand(self, at):
        before = self.tokens[at - 1] if at > 0 else None
        return before is not None and (before.kind in ("number", "char", "text") or before.text in (")", "]", "}") or
                                       (before.kind == "word" and before.text not in KEYWORDS_BEFORE_UNARY))

    def operator(self, at):
        token = self.tokens[at]
        if token.text in STEPS:
            self.replace(token, STEPS[token.text])
        elif token.text in BINARY and self.spaced(token) and self.after_operand(at):
            self.replace(token, BINARY[token.text])
        elif token.text in ("!", "~") and not self.after_operand(at):
            self.replace(token, "")

    def number(self, token):
        match = re.fullmatch(r"(0[xX])?([0-9a-fA-F']+?)([uUlL]*)", token.text)
        if match is None:
            return
        prefix, digits, suffix = match.groups()
        value = int(digits.replace("'", ""), 16 if prefix else 10)
        shown = hex if prefix else str
        self.replace(token, shown(value + 1) + suffix)
        if value > 0:
            self.replace(token, shown(value - 1) + suffix)

    def condition(self, at):
        """`if (...)` that never holds."""
        end = closing(self.tokens, at + 1)
        inside = self.tokens[at + 2:end]
        if not any(token.text == ";" for token in inside):
            self.add(inside[0].begin, inside[-1].end, "false", "the condition -> false")

    def statement(self, at):
        """Removes the expression statement that starts at `at`, when one does."""
        tokens = self.tokens
        first = tokens[at]
        if first.text in DECLARES or not (first.kind == "word" or first.text in ("*", "++", "--", "(")):
            return
        end = at
        while tokens[end].text != ";":
            if tokens[end].text in ("(", "["):
                end = closing(tokens, end)
            if tokens[end].text in ("{", "}") or end + 1 >= len(tokens):
                return
            end += 1
        body = tokens[at:end]
        is_jump = len(body) == 1 and first.text in ("break", "continue")
        if is_jump or (len(body) > 1 and not self.declares(body)):
            self.add(first.begin, tokens[end - 1].end, "", "the statement -> nothing")

    def begins_statement(self, at):
        """Whether a statement may start at `at`, of a place where statements stand."""
        before = self.tokens[at - 1].text
        if before == ")":  # of a condition or a loop
            return (at - 1) in self.heads
        if before == ":":  # of a label
            start = at - 1
            while self.tokens[start].text not in (";", "{", "}", "case", "default"):
                start -= 1
            return self.tokens[start].text in ("case", "default")
        return before in (";", "{", "}", "else")

    @staticmethod
    def declares(body):
        """A declaration has two names beside each other, or `*` or `&` between them, before any bracket."""
        for one, other in zip(body, body[1:]):
            if one.text in ("(", "[", "=") or one.text.endswith("="):
                return False
            if one.kind == "word" and other.kind == "word":
                return True
            if one.text in ("*", "&", ">") and other.kind == "word" and one is not body[0]:
                return True
        return False

    def run(self):
        # Of each brace that is open, whether statements stand in it; and how many parentheses are open in each.
        tokens, blocks, nested = self.tokens, [], [0]
        for at, token in enumerate(tokens):
            before = tokens[at - 1].text if at > 0 else ""
            if token.text == "{":
                blocks.append(before in (")", "const", "else", "do") or (bool(blocks) and blocks[-1] and
                                                                         before in (";", "{", "}", ":")))
                nested.append(0)
            elif token.text == "}":
                blocks.pop()
                nested.pop()
            elif token.text in ("(", ")"):
                nested[-1] += 1 if token.text == "(" else -1
            if at in self.left:
                continue
            if token.kind == "operator":
                self.operator(at)
            elif token.kind == "number":
                self.number(token)
            elif token.text in WORDS:
                self.replace(token, WORDS[token.text])
            elif token.text == "if" and tokens[at + 1].text == "(":
                self.condition(at)
            if blocks and blocks[-1] and nested[-1] == 0 and self.begins_statement(at):
                self.statement(at)
        return number_alike(self.found)


def number_alike(found):
    counts, numbered = {}, []
    for mutation in found:
        key = mutation.key()
        numbered.append(dataclasses.replace(mutation, nth=counts.get(key, 0)))
        counts[key] = counts.get(key, 0) + 1
    return numbered


def mutations_of(path, source):
    return Finder(path, source).run()
