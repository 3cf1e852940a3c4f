"""Every link in a document of the tree leads to a file that is there, and to a heading in it where it names one; every path
of the tree that stands in it between backquotes is there, too.

Run as document_links.py <root>: prints a sentence for each that leads nowhere and fails when there is one.
"""

import os
import re
import sys

import source_tree

_LINK = re.compile(r"\]\(([^)\s]+)\)")
_PATH = re.compile(r"`([\w.-]+(?:/[\w.-]+)*/?)`")
_FENCED = re.compile(r"^```.*?^```$", re.MULTILINE | re.DOTALL)


def anchors(markdown):
    """What a browser jumps to for each heading: its letters and digits in lower case, blanks as hyphens."""
    headings = re.findall(r"^#+ (.+)$", _FENCED.sub("", markdown), re.MULTILINE)
    return {re.sub(r"[^\w\- ]", "", heading.strip().lower()).replace(" ", "-") for heading in headings}


def _missing_path(root, name):
    """Whether it is a path of the tree, or one that an include names, which is not there."""
    first = name.split("/", 1)[0]
    if "/" not in name or first == "build" or name.rstrip("/") in source_tree.AREAS:
        return False
    if os.path.isdir(os.path.join(root, first)):
        return not os.path.exists(os.path.join(root, name))
    return bool(source_tree.area_of_include(name)) and not os.path.exists(os.path.join(root, source_tree.included_path(name)))


def problems(root):
    found = []
    for path in source_tree.files(root, (".md",)):
        for number, line in enumerate(source_tree.lines(root, path), 1):
            found += [f"{path}:{number}: {name} does not exist." for name in _PATH.findall(line) if _missing_path(root, name)]
            for link in _LINK.findall(line):
                if "://" in link:
                    continue
                name, _, anchor = link.partition("#")
                target = os.path.normpath(os.path.join(root, os.path.dirname(path), name)) if name else os.path.join(root, path)
                if not os.path.exists(target):
                    found.append(f"{path}:{number}: {name} does not exist.")
                elif anchor and anchor not in anchors("\n".join(source_tree.lines(root, os.path.relpath(target, root)))):
                    found.append(f"{path}:{number}: {name or path} has no heading that #{anchor} leads to.")
    return found


def main(root):
    found = problems(root)
    print("\n".join(found))
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
