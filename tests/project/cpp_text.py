"""Reads C++ far enough to know where statements, functions and operators stand: tokens, brackets and what encloses what.

It relies on the tree's formatting: a binary operator has white space on both sides, the brackets of a template have none.
"""

import bisect
import re

_TOKEN = re.compile(
    r"""
    (?P<space>\s+)
    |(?P<comment>//[^\n]*|/\*.*?\*/)
    |(?P<directive>\#(?:\\\n|[^\n])*)
    |(?P<string>(?:u8|[uUL])?R"(?P<mark>[^()\\\s]{0,16})\(.*?\)(?P=mark)"|(?:u8|[uUL])?"(?:\\.|[^"\\\n])*")
    |(?P<character>(?:u8|[uUL])?'(?:\\.|[^'\\\n])+')
    |(?P<number>\.?[0-9](?:[eEpP][+-]|'[0-9A-Za-z]|[0-9A-Za-z_.])*)
    |(?P<word>[A-Za-z_][A-Za-z0-9_]*)
    |(?P<operator><=>|<<=|>>=|->\*|\.\.\.|->|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|::|.)
    """,
    re.VERBOSE | re.DOTALL,
)

_OPENING = {"(": ")", "[": "]", "{": "}"}
_CLOSING = set(_OPENING.values())


class Token:
    """One token that counts (no space, comment or directive) and its place in the text."""

    __slots__ = ("kind", "text", "start", "end", "line")

    def __init__(self, kind, text, start, line):
        self.kind = kind
        self.text = text
        self.start = start
        self.end = start + len(text)
        self.line = line

    def __repr__(self):
        return f"{self.text}@{self.line}"


class Function:
    """A function's name, the words of its type, its first and last line, and the indices of its body's brackets."""

    def __init__(self, name, type_words, first_line, last_line, opening, closing):
        self.name = name
        self.type_words = type_words
        self.first_line = first_line
        self.last_line = last_line
        self.opening = opening
        self.closing = closing


def tokens(text):
    """The tokens of a text that count, in order."""
    found = []
    line = 1
    position = 0
    while position < len(text):
        match = _TOKEN.match(text, position)
        if match.lastgroup not in ("space", "comment", "directive"):
            kind = "string" if match.lastgroup == "mark" else match.lastgroup
            found.append(Token(kind, match.group(), position, line))
        line += match.group().count("\n")
        position = match.end()
    return found


def normalised(text):
    """The text without comments, and one space for each stretch of white space between tokens."""
    kept = []
    position = 0
    while position < len(text):
        match = _TOKEN.match(text, position)
        if match.lastgroup not in ("space", "comment"):
            kept.append(match.group())
        elif kept and kept[-1] != " ":
            kept.append(" ")
        position = match.end()
    return "".join(kept).strip()


