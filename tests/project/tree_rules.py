"""The rules of the tree, each a function from the tree's root to a list of sentences, one for each place that breaks it.

Run as tree_rules.py <rule> <root>: prints the sentences and fails when there is one.
"""

import os
import re
import sys

import cpp_code
import dead_declarations
import source_tree

MOST_LINES = 600
MOST_CPP_LINES = 400
MOST_FUNCTION_LINES = 60

# The headers of the C++ library carry no suffix; whatever else stands in angle brackets belongs to somebody else.
_OTHERS_HEADERS = {"java/jni": {"jni.h"}}


def _is_platform_file(path):
    return source_tree.area(path) in ("src/core", "src/storage") and "platform" in os.path.basename(path)


def _wrong_own_include(root, path, quote, name):
    """Why an include of a file of our own is wrong, or nothing."""
    here = source_tree.area(path)
    there = source_tree.area_of_include(name)
    if quote == "<":
        return f"<{name}> is a file of this tree: include it in quotes" if there else None
    if not there or ".." in name.split("/"):
        return f'"{name}" must begin with the folder it stands in, as in "core/log.h" or "tests/support/bytes.h"'
    if not os.path.isfile(os.path.join(root, source_tree.included_path(name))):
        return f'"{name}" does not exist'
    prefix, allowed = source_tree.AREAS[here] if here else ("", [])
    if source_tree.AREAS[there][0] not in (prefix, *allowed):
        return f'"{name}" points the wrong way: {here}/ may include {", ".join(allowed) or "nothing of ours"} besides itself'
    return None


def include_direction(root):
    """Includes of our own files are quoted, named from the root, and point only downwards."""
    problems = []
    for path in source_tree.files(root, source_tree.CPP_SUFFIXES):
        for number, quote, name in source_tree.includes(root, path):
            why = _wrong_own_include(root, path, quote, name)
            if why:
                problems.append(f"{path}:{number}: {why}.")
    return problems


def include_circles(root):
    """No header includes itself by way of others."""
    graph = {}
    for path in source_tree.files(root, (".h",)):
        graph[path] = [(number, source_tree.included_path(name)) for number, quote, name in source_tree.includes(root, path)
                       if quote == '"' and source_tree.area_of_include(name)]
    problems = []
    finished = set()

    def visit(path, trail):
        for number, name in graph.get(path, []):
            if name in trail:
                circle = " -> ".join(trail[trail.index(name):] + [name])
                problems.append(f"{path}:{number}: the includes go in a circle: {circle}.")
            elif name not in finished:
                visit(name, trail + [name])
        finished.add(path)

    for path in graph:
        if path not in finished:
            visit(path, [path])
    return problems


def system_headers(root):
    """The library includes the system's headers only in its platform files."""
    problems = []
    for path in source_tree.files(root, source_tree.CPP_SUFFIXES):
        here = source_tree.area(path)
        if here not in source_tree.LIBRARY_AREAS or _is_platform_file(path):
            continue
        for number, quote, name in source_tree.includes(root, path):
            if quote == "<" and not re.fullmatch(r"[a-z0-9_]+", name) and name not in _OTHERS_HEADERS.get(here, ()):
                problems.append(f"{path}:{number}: <{name}> is no header of the C++ library: "
                                "only src/core/*platform* and src/storage/*platform* may include it.")
    return problems


def file_length(root):
    """No file of code is longer than a reader can hold."""
    problems = []
    for path in source_tree.files(root, source_tree.CODE_SUFFIXES):
        count = len(source_tree.lines(root, path))
        most = MOST_CPP_LINES if path.endswith(source_tree.CPP_SUFFIXES) else MOST_LINES
        if count > most:
            problems.append(f"{path}:{most + 1}: the file has {count} lines, {most} are allowed.")
    return problems


def function_length(root):
    """Every function in C++ fits on a screen."""
    problems = []
    for path in source_tree.files(root, source_tree.CPP_SUFFIXES):
        for function in cpp_code.functions("\n".join(source_tree.lines(root, path))):
            count = function.last - function.first + 1
            if count > MOST_FUNCTION_LINES:
                problems.append(f"{path}:{function.first}: {function.name} has {count} lines, "
                                f"{MOST_FUNCTION_LINES} are allowed.")
    return problems


def declarations(root):
    """No header declares a function that nobody needs."""
    return dead_declarations.problems(root)


def header_guards(root):
    """Every header begins its code with #pragma once."""
    problems = []
    for path in source_tree.files(root, (".h",)):
        if "#pragma once" not in source_tree.lines(root, path):
            problems.append(f"{path}:1: the header has no line '#pragma once'.")
    return problems


def test_names(root):
    """The build finds tests by the names of their files, so a file with tests must have such a name."""
    problems = []
    for path in source_tree.files(root, (".java",)):
        if not path.startswith("tests/java/") or path.endswith("Test.java"):
            continue
        for number, line in enumerate(source_tree.lines(root, path), 1):
            if re.match(r"\s*@(Test|ParameterizedTest|RepeatedTest|TestFactory)\b", line):
                problems.append(f"{path}:{number}: the test never runs: the file's name must end in Test.java.")
    for path in source_tree.files(root, (".cpp",)):
        if not path.startswith("tests/") or path.endswith("_test.cpp"):
            continue
        for number, line in enumerate(source_tree.lines(root, path), 1):
            if re.match(r"(TEST|TEST_F|TEST_P|TYPED_TEST)\(", line):
                problems.append(f"{path}:{number}: a file with tests must have a name ending in _test.cpp.")
    return problems


RULES = [include_direction, include_circles, system_headers, file_length, function_length, header_guards, declarations,
         test_names]


def main():
    rule = {r.__name__: r for r in RULES}[sys.argv[1]]
    root = sys.argv[2]
    if not source_tree.files(root, source_tree.CPP_SUFFIXES):
        sys.exit(f"{root} holds no C++ file: this is not the source tree.")
    problems = rule(root)
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
