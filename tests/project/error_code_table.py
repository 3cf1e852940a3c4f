"""The table of error codes in docs/reliability.md names every code of the library with its text, its cause and its remedy.

Run as error_code_table.py <root>: prints a sentence for each difference and fails when there is one.
"""

import os
import re
import sys

_ROW = re.compile(r"^\| (\d+) \| `(\w+)` \| (.+?) \| (.+?) \| (.+?) \|$", re.MULTILINE)


def codes_of_the_library(root):
    """[(number, name, text)] in the order of the header."""
    with open(os.path.join(root, "src/core/error_codes.h"), encoding="utf-8") as file:
        names = re.findall(r"^    ([A-Z_]+) = (\d+),$", file.read(), re.MULTILINE)
    with open(os.path.join(root, "src/core/error_codes.cpp"), encoding="utf-8") as file:
        table = re.search(r"errorMessages = \{(.*?)\n\};", file.read(), re.DOTALL).group(1)
    entries = [entry for entry in re.split(r",\n", table) if '"' in entry]
    texts = ["".join(re.findall(r'"((?:[^"\\]|\\.)*)"', entry)) for entry in entries]
    return [(int(number), name, texts[int(number)]) for name, number in names]


def problems(codes, document):
    rows = {int(row[0]): row[1:] for row in _ROW.findall(document)}
    found = [f"Row {number} names no code of the library." for number in rows if number not in [c[0] for c in codes]]
    for number, name, text in codes:
        if number not in rows:
            found.append(f"{name} ({number}) has no whole row.")
        elif rows[number][:2] != (name, text):
            found.append(f"Row {number} should name {name} with the text: {text}")
    return found


def main(root):
    with open(os.path.join(root, "docs/reliability.md"), encoding="utf-8") as file:
        found = problems(codes_of_the_library(root), file.read())
    print("\n".join(found))
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
