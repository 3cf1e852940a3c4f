"""Walks the source tree for the tests about the tree itself."""

import os
import re

# The areas of the tree that have code in C++: where each stands, how an include of its files begins, and which other areas
# it may include. Lowest first.
_WHOLE_LIBRARY = ["watcher", "query", "index", "messagetable", "sessioninfo", "storage", "core"]
AREAS = {
    "include/tabulo": ("tabulo", []),
    "src/core": ("core", []),
    "src/storage": ("storage", ["core"]),
    "src/sessioninfo": ("sessioninfo", ["storage", "core"]),
    "src/messagetable": ("messagetable", ["storage", "core"]),
    "src/index": ("index", ["messagetable", "storage", "core"]),
    "src/query": ("query", ["index", "messagetable", "storage", "core"]),
    "src/watcher": ("watcher", ["index", "messagetable", "storage", "core"]),
    "src/api": ("api", [*_WHOLE_LIBRARY, "tabulo"]),
    "java/jni": ("jni", _WHOLE_LIBRARY),
    "adapters": ("adapters", ["tabulo"]),
    "tool": ("tool", ["adapters", "tabulo"]),
    "examples": ("examples", ["adapters", "tabulo"]),
    "benchmarks": ("benchmarks", [*_WHOLE_LIBRARY, "api", "tabulo", "jni", "adapters", "tests"]),
    "fuzz": ("fuzz", [*_WHOLE_LIBRARY, "api", "tabulo", "tool", "tests"]),
    "tests": ("tests", [*_WHOLE_LIBRARY, "api", "tabulo", "jni", "tool", "adapters", "examples"]),
}

# The areas that depend on the C++ library alone (java/jni besides on jni.h).
LIBRARY_AREAS = [area for area in AREAS if area.startswith(("include/", "src/", "java/"))]

CPP_SUFFIXES = (".h", ".cpp")
CODE_SUFFIXES = CPP_SUFFIXES + (".java", ".py", ".sh", ".cmake", "CMakeLists.txt", "/check", "/demo", "/bench", "/package", "/run")

# What programs include of an adapter: how such an include begins, and where the files stand.
_ADAPTER_HEADERS = {"tabulo/quickfix/": ("adapters", "adapters/quickfix/include/")}

_SKIPPED_FOLDERS = {"build", "__pycache__"}
_INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]*)[>"]')


def files(root, suffixes):
    """The paths below root, relative to it, that end in one of the suffixes, in order."""
    found = []
    for directory, folders, names in os.walk(root):
        folders[:] = sorted(f for f in folders if f not in _SKIPPED_FOLDERS and (f == ".ci" or not f.startswith(".")))
        for name in sorted(names):
            path = os.path.relpath(os.path.join(directory, name), root).replace(os.sep, "/")
            if ("/" + path).endswith(suffixes):
                found.append(path)
    return found


def lines(root, path):
    """The lines of a file without their ends."""
    with open(os.path.join(root, path), encoding="utf-8") as file:
        return file.read().splitlines()


def includes(root, path):
    """Every include of a file as (line number, opening quote or bracket, name)."""
    found = []
    for number, line in enumerate(lines(root, path), 1):
        match = _INCLUDE.match(line)
        if match:
            found.append((number, match.group(1), match.group(2)))
    return found


def area(path):
    """The area that a path belongs to, or nothing."""
    return next((area for area in AREAS if path.startswith(area + "/")), "")


def area_of_include(name):
    """The area whose files are included by such a name, or nothing."""
    for beginning, (adapter, _) in _ADAPTER_HEADERS.items():
        if name.startswith(beginning):
            return adapter
    first = name.split("/", 1)[0] if "/" in name else ""
    return next((area for area, (prefix, _) in AREAS.items() if prefix == first), "")


def included_path(name):
    """The path of an included file of the tree: "core/log.h" is src/core/log.h."""
    for beginning, (_, folder) in _ADAPTER_HEADERS.items():
        if name.startswith(beginning):
            return folder + name
    return area_of_include(name) + "/" + name.split("/", 1)[1]
