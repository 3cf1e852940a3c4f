"""Counts the processor's instructions for a stored and for a scanned message, with valgrind's callgrind.

Run as count_instructions.py <count_driver> <results.json> in a directory of its own. Each step is counted for two sizes
of a table, and the difference divided by that of the sizes: what both have in common, such as the first growth of a
buffer, is not in it, and the closing of blocks is. Without valgrind nothing is counted, and the report says so.
"""

import json
import re
import shutil
import subprocess
import sys
import tempfile

# Orders in the tables; both leave half a block open, with five blocks of a thousand between them.
SMALL, LARGE = 1500, 6500
# What is counted, the driver's mode, and the function of the driver that does it.
STEPS = [
    ("append", "append", "count_append"),
    ("scan forward", "forward", "count_scan"),
    ("scan backward", "backward", "count_scan"),
]


def instructions(driver, mode, function, messages):
    """What the function, with all it calls, has executed in a run of the driver."""
    with tempfile.TemporaryDirectory(dir=".") as directory:
        counts = f"{directory}/counts"
        command = ["valgrind", "--tool=callgrind", f"--callgrind-out-file={counts}", "--collect-atstart=no",
                   f"--toggle-collect={function}", driver, mode, f"{directory}/table", str(messages)]
        run = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
        if run.returncode != 0:
            sys.exit(f"{' '.join(command)} failed:\n{run.stdout}")
        with open(counts, encoding="utf-8") as file:
            total = re.search(r"^totals: (\d+)$", file.read(), re.MULTILINE)
    if total is None or int(total.group(1)) == 0:
        sys.exit(f"callgrind has counted nothing in {function}.")
    return int(total.group(1))


def figures(driver):
    if shutil.which("valgrind") is None:
        print("valgrind is not installed: instructions are not counted.")
        yield {"group": "missing", "subject": "instruction counts (valgrind)", "metric": "missing", "unit": "tool",
               "value": 1}
        return
    for name, mode, function in STEPS:
        large, small = (instructions(driver, mode, function, messages) for messages in (LARGE, SMALL))
        value = (large - small) / (LARGE - SMALL)
        print(f"{name}: {value:.1f} instructions a message")
        yield {"group": "instructions", "subject": name, "metric": "a message", "unit": "instructions", "value": value}


def main():
    driver, results = sys.argv[1:]
    with open(results, "w", encoding="utf-8") as file:
        for figure in figures(driver):
            file.write(json.dumps(figure) + "\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
