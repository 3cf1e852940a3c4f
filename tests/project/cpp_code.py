"""Finds the functions of a C++ file by its braces: enough for rules about code that clang-format has formatted.

It knows namespaces, types, functions and initialisers apart; it knows no macros that hold braces, and takes both sides of an
#if for code.
"""

import collections
import re

# name is as written, with the class in front where the definition has it, every operator being operator_; scope are the types around it, "::" between them.
# first and last are lines, from the return type to the closing brace or the semicolon. comment is the one above, also above
# functions in front of it without an empty line between. tail is what stands behind the parameters: const, "= default".
Function = collections.namedtuple("Function", "name scope first last has_body is_template is_private comment tail")

_NO_CODE = re.compile(r"""
    //[^\n]*
    | /\*.*?\*/
    | \bR"(?P<delimiter>[^(\s]*)\(.*?\)(?P=delimiter)"
    | "(?:\\.|[^"\\\n])*"
    | (?<![0-9A-Za-z_])'(?:\\.|[^'\\\n])+'
    | ^[ \t]*\#(?:[^\n]*\\\n)*[^\n]*
    """, re.VERBOSE | re.DOTALL | re.MULTILINE)
_NO_PART = re.compile(r"\s*(?:(?:public|private|protected)\s*:(?!:)\s*)*")  # of the declaration that follows
_TYPE = re.compile(r"(?:^|\s|>)(?:class|struct|union)\s+([\w:]+)")
_NOT_A_FUNCTION = re.compile(r"^(using|typedef|friend|static_assert|extern\s+template|return|if|for|while|switch|enum)\b")
_OPERATOR = re.compile(r"\boperator\s*(\(\s*\)|(?:new|delete)\s*\[\]|[^\s\w(]+|[\w:]+\s*[&*]*)(?=\s*\()")
_WITH_PARENTHESES = re.compile(r"\b(?:alignas|decltype|noexcept|explicit|requires|__attribute__)\s*\((?:[^()]|\([^()]*\))*\)")


def code_only(text):
    """The text with a space for every character of comments, literals and preprocessor lines; its lines stay."""
    return _NO_CODE.sub(lambda found: re.sub(r"[^\n]", " ", found.group(0)), text)


def _open_parenthesis(head):
    """Where the parameters begin: the first parenthesis outside angle brackets, -1 for none in front of a value."""
    angles = 0
    for place, char in enumerate(head):
        if char == "<" and re.search(r"[\w>]\s*$", head[:place]):
            angles += 1
        elif char == ">" and angles and head[place - 1] != "-":
            angles -= 1
        elif char in "={" and not angles:
            return -1
        elif char == "(" and not angles:
            return place
    return -1


_FUNCTION_NAME = re.compile(r"((?:\w+\s*(?:<[^<>()]*>\s*)?::\s*)*~?\w+)\s*(?:<[^<>()]*>\s*)?$")


def _named(head):
    """The name of the function that a declaration's text is about, and what stands behind its parameters; or nothing."""
    head = re.sub(r"\[\[.*?\]\]", " ", head, flags=re.DOTALL)
    head = _OPERATOR.sub("operator_", _WITH_PARENTHESES.sub(" ", head)).strip()
    if _NOT_A_FUNCTION.match(head):
        return None
    begins = _open_parenthesis(head)
    name = _FUNCTION_NAME.search(head[:begins]) if begins > 0 else None
    if not name or head[begins + 1:].lstrip().startswith("*"):
        return None
    depth = 0
    for place in range(begins, len(head)):
        depth += {"(": 1, ")": -1}.get(head[place], 0)
        if depth == 0:
            return re.sub(r"<[^<>()]*>|\s", "", name.group(1)), head[place + 1:].strip()
    return None


def _is_member_initialiser(head):
    """Whether a brace behind this text begins no body but the value of a member: "Lock::Lock(int f) : file"."""
    return bool(re.search(r"\)\s*(?:noexcept\s*)?:(?!:)", head)) and bool(re.search(r"[\w>]\s*$", head))


def _comment_above(lines, number):
    """The comment that ends on the line above the given one, the first line being 1."""
    found = []
    number -= 1
    while number > 0 and re.match(r"\s*(//|/\*|\*)", lines[number - 1]):
        found.insert(0, lines[number - 1].strip())
        number -= 1
    return "\n".join(found)


class _Scanner:
    def __init__(self, text):
        self.text = text
        self.lines = text.splitlines()
        self.code = code_only(text)
        self.found = []
        self.scopes = []  # (kind, name, and for functions what will be found)
        self.private = []  # for each type around: whether its members are private by now
        self.begin = 0  # of the statement
        self.parentheses = 0

    # Whether braces and parentheses are those of statements and values.
    def in_code(self):
        return bool(self.scopes) and self.scopes[-1][0] in ("function", "value")

    def line_of(self, place):
        return self.code.count("\n", 0, place) + 1

    def function(self, place, has_body):
        """The function whose text up to its body or its semicolon ends at a place, or nothing."""
        head = self.code[self.begin:place]
        begin = self.begin + _NO_PART.match(head).end()
        head = self.code[begin:place]
        named = _named(head)
        if named is None:
            return None
        first = self.line_of(begin)
        scope = "::".join(name for kind, name, _ in self.scopes if kind == "type")
        comment = _comment_above(self.lines, first)
        if not comment and self.found and self.found[-1].last == first - 1:
            comment = self.found[-1].comment
        return Function(named[0], scope, first, self.line_of(place), has_body, head.startswith("template"),
                        any(self.private), comment, named[1])

    def see_access(self, place):
        """Takes note of "private:" and the like in front of a declaration that ends at a place."""
        labels = re.findall(r"\w+", _NO_PART.match(self.code[self.begin:place]).group(0))
        if labels and self.private:
            self.private[-1] = labels[-1] != "public"

    def opened(self, place):
        head = self.code[self.begin:place].strip()
        if self.in_code() or self.parentheses or _is_member_initialiser(head):
            self.scopes.append(("value", "", None))
            return
        self.see_access(place)
        function = self.function(place, True)
        type_name = _TYPE.search(head)
        if re.match(r"(inline\s+)?namespace\b", head) or head == "extern":
            self.scopes.append(("namespace", "", None))
        elif type_name and not re.search(r"\benum\b", head) and (function is None or _open_parenthesis(head) < 0):
            self.scopes.append(("type", type_name.group(1), None))
            self.private.append(type_name.group(0).split()[0].endswith("class"))
        elif function is not None:
            self.scopes.append(("function", "", function))
        else:
            self.scopes.append(("value", "", None))
            return
        self.begin = place + 1

    def closed(self, place):
        kind, _, function = self.scopes.pop() if self.scopes else ("value", "", None)
        if kind == "function":
            self.found.append(function._replace(last=self.line_of(place)))
        elif kind == "type":
            self.private.pop()
        if kind != "value":
            self.begin = place + 1

    def scan(self):
        for token in re.finditer(r"[{}();]", self.code):
            char, place = token.group(0), token.start()
            if char == "{":
                self.opened(place)
            elif char == "}":
                self.closed(place)
            elif not self.in_code():
                self.parentheses += {"(": 1, ")": -1}.get(char, 0)
                if char == ";" and self.parentheses == 0:
                    self.see_access(place)
                    declared = self.function(place, False)
                    if declared:
                        self.found.append(declared)
                    self.begin = place + 1
        return self.found


def functions(text):
    """The functions that a file declares or defines, in their order; lambdas belong to the function around them."""
    return _Scanner(text).scan()
