"""Compiles every header of the library alone, included twice, under the strict warnings.

Run as headers_alone.py <root> <all|native> <compiler> <flags ...>; native leaves out the binding's, which need a JDK.
"""

import concurrent.futures
import os
import subprocess
import sys

import source_tree


def compile_alone(root, compiler, flags, header):
    source = f'#include "{header}"\n#include "{header}"\n'
    folders = [option for folder in ("include", "src", "java") for option in ("-I", os.path.join(root, folder))]
    run = subprocess.run([compiler, *flags, *folders, "-I", root, "-fsyntax-only", "-x", "c++", "-"], input=source, text=True,
                         stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
    return "" if run.returncode == 0 else f"{header}:1: the header does not compile alone:\n{run.stdout}"


def main():
    root, areas, compiler, flags = sys.argv[1], sys.argv[2], sys.argv[3], sys.argv[4:]
    headers = [path for path in source_tree.files(root, (".h",))
               if source_tree.area(path) in source_tree.LIBRARY_AREAS and not (areas == "native" and path.startswith("java/"))]
    if not headers:
        sys.exit(f"No header found in {root}.")
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        problems = [p for p in pool.map(lambda header: compile_alone(root, compiler, flags, header), headers) if p]
    for problem in problems:
        print(problem)
    print(f"{len(headers) - len(problems)} of {len(headers)} headers compile alone.")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
