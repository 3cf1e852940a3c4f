"""Runs clang-tidy over the sources of the library, the binding, the tool and the adapters.

Run as clang_tidy.py <root> <clang-tidy> <build directory>, which has a compile_commands.json; what has passed is remembered in
its file clang_tidy.passed. A file is looked at again when clang-tidy, its configuration, the file's command, the file itself or a
header of this tree that it includes has changed.
"""

import concurrent.futures
import hashlib
import json
import os
import re
import shutil
import subprocess
import sys

import source_tree

FOLDERS = ("src/", "java/jni/", "tool/", "adapters/")
_AT_ONCE = 2


def included_files(root, path, known):
    """The files of this tree that a file includes, and those that they include, as a set of paths. Keeps in known what it
    has found out about each."""
    found = set()
    waiting = [path]
    while waiting:
        current = waiting.pop()
        if current not in known:
            names = [name for _, quote, name in source_tree.includes(root, current)
                     if quote == '"' and source_tree.area_of_include(name)]
            known[current] = [p for p in map(source_tree.included_path, names) if os.path.isfile(os.path.join(root, p))]
        new = set(known[current]) - found
        found |= new
        waiting += new
    return found


def fingerprint(root, path, settings, known):
    """What has to be the same for the file to pass again: settings, and the bytes of all that is read."""
    digest = hashlib.sha256("\0".join(settings).encode())
    for name in [path, *sorted(included_files(root, path, known))]:
        with open(os.path.join(root, name), "rb") as file:
            digest.update(name.encode() + b"\0" + hashlib.sha256(file.read()).digest())
    return digest.hexdigest()


def commands(root, build):
    """{path: command} of the sources to look at that the build compiles."""
    with open(os.path.join(build, "compile_commands.json"), encoding="utf-8") as file:
        entries = json.load(file)
    found = {}
    for entry in entries:
        path = os.path.relpath(entry["file"], root).replace(os.sep, "/")
        if path.startswith(FOLDERS):
            found.setdefault(path, entry["command"])
    return found


def remembered(passed_file):
    if not os.path.isfile(passed_file):
        return set()
    with open(passed_file, encoding="utf-8") as file:
        return set(file.read().split())


def look_at(root, clang_tidy, build, path):
    """What clang-tidy has to say about a file; nothing when all is well."""
    run = subprocess.run([clang_tidy, "--quiet", "-p", build, os.path.join(root, path)], stdout=subprocess.PIPE,
                         stderr=subprocess.PIPE, text=True, errors="replace", check=False)
    if run.returncode == 0:
        return ""
    # On standard error it counts what it has suppressed; what keeps it from working stands there, too.
    return run.stdout if re.search(r"(error|warning): ", run.stdout) else run.stdout + run.stderr


def main():
    root, clang_tidy, build = os.path.abspath(sys.argv[1]), sys.argv[2], os.path.abspath(sys.argv[3])
    if not shutil.which(clang_tidy):
        sys.exit("clang-tidy is missing: install the package clang-tidy.")
    sources = commands(root, build)
    if not sources:
        sys.exit(f"{build} compiles no source of {', '.join(FOLDERS)}.")
    version = subprocess.run([clang_tidy, "--version"], check=True, stdout=subprocess.PIPE, text=True).stdout
    with open(os.path.join(root, ".clang-tidy"), encoding="utf-8") as file:
        configuration = file.read()
    known = {}
    prints = {path: fingerprint(root, path, (version, configuration, command), known) for path, command in sources.items()}
    passed_file = os.path.join(build, "clang_tidy.passed")
    passed = remembered(passed_file)
    due = sorted(path for path in sources if prints[path] not in passed)

    problems = 0
    with concurrent.futures.ThreadPoolExecutor(_AT_ONCE) as pool:
        for path, words in zip(due, pool.map(lambda p: look_at(root, clang_tidy, build, p), due)):
            if words:
                problems += 1
                passed.discard(prints[path])
                print(words)
            else:
                passed.add(prints[path])
    with open(passed_file, "w", encoding="utf-8") as file:
        file.write("\n".join(sorted(passed & set(prints.values()))) + "\n")
    print(f"{len(sources)} sources, {len(due)} of them changed since they passed, {problems} of those with problems.")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
