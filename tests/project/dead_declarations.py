"""Finds functions that headers of the library declare and that nobody needs.

Each function that a header of src/, include/ or java/jni/ declares is defined, and something of the library, the tool, the
adapters or the examples calls it from outside the source that defines it; tests, benchmarks and fuzz targets do not count. What
is there all the same, because it is prescribed, says so in the comment above it, with one of two phrases and a reason:
"No caller of ours:" when nothing calls it, "Called here only:" when nothing but its own source does. Public functions are for
others to call: a test does for them. Private ones are for their own source.

A function is known by its name: overloads pass for one another.
"""

import collections
import os
import re

import cpp_code
import source_tree

NO_CALLER = "No caller of ours:"
OWN_CALLER = "Called here only:"

_CALLERS = ("src/", "include/", "java/jni/", "tool/", "adapters/", "examples/")
_Place = collections.namedtuple("Place", "path function name")


class _Tree:
    """What is declared, defined and named where in the C++ files of a tree."""

    def __init__(self, root):
        self.declared = []
        self.declarations = collections.Counter()  # (path, name) -> how many; names have the types around them
        self.definitions = collections.Counter()  # (path, name) -> how many
        self.words = {}  # path -> {word: how many}
        for path in source_tree.files(root, source_tree.CPP_SUFFIXES):
            with open(os.path.join(root, path), encoding="utf-8") as file:
                text = file.read()
            self.words[path] = collections.Counter(re.findall(r"\w+", cpp_code.code_only(text)))
            if source_tree.area(path) in source_tree.LIBRARY_AREAS:
                self._take(path, text)

    def _take(self, path, text):
        for function in cpp_code.functions(text):
            name = "::".join(part for part in (function.scope, function.name) if part)
            if function.has_body or re.search(r"=\s*(default|delete|0)$", function.tail):
                self.definitions[path, name] += 1
            else:
                self.declarations[path, name] += 1
            if path.endswith(".h"):
                self.declared.append(_Place(path, function, name))

    def is_defined(self, place):
        """Whether all functions of a name are. The declaration of a template has no definition when all its kinds have."""
        declared = sum(count for (_, name), count in self.declarations.items() if name == place.name)
        defined = sum(count for (_, name), count in self.definitions.items() if name == place.name)
        return defined >= (1 if place.function.is_template else declared)

    def callers(self, place):
        """The files that name a function beyond declaring and defining it, but for those of tests: the ones that define it,
        and the others. A header that uses what it declares itself is one of the others."""
        word = place.name.rsplit("::", 1)[-1]
        which = "" if place.path.startswith("include/") else _CALLERS
        own, others = [], []
        for path, words in sorted(self.words.items()):
            if path.startswith(which) and words[word] > self.declarations[path, place.name] + self.definitions[path, place.name]:
                (own if self.definitions[path, place.name] and path != place.path else others).append(path)
        return own, others


def _is_called_by_the_language(name):
    """Whether a constructor, a destructor or an operator: what calls it does not name it."""
    parts = name.split("::")
    return parts[-1].startswith("~") or parts[-1] == "operator_" or (len(parts) > 1 and parts[-1] == parts[-2])


def _why_dead(tree, place):
    """What is wrong with a declaration, or nothing."""
    comment = " ".join(line.lstrip("/* ") for line in place.function.comment.split("\n"))
    own, others = tree.callers(place)
    if place.function.is_private and own:
        return None
    if others or place.path.startswith("include/"):
        said = next((phrase for phrase in (NO_CALLER, OWN_CALLER) if phrase in comment), None)
        if not others:
            return "is not even called by a test"
        return f'says "{said}" and is named in {others[0]}' if said and not place.path.startswith("include/") else None
    phrase, callers = (OWN_CALLER, "no caller outside " + own[0]) if own else (NO_CALLER, "no caller but tests")
    return None if phrase in comment else f'has {callers}: take it out of the header, or say "{phrase}" and why it is there'


def problems(root):
    """Sentences, one for each declaration that is dead and for each word about callers that is not true."""
    tree = _Tree(root)
    found = []
    for place in tree.declared:
        why = None
        if not place.function.has_body and not tree.is_defined(place):
            why = "is declared and not defined"
        elif not _is_called_by_the_language(place.name):
            why = _why_dead(tree, place)
        if why:
            found.append(f"{place.path}:{place.function.first}: {place.name} {why}.")
    return found
