"""The table of folders in CONTRIBUTING.md is that of the tree, and says of includes what source_tree.py enforces.

Run as documented_layout.py <root>: prints a sentence for each difference and fails when there is one.
"""

import os
import re
import sys

import source_tree

_ROW = re.compile(r"^\| `([a-z/]+)/` \| .+ \| (.*)\|$", re.MULTILINE)
# Folders of what is built, which are nobody's subsystem.
_NO_SUBSYSTEMS = {"build"}


def rows(document):
    """{folder: the names in its column "may include", or nothing where that holds no name of a folder}."""
    found = {}
    for folder, included in _ROW.findall(document):
        names = re.findall(r"`([a-z]+)`", included)
        found[folder] = [] if included.strip() == "nothing of ours" else names or None
    return found


def problems(root, document):
    documented = rows(document)
    if not documented:
        return ["CONTRIBUTING.md has no row such as | `src/core/` | ... | nothing of ours |."]
    found = []
    for folder in documented:
        if folder not in source_tree.AREAS and not os.path.isdir(os.path.join(root, folder)):
            found.append(f"{folder}/ has a row and does not exist.")
    for name in sorted(os.listdir(root)):
        is_folder = os.path.isdir(os.path.join(root, name)) and not name.startswith(".")
        if is_folder and name not in _NO_SUBSYSTEMS and not any((row + "/").startswith(name + "/") for row in documented):
            found.append(f"{name}/ has no row.")
    prefixes = {prefix: area for area, (prefix, _) in source_tree.AREAS.items()}
    for area, (_, allowed) in source_tree.AREAS.items():
        if area not in documented:
            if os.path.isdir(os.path.join(root, area)):
                found.append(f"{area}/ has no row.")
            continue
        expected = [name for name in allowed if prefixes[name] in documented]
        if documented[area] is not None and sorted(documented[area]) != sorted(expected):
            found.append(f"{area}/ may include {', '.join(expected) or 'nothing of ours'}, "
                         f"and not {', '.join(documented[area]) or 'nothing of ours'}.")
        if documented[area] is None and area in source_tree.LIBRARY_AREAS:
            found.append(f"The row of {area}/ does not say what it may include.")
    return found


def main(root):
    with open(os.path.join(root, "CONTRIBUTING.md"), encoding="utf-8") as file:
        found = problems(root, file.read())
    print("\n".join(found))
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
