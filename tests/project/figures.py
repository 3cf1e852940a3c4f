"""Collects what the tests of one run say that they did, and puts it as a table into a document.

A test says it with a line "figure: <family>: <what>: <count>" in its output. Lines of the same family and name are added up,
apart for each build that the run was about. Run as figures.py <ctest's log> <document>: the table replaces what stands between
the two marks in the document.
"""

import re
import sys

BEGIN = "<!-- figures: renewed by ./check long -->"
END = "<!-- end of the figures -->"

# At a test's end; the line "Testing:" at its start may stand among the output of another one.
_TEST = re.compile(r"^\d+/\d+ Test: (\S+)")
_FIGURE = re.compile(r"^figure: ([^:]+): ([^:]+): (\d+)\s*$")
# The builds that put their name before their tests' names; the others' tests are of the Release build.
_BUILDS = {"sanitize": "sanitized", "threads": "threads", "fuzz": "fuzzing"}


def collect(lines):
    """{(family, what): {build: count}} of a log of ctest, families and names in the order of their first appearance."""
    figures = {}
    build = "Release"
    for line in lines:
        test = _TEST.match(line)
        if test:
            build = _BUILDS.get(test.group(1).split("/")[0], "Release")
        figure = _FIGURE.match(line)
        if figure:
            counts = figures.setdefault((figure.group(1), figure.group(2)), {})
            counts[build] = counts.get(build, 0) + int(figure.group(3))
    return figures


def table(figures):
    """The lines of a table in Markdown, sorted by family."""
    builds = [b for b in ["Release", *_BUILDS.values()] if any(b in counts for counts in figures.values())]
    lines = ["| family | what | " + " | ".join(builds) + " |", "|---|---|" + "---:|" * len(builds)]
    for (family, what), counts in sorted(figures.items(), key=lambda figure: figure[0][0]):
        cells = [f"{counts[build]:,}" if build in counts else "" for build in builds]
        lines.append("| " + " | ".join([family, what, *cells]) + " |")
    return lines


def replaced(document, lines):
    """The document with the lines between its marks. Raises ValueError when the marks are not there once each."""
    if document.count(BEGIN) != 1 or document.count(END) != 1 or document.index(BEGIN) > document.index(END):
        raise ValueError(f'the document needs the marks "{BEGIN}" and "{END}", once each, in this order')
    before = document[:document.index(BEGIN) + len(BEGIN)]
    return before + "\n" + "\n".join(lines) + "\n" + document[document.index(END):]


def main(log_path, document_path):
    with open(log_path, encoding="utf-8", errors="replace") as log:
        figures = collect(log)
    if not figures:
        sys.exit(f"No figure stands in {log_path}.")
    with open(document_path, encoding="utf-8") as file:
        document = file.read()
    with open(document_path, "w", encoding="utf-8") as file:
        file.write(replaced(document, table(figures)))
    print("\n".join(table(figures)))


if __name__ == "__main__":
    main(sys.argv[1], sys.argv[2])
