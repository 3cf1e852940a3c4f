"""Compiles the first Java block of README.md against tabulo.jar.

Run as readme_example.py <root> <javac> <tabulo.jar> <work directory>.
"""

import os
import re
import shutil
import subprocess
import sys


def first_java_block(markdown):
    """The text of the first block fenced as java and the line that it begins at, or nothing."""
    match = re.search(r"^```java\n(.*?)^```$", markdown, re.MULTILINE | re.DOTALL)
    return (match.group(1), markdown.count("\n", 0, match.start(1)) + 1) if match else None


def main():
    root, javac, jar, work_directory = sys.argv[1:]
    readme = os.path.join(root, "README.md")
    if not os.path.isfile(readme):
        sys.exit("README.md is missing.")
    with open(readme, encoding="utf-8") as file:
        block = first_java_block(file.read())
    if block is None:
        sys.exit("README.md: there is no block that begins with ```java.")
    text, line = block
    name = re.search(r"^public (?:final )?(?:class|record|interface) (\w+)", text, re.MULTILINE)
    shutil.rmtree(work_directory, ignore_errors=True)
    os.makedirs(work_directory)
    source = os.path.join(work_directory, (name.group(1) if name else "Example") + ".java")
    with open(source, "w", encoding="utf-8") as file:
        file.write(text)
    run = subprocess.run([javac, "--release", "17", "-encoding", "UTF-8", "-proc:none", "-Xlint:all", "-Werror",
                          "-cp", jar, "-d", work_directory, source], check=False)
    if run.returncode != 0:
        print(f"README.md:{line}: the Java example that begins here does not compile.")
    return run.returncode


if __name__ == "__main__":
    sys.exit(main())
