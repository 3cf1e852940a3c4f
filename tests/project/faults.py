"""The small faults that can be planted in a source file: where, what is replaced by what, and how one is written down.

A fault is written as three lines, and indented ones for people, up to an empty line:

    src/query/block_match.cpp:123 matchBlock #2
    - if (count > 0) {
    + if (count >= 0) {
        Why it changes nothing.

Before and after are whole lines without comments and in one line. The line number may be left out; it is of no account
when a fault is recognised: path, function, before and after tell, and, when a function has several such places, which of
them it is ("#2"; the first one without).
"""

import collections
import re

import cpp_text

# What a fault costs in rebuilding, as a share of its chance of being drawn.
HEADER_WEIGHT = 0.25

_SWAPPED = {
    "<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "==",
    "+": "-", "-": "+", "*": "/", "/": "*", "%": "/", "&": "|", "|": "&", "^": "&", "<<": ">>", ">>": "<<",
    "&&": "||", "||": "&&",
    "+=": "-=", "-=": "+=", "*=": "/=", "/=": "*=", "|=": "&=", "&=": "|=", "<<=": ">>=", ">>=": "<<=",
}
_SWAPPED_ANYWHERE = {"++": "--", "--": "++"}
_SWAPPED_WORDS = {"true": "false", "false": "true", "min": "max", "max": "min"}
_ASSIGNING = ("=", "+=", "-=", "*=", "/=", "%=", "&=", "|=", "^=", "<<=", ">>=")
_SUCCESS = "NO_ERROR"
_CODE_TYPE = "ErrorCode"
_HEAD = re.compile(r"(?P<path>[^\s:]+)(?::(?P<line>\d+))?(?: (?P<function>[^#]*?))?(?: #(?P<number>\d+))?$")
_TRACE = re.compile(r"log_?debug$", re.IGNORECASE)
_BUFFER_NAME = re.compile(r"BUFFER|CAPACITY|Buffer|Capacity")
_NO_EXPRESSION = {
    "return", "if", "else", "for", "while", "do", "switch", "case", "default", "break", "continue", "goto", "using", "const",
    "constexpr", "static", "auto", "struct", "class", "enum", "union", "template", "typedef", "static_assert", "delete",
    "throw", "try", "catch", "namespace", "friend", "public", "private", "protected", "extern", "unsigned", "sizeof",
}


class Written(collections.namedtuple("Written", "key line reason")):
    """A fault as it is written down: what it is recognised by, its line or 0, and the words for people."""


class Fault:
    """One replacement in one file."""

    def __init__(self, source, start, end, replacement):
        self.path = source.path
        self.start = start
        self.end = end
        self.replacement = replacement
        self.line = source.line_of(start)
        self.last_line = source.line_of(max(start, end - 1))
        function = source.function_at(self.line)
        self.function = function.name if function else ""
        first, last = source.whole_lines(start, end)
        self.before = cpp_text.normalised(source.text[first:last])
        self.after = cpp_text.normalised(source.text[first:start] + replacement + source.text[end:last])
        self.number = 1

    @property
    def key(self):
        """What a fault is recognised by in another state of the source."""
        return self.path, self.function, self.number, self.before, self.after

    def planted(self, text):
        """The file's text with the fault in it; no line moves."""
        lost = text.count("\n", self.start, self.end) - self.replacement.count("\n")
        return text[:self.start] + self.replacement + "\n" * lost + text[self.end:]

    def __str__(self):
        return text_of(self.key, self.line)


def text_of(key, line=0):
    """The form of a fault in writing."""
    path, function, number, before, after = key
    where = path + (f":{line}" if line else "") + (f" {function}" if function else "") + (f" #{number}" if number > 1 else "")
    return f"{where}\n- {before}\n+ {after}"


