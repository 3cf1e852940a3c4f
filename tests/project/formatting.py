"""Fails when clang-format would change a C++ file. Run as formatting.py <root> <clang-format>."""

import subprocess
import sys

import source_tree


def main():
    root, clang_format = sys.argv[1], sys.argv[2]
    paths = source_tree.files(root, source_tree.CPP_SUFFIXES)
    if not paths:
        sys.exit(f"No C++ file found in {root}.")
    run = subprocess.run([clang_format, "--style=file", "--dry-run", "-Werror", *paths], cwd=root, check=False)
    if run.returncode != 0:
        print(f"Some C++ files are not formatted. In the root of the tree, run: {clang_format} -i <file>")
    else:
        print(f"{len(paths)} C++ files are formatted.")
    return run.returncode


if __name__ == "__main__":
    sys.exit(main())