class Source:
    """A file's text, tokens, brackets and functions."""

    def __init__(self, path, text):
        self.path = path
        self.text = text
        self.tokens = tokens(text)
        self.partner = self._partners()
        self.functions = []
        self.opened_by = {}  # index of an opening "{": "function", "scope" (namespace), "type", "lambda" or "block"
        self._find_functions()
        self._line_starts = [0] + [match.end() for match in re.finditer("\n", text)]
        self._first_on_their_lines = {}
        for index, token in enumerate(self.tokens):
            if index == 0 or self.tokens[index - 1].line != token.line:
                self._first_on_their_lines.setdefault(token.text, []).append(index)

    def is_spaced(self, index):
        """Whether the token has white space on both sides, as a binary operator has."""
        token = self.tokens[index]
        return self.text[token.start - 1:token.start].isspace() and self.text[token.end:token.end + 1].isspace()

    def function_at(self, line):
        """The function whose lines these are, or nothing."""
        return next((f for f in self.functions if f.first_line <= line <= f.last_line), None)

    def line_of(self, position):
        return bisect.bisect_right(self._line_starts, position)

    def whole_lines(self, start, end):
        """The places where the first line of a stretch of text begins and its last one ends."""
        first = self._line_starts[self.line_of(start) - 1]
        last = self.text.find("\n", max(start, end - 1))
        return first, len(self.text) if last < 0 else last

    def places_of(self, lines, function):
        """The stretches, as (start, end), that begin and end with a line and read so when normalised, in one function, or
        in none where its name is empty."""
        wanted = [token.text for token in tokens(lines)]
        found = []
        for first in self._first_on_their_lines.get(wanted[0] if wanted else "", []):
            last = first + len(wanted) - 1
            if last >= len(self.tokens) or any(self.tokens[first + i].text != text for i, text in enumerate(wanted)):
                continue
            if last + 1 < len(self.tokens) and self.tokens[last + 1].line == self.line_of(self.tokens[last].end - 1):
                continue
            around = self.function_at(self.tokens[first].line)
            if (around.name if around else "") == function:
                found.append((self.tokens[first].start, self.tokens[last].end))
        return found

    def _partners(self):
        partner = {}
        stack = []
        for index, token in enumerate(self.tokens):
            if token.kind != "operator":
                continue
            if token.text in _OPENING:
                stack.append(index)
            elif token.text in _CLOSING:
                if not stack or _OPENING[self.tokens[stack[-1]].text] != token.text:
                    raise ValueError(f"{self.path}:{token.line}: {token.text} closes nothing")
                partner[stack[-1]] = index
                partner[index] = stack.pop()
        if stack:
            raise ValueError(f"{self.path}:{self.tokens[stack[-1]].line}: {self.tokens[stack[-1]].text} is not closed")
        return partner

    def _find_functions(self):
        index = 0
        head = 0  # where the declaration at hand begins
        while index < len(self.tokens):
            text = self.tokens[index].text
            if text == ";" or text == "}":
                head = index + 1
            elif text in ("(", "["):
                index = self.partner[index]
            elif text == "{":
                kind = self._kind_of_brace(head, index)
                self.opened_by[index] = kind
                if kind == "function":
                    self._add_function(head, index)
                    self._mark_inner(index)
                if kind not in ("scope", "type"):
                    index = self.partner[index]
                    if kind != "function":
                        index += 1
                        continue
                head = index + 1
            index += 1

    def _kind_of_brace(self, head, brace):
        plain = self._outside_brackets(head, brace)
        if "namespace" in plain or (plain[:1] == ["extern"] and self.tokens[brace - 1].kind == "string"):
            return "scope"
        if "=" in plain and "operator" not in plain:
            return "block"
        if ":" in plain and "(" in plain and self.tokens[self.partner[brace] + 1].text in (",", "{"):
            return "block"  # a member in a constructor's list
        if any(word in ("struct", "class", "union", "enum") for word in plain) and "(" not in plain:
            return "type"
        if "(" in plain and self._ends_a_signature(brace):
            return "function"
        return "block"

    def _outside_brackets(self, head, end):
        """The texts of the tokens that stand in no round or angle bracket; an opening "(" is there."""
        found = []
        index = head
        angles = 0
        while index < end:
            text = self.tokens[index].text
            if text == "<" and not self.is_spaced(index):
                angles += 1
            elif text in (">", ">>") and angles > 0 and not self.is_spaced(index):
                angles = max(0, angles - len(text))
            elif angles == 0:
                found.append(text)
            if text in ("(", "["):
                index = self.partner[index]
            index += 1
        return found

    def _ends_a_signature(self, brace):
        previous = self.tokens[brace - 1]
        return previous.text in (")", "const", "noexcept", "override", "]", ">", "&", "*", "}") or previous.kind == "word"

    def _add_function(self, head, brace):
        index = head
        while index < brace and self.tokens[index].text != "(":
            index += 1
        name_end = index
        start = name_end - 1
        while start - 1 >= head and (self.tokens[start - 1].text in ("::", "~") or self.tokens[start].text == "::"):
            start -= 1
        if "operator" in [token.text for token in self.tokens[head:name_end]]:
            start = next(i for i in range(head, name_end) if self.tokens[i].text == "operator")
        name = "".join(token.text for token in self.tokens[start:name_end])
        type_words = [token.text for token in self.tokens[head:start]]
        closing = self.partner[brace]
        self.functions.append(Function(name, type_words, self.tokens[head].line, self.tokens[closing].line, brace, closing))

    def _mark_inner(self, brace):
        """Tells lambdas' bodies from the other braces of a function."""
        for index in range(brace + 1, self.partner[brace]):
            if self.tokens[index].text == "{":
                self.opened_by[index] = "lambda" if self._opens_lambda(index) else "block"

    def _opens_lambda(self, brace):
        index = brace - 1
        while self.tokens[index].kind == "word" or self.tokens[index].text in ("->", "::", "*", "&", ">", "<"):
            if self.tokens[index].text in ("else", "do", "try", "return"):
                return False
            index -= 1
        if self.tokens[index].text == "]":
            return True
        return self.tokens[index].text == ")" and self.tokens[self.partner[index] - 1].text == "]"