class _Finder:
    """Finds the faults of one file, as one list for each place."""

    def __init__(self, source):
        self.source = source
        self.tokens = source.tokens
        self.places = []
        self.skipped = [False] * len(self.tokens)

    def find(self):
        self._skip_what_says_nothing()
        inside = [False] * len(self.tokens)
        for function in self.source.functions:
            for index in range(function.opening + 1, function.closing):
                inside[index] = True
            self._find_in_function(function)
        for index, token in enumerate(self.tokens):
            if self.skipped[index]:
                continue
            self._find_constant(index)
            if inside[index]:
                self._find_operator(index)
        return self.places

    # What is left alone.

    def _skip(self, first, last):
        for index in range(first, min(last + 1, len(self.tokens))):
            self.skipped[index] = True

    def _end_of_statement(self, index):
        """The ";" that ends it, or the ")" behind the last part of a loop's head."""
        while index < len(self.tokens) and self.tokens[index].text not in (";", ")"):
            index = self.source.partner.get(index, index) if self.tokens[index].text in ("(", "[", "{") else index
            index += 1
        return index

    def _skip_what_says_nothing(self):
        for index, token in enumerate(self.tokens):
            following = self.tokens[index + 1] if index + 1 < len(self.tokens) else None
            if token.text in ("static_assert", "using", "namespace", "typedef", "friend"):
                is_scope = token.text == "namespace"
                end = index
                while is_scope and self.tokens[end].text not in ("{", ";"):
                    end += 1
                self._skip(index, end if is_scope else self._end_of_statement(index))
            elif token.text == "case":
                end = index
                while self.tokens[end].text not in (":", ";"):
                    end += 1
                self._skip(index, end)
            elif token.kind == "word" and following is not None and following.text == "(":
                if _TRACE.search(token.text) or token.text in ("noexcept", "alignas", "__attribute__"):
                    self._skip(index, self.source.partner[index + 1])
            elif token.text == "<" and following is not None and not self.source.is_spaced(index):
                self._skip(index, self._end_of_template(index))
            elif token.text == "[" and following is not None and following.text == "[":
                self._skip(index, self.source.partner[index])
            elif token.text == "[" and self._declares_array(index):
                self._skip(index, self.source.partner[index])
            elif token.text == "constexpr" and self._names_a_buffer(index):
                self._skip(index, self._end_of_statement(index))

    def _end_of_template(self, index):
        """Where the bracket "<" is closed; the index itself when it is none after all."""
        depth = 0
        for end in range(index, min(index + 60, len(self.tokens))):
            text = self.tokens[end].text
            if text == "<":
                depth += 1
            elif text in (">", ">>"):
                depth -= len(text)
                if depth <= 0:
                    return end
            elif text in (";", "{", "}"):
                break
        return index

    def _declares_array(self, index):
        """Whether "[" stands behind the name of a variable that is being declared."""
        if index < 2 or self.tokens[index - 1].kind != "word":
            return False
        type_end = self.tokens[index - 2]
        return (type_end.kind == "word" and type_end.text not in _NO_EXPRESSION) or type_end.text == ">"

    def _names_a_buffer(self, index):
        end = index
        while end < len(self.tokens) and self.tokens[end].text not in ("=", ";", "{", "("):
            end += 1
        return self.tokens[end - 1].kind == "word" and _BUFFER_NAME.search(self.tokens[end - 1].text) is not None

    # What may be replaced.

    def _add(self, first, last, *replacements):
        """A place: the tokens from first to last, and the texts that may stand there instead."""
        start, end = self.tokens[first].start, self.tokens[last].end
        self.places.append([Fault(self.source, start, end, text) for text in replacements])

    def _text(self, first, last):
        return self.source.text[self.tokens[first].start:self.tokens[last].end]

    def _find_constant(self, index):
        token = self.tokens[index]
        if token.text in ("true", "false"):
            if not self._is_overwritten(index):
                self._add(index, index, _SWAPPED_WORDS[token.text])
        elif token.kind == "number" and not self._is_overwritten(index):
            match = re.fullmatch(r"(0[xX][0-9a-fA-F']+|[0-9][0-9']*)([uUlLzZ]*)", token.text)
            if match:
                value = int(match.group(1).replace("'", ""), 16 if match.group(1)[:2] in ("0x", "0X") else 10)
                others = [1] if value == 0 else [value - 1, value + 1]
                self._add(index, index, *(str(other) + match.group(2) for other in others))
            elif re.fullmatch(r"[0-9][0-9']*\.[0-9]*", token.text):
                self._add(index, index, "1.0" if float(token.text.replace("'", "")) == 0 else "0.0")

    def _is_overwritten(self, index):
        """Whether this is what a local variable begins with that is next handed over to be filled."""
        name = self.tokens[index - 2] if index >= 2 else None
        if name is None or self.tokens[index - 1].text != "=" or name.kind != "word":
            return False
        if self.tokens[index + 1].text != ";" or self.tokens[index - 3].kind != "word":
            return False
        for later in range(index + 2, min(index + 60, len(self.tokens))):
            if self.tokens[later].text == name.text:
                before = self.tokens[later - 1]
                return before.text == "&" and not self.source.is_spaced(later - 1)
        return False

    def _find_operator(self, index):
        token = self.tokens[index]
        if token.text in _SWAPPED_ANYWHERE:
            self._add(index, index, _SWAPPED_ANYWHERE[token.text])
        elif token.text in _SWAPPED and self.source.is_spaced(index):
            if token.text in ("&", "*") and self.tokens[index - 1].text in ("auto", "const"):
                return
            self._add(index, index, _SWAPPED[token.text])
        elif token.text in ("!", "~") or (token.text == "-" and self._is_sign(index)):
            self._add(index, index, "")
        elif token.text in ("min", "max") and self.tokens[index - 1].text == "::":
            if self.tokens[index - 2].text == "std" and self.tokens[index + 1].text in ("(", "<"):
                self._add(index, index, _SWAPPED_WORDS[token.text])
        elif token.text == "?":
            self._find_choice(index)
        elif token.text in ("if", "while") and self.tokens[index + 1].text == "(":
            opening, closing = index + 1, self.source.partner[index + 1]
            if not self.skipped[opening + 1] and not self._is_one_operator(opening, closing):
                self._add(opening, closing, f"(!{self._text(opening, closing)})")

    def _is_one_operator(self, opening, closing):
        """Whether another fault negates the condition: it is "!a", "a == b" or "a != b"."""
        joints = [i for i in range(opening + 1, closing) if self.tokens[i].text in ("&&", "||", "==", "!=")]
        if not joints:
            return self.tokens[opening + 1].text == "!"
        return len(joints) == 1 and self.tokens[joints[0]].text in ("==", "!=")

    def _is_sign(self, index):
        previous = self.tokens[index - 1]
        return not self.source.is_spaced(index) and (previous.kind == "operator" or previous.text in ("return", "case")) and \
            previous.text not in (")", "]", "}", "--")

    def _find_choice(self, index):
        """Exchanges the two results of "a ? b : c"."""
        colon = self._end_of_operand(index + 1, ":")
        if colon is None:
            return
        end = self._end_of_operand(colon + 1, None)
        first, second = self._text(index + 1, colon - 1), self._text(colon + 1, end - 1)
        self._add(index + 1, end - 1, f"{second} : {first}")

    def _end_of_operand(self, index, mark):
        """The index of the mark, or of what ends an expression; nothing when the mark does not come."""
        inner = 0
        while index < len(self.tokens):
            text = self.tokens[index].text
            if text in ("(", "[", "{"):
                index = self.source.partner[index]
            elif text == "?":
                inner += 1
            elif text == ":" and inner > 0:
                inner -= 1
            elif text == mark:
                return index
            elif text in (")", "]", "}", ";", ",", ":"):
                return None if mark else index
            index += 1
        return None

    def _find_in_function(self, function):
        self._codes = {self.tokens[i + 1].text for i in range(function.opening, function.closing)
                       if self.tokens[i].text == _CODE_TYPE and self.tokens[i + 1].kind == "word"}
        lambdas = [(i, self.source.partner[i]) for i in range(function.opening + 1, function.closing)
                   if self.source.opened_by.get(i) == "lambda"]
        for index in range(function.opening + 1, function.closing):
            if self.skipped[index]:
                continue
            in_lambda = any(first < index < last for first, last in lambdas)
            if self.tokens[index].text == "return":
                self._find_return(index, [] if in_lambda else function.type_words)
            elif self.tokens[index].text == _CODE_TYPE and self.tokens[index + 1].kind == "word":
                self._find_dropped_code(index + 1)
            if self._begins_statement(index):
                self._find_statement(index)

    def _find_return(self, index, type_words):
        end = self._end_of_statement(index)
        if end == index + 1:
            self._add(index, end, ";")
            return
        value = self._text(index + 1, end - 1)
        is_call = self.tokens[end - 1].text == ")" and self.tokens[index + 1].kind == "word"
        if _CODE_TYPE in type_words or re.fullmatch(r"(\w+::)*\w+_ERROR", value):
            if value.split("::")[-1] != _SUCCESS:
                others = [_SUCCESS]
                if is_call:
                    others.append(f"(static_cast<void>({value}), {_SUCCESS})")
                self._add(index + 1, end - 1, *others)
        elif "bool" in type_words and value not in ("true", "false"):
            self._add(index + 1, end - 1, f"!({value})")
        elif type_words and value not in ("0", "{}", "nullptr", "true", "false"):
            self._add(index + 1, end - 1, "{}")

    def _find_dropped_code(self, name):
        """An error code that a call gives and nobody looks at."""
        if self.tokens[name + 1].text == "=":
            end = self._end_of_statement(name)
            if self.tokens[end - 1].text == ")":
                value = self._text(name + 2, end - 1)
                self._add(name + 2, end - 1, f"(static_cast<void>({value}), {_SUCCESS})")

    def _begins_statement(self, index):
        previous = self.tokens[index - 1].text
        if previous in (";", "{", "}", "else"):
            return True
        if previous == ")":
            before = self.source.partner[index - 1] - 1
            return self.tokens[before].text in ("if", "for", "while", "constexpr")
        return previous == ":" and self.skipped[index - 1]  # of a case

    def _find_statement(self, index):
        if self.tokens[index].text in ("break", "continue"):
            self._add(index, index + 1, ";")
            return
        end, assignment = self._statement(index)
        if end is None:
            return
        others = [";"]
        if assignment is not None and self.tokens[index].text in self._codes and assignment == index + 1:
            if self.tokens[end - 1].text == ")":
                value = self._text(assignment + 1, end - 1)
                others.append(f"{self._text(index, assignment)} (static_cast<void>({value}), {_SUCCESS});")
        self._add(index, end, *others)

    def _statement(self, index):
        """The index of the ";" that ends an expression statement, and of what assigns in it; nothing for anything else."""
        position = index
        if [token.text for token in self.tokens[index:index + 3]] == ["(", "void", ")"]:
            position += 3
        while self.tokens[position].text in ("++", "--", "*", "("):
            position += 1
        first = self.tokens[position]
        if first.kind != "word" or first.text in _NO_EXPRESSION or first.text == "static_cast":
            return None, None
        after_name = True
        position += 1
        while position < len(self.tokens):
            token = self.tokens[position]
            if token.text == ";":
                return position, None
            if token.text in _ASSIGNING:
                end = self._end_of_statement(position)
                return (end, position) if self.tokens[end].text == ";" else (None, None)
            if token.text in ("(", "["):
                position = self.source.partner[position]
                after_name = True
            elif token.text == "<" and self.skipped[position]:
                position = self._end_of_template(position)
                after_name = True
            elif token.kind == "word":
                if after_name:
                    return None, None  # two words in a row declare something
                after_name = True
            elif token.text in (".", "->", "::"):
                after_name = False
            elif token.text not in ("++", "--", ")"):
                return None, None
            position += 1
        return None, None


