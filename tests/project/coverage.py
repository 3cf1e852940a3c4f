"""Reports which lines and branches of the library the tests of a coverage build have reached, and judges them.

Run as coverage.py <build directory> after the tests: one row for each source file. It fails when a line of the files that
must be covered whole is not reached, or when fewer lines of all files together, or of the binding, are than must be.
"""

import json
import os
import subprocess
import sys

# Evidence rests on these: every line of them has a test.
WHOLE = ("src/messagetable/recovery.cpp", "src/messagetable/recovery_write.cpp", "src/messagetable/torn_tail.cpp",
         "src/messagetable/block_summary.cpp", "src/messagetable/block_reader.cpp", "src/storage/table_file.cpp",
         "src/storage/table_file_flush.cpp", "src/storage/table_file_seek.cpp", "src/storage/salvage.cpp")
# Of the lines of all files below a folder; what fails in the binding fails in silence unless it was tried.
LEAST_PERCENT = {"": 95.0, "java/jni/": 98.0}

_FOLDERS = ("src", "java/jni")


def summary(root, build):
    """What gcovr counts, as it gives it: a list of files and the totals."""
    command = ["gcovr", "--root", root, "--exclude-throw-branches", "--exclude-unreachable-branches", "--json"]
    for folder in _FOLDERS:
        command += ["--filter", f"{folder}/"]
    return json.loads(subprocess.run(command + [build], check=True, capture_output=True, text=True).stdout)


def counted(file):
    """Path, lines reached, lines, branches reached, branches and the numbers of the lines not reached, of one file."""
    lines = [line for line in file["lines"] if not line.get("gcovr/noncode")]
    missed = [line["line_number"] for line in lines if line["count"] == 0]
    branches = [branch for line in lines for branch in line.get("branches", [])]
    reached = sum(1 for branch in branches if branch["count"] != 0)
    return file["file"], len(lines) - len(missed), len(lines), reached, len(branches), missed


def ranges(numbers):
    """Numbers in ascending order as text: "3 7-9"."""
    found = []
    for number in numbers:
        if found and number == found[-1][1] + 1:
            found[-1][1] = number
        else:
            found.append([number, number])
    return " ".join(str(first) if first == last else f"{first}-{last}" for first, last in found)


def percent(part, whole):
    return 100.0 if whole == 0 else 100.0 * part / whole


def problems(rows):
    """Sentences, one for each demand that is not met."""
    found = []
    for path, reached, lines, _, _, missed in rows:
        if path in WHOLE and missed:
            found.append(f"{path}: {lines - reached} lines are not covered: {ranges(missed)}.")
    for path in WHOLE:
        if path not in [row[0] for row in rows]:
            found.append(f"{path} was not counted at all.")
    for folder, least in LEAST_PERCENT.items():
        inside = [row for row in rows if row[0].startswith(folder)]
        reached = percent(sum(row[1] for row in inside), sum(row[2] for row in inside))
        if reached < least:
            found.append(f"{reached:.1f} % of all lines{' of ' + folder if folder else ''} are covered, less than {least} %.")
    return found


def main(build):
    root = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
    rows = [counted(file) for file in summary(root, build)["files"]]
    rows = [row for row in rows if row[2]]
    print(f"{'file':44} {'lines':>13} {'branches':>13}  not reached")
    for path, reached, lines, branches_reached, branches, missed in rows:
        print(f"{path:44} {reached:5}/{lines:<5}{'' if not missed else '*':1} {branches_reached:6}/{branches:<6}  "
              f"{ranges(missed)}")
    lines = percent(sum(row[1] for row in rows), sum(row[2] for row in rows))
    branches = percent(sum(row[3] for row in rows), sum(row[4] for row in rows))
    print(f"{lines:.1f} % of all lines and {branches:.1f} % of all branches are reached.")
    found = problems(rows)
    print("\n".join(found))
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
