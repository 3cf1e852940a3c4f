"""Walks the source tree for the tests about the tree itself."""

import os
import re

# Lowest first: a folder may include what stands in its list, and itself.
LIBRARY_FOLDERS = {
    "core": [],
    "storage": ["core"],
    "sessioninfo": ["storage", "core"],
    "messagetable": ["storage", "core"],
    "query": ["messagetable", "storage", "core"],
    "watcher": ["messagetable", "storage", "core"],
    "jni": ["watcher", "query", "messagetable", "sessioninfo", "storage", "core"],
}

# Folders that may include all of the library and their own files, and that nothing in the library may include.
OUTER_FOLDERS = ["tests", "benchmarks", "examples", "fuzz"]

CPP_SUFFIXES = (".h", ".cpp")
CODE_SUFFIXES = CPP_SUFFIXES + (".java", ".py", ".sh", ".cmake", "CMakeLists.txt", "/check", "/demo", "/bench", "/run")

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


def folder(path):
    """The first folder of a relative path, or nothing for a file in the root."""
    return path.split("/", 1)[0] if "/" in path else ""