def _number(source, faults):
    """Several lines of a function may be the same: tells them apart."""
    alike = {}
    for fault in faults:
        lines = (fault.before, fault.function)
        if lines not in alike:
            alike[lines] = source.places_of(*lines)
        first, last = source.whole_lines(fault.start, fault.end)
        starts = [start for start, end in alike[lines]]
        fault.number = 1 + next((n for n, start in enumerate(starts) if first <= start <= last), 0)


def places(path, text):
    """Every place of a file where a fault can be planted, each a list of faults of which one is to be chosen."""
    source = cpp_text.Source(path, text)
    found = [place for place in _Finder(source).find() if place]
    _number(source, [fault for place in found for fault in place])
    return found


def weight(path):
    return HEADER_WEIGHT if path.endswith(".h") else 1.0


def parse(text, name):
    """The faults that a text lists. ValueError for what is no list of them; `name` is the text's."""
    found = []
    lines = text.splitlines()
    number = 0
    while number < len(lines):
        if not lines[number].strip() or lines[number].startswith("#"):
            number += 1
            continue
        head = _HEAD.match(lines[number])
        texts = [line + " " for line in lines[number + 1:number + 3]]
        if head is None or len(texts) < 2 or texts[0][:2] != "- " or texts[1][:2] != "+ ":
            raise ValueError(f"{name}:{number + 1}: expected a path, a line with '- ' and one with '+ '.")
        begin = number
        number += 3
        reason = []
        while number < len(lines) and lines[number].startswith(" "):
            reason.append(lines[number].strip())
            number += 1
        if number < len(lines) and lines[number].strip():
            raise ValueError(f"{name}:{number + 1}: the fault of line {begin + 1} must be followed by an empty line.")
        key = (head["path"], head["function"] or "", int(head["number"] or 1),
               cpp_text.normalised(texts[0][2:]), cpp_text.normalised(texts[1][2:]))
        found.append(Written(key, int(head["line"] or 0), " ".join(reason)))
    return found


def locate(written, sources):
    """The fault that is meant in the sources, {path: text}; nothing when its place is not there. It need not be one of those
    that places() finds: any piece of code may be replaced by any other."""
    path, function, number, before, after = written.key
    if path not in sources:
        return None
    source = cpp_text.Source(path, sources[path])
    at_line = source.function_at(written.line)
    if not function and at_line is not None:
        function = at_line.name
    found = [Fault(source, start, end, after) for start, end in source.places_of(before, function)]
    number = next((n for n, fault in enumerate(found, 1) if not written.key[1] and fault.line == written.line), number)
    if number > len(found):
        return None
    fault = found[number - 1]
    fault.number, fault.after = number, after
    return fault
