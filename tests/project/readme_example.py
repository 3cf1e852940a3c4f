"""The examples in README.md and docs/java.md are parts of files that are compiled, and print what README.md says.

Run as

    readme_example.py texts <root>
    readme_example.py run <root> <java> <tabulo.jar> <libtabulo.so> <work directory>

Prints a sentence for each difference and fails when there is one. A block of ```java or ```cpp must stand, as it is but for
its indentation, in the file of examples/ that is linked last before it. The commands of a block of ```console ("$ " before
each, its further lines indented) are run, with the paths of this build, and must print the lines that follow them.
"""

import os
import re
import shutil
import subprocess
import sys
import textwrap

_DOCUMENTS = ("README.md", "docs/java.md")
_BLOCK = re.compile(r"^```(\w+)\n(.*?)^```$", re.MULTILINE | re.DOTALL)
_LINK = re.compile(r"\]\((?:\.\./)?(examples/[^)]+)\)")


def _read(root, path):
    with open(os.path.join(root, path), encoding="utf-8") as file:
        return file.read()


def blocks(markdown, *languages):
    """Every fenced block of these languages: (language, number of its first line, text, what stands before it)."""
    return [(match.group(1), markdown.count("\n", 0, match.start(2)) + 1, match.group(2), markdown[:match.start()])
            for match in _BLOCK.finditer(markdown) if match.group(1) in languages]


def _stands_in(part, text):
    part = textwrap.dedent(part).splitlines()
    lines = text.splitlines()
    for begin in range(len(lines) - len(part) + 1):
        if textwrap.dedent("\n".join(lines[begin:begin + len(part)])).splitlines() == part:
            return True
    return False


def _wrong_texts_of(root, document):
    problems = []
    for language, line, text, before in blocks(_read(root, document), "java", "cpp"):
        links = _LINK.findall(before)
        if not links:
            problems.append(f"{document}:{line}: no file of examples/ is linked before the block.")
        elif not os.path.isfile(os.path.join(root, links[-1])):
            problems.append(f"{document}:{line}: {links[-1]} does not exist.")
        elif not _stands_in(text, _read(root, links[-1])):
            problems.append(f"{document}:{line}: the {language} text does not stand in {links[-1]}.")
    return problems


def wrong_texts(root):
    """A sentence for each block of code that is not what stands in the example it is said to be from."""
    problems = [f"README.md has no block that begins with ```{language}." for language in ("java", "cpp")
                if not blocks(_read(root, "README.md"), language)]
    for document in _DOCUMENTS:
        if os.path.isfile(os.path.join(root, document)):
            problems += _wrong_texts_of(root, document)
    return problems


def commands(console):
    """[(command, expected output)] of a block of ```console."""
    found = []
    for line in console.splitlines():
        if line.startswith("$ "):
            found.append((line[2:], ""))
        elif found and found[-1][0].endswith("\\"):
            found[-1] = (found[-1][0][:-1] + line.strip(), "")
        elif found:
            found[-1] = (found[-1][0], found[-1][1] + line + "\n")
    return found


def wrong_outputs(root, paths, path_variable, work_directory):
    """Runs what the blocks of ```console show, with paths put in place of others; a sentence for each that went wrong."""
    shown = blocks(_read(root, "README.md"), "console")
    problems = [] if shown else ["README.md has no block that begins with ```console."]
    for _, line, text, _ in shown:
        for command, expected in commands(text):
            for path, replacement in paths.items():
                command = command.replace(path, replacement)
            run = subprocess.run(["sh", "-c", command], cwd=work_directory, env={**os.environ, "PATH": path_variable},
                                 stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=120, check=False)
            if run.returncode != 0 or run.stdout != expected:
                problems.append(f"README.md:{line}: {command}\nended with {run.returncode} and printed\n{run.stdout}"
                                f"instead of\n{expected}{run.stderr}")
    return problems


def main():
    root = sys.argv[2]
    if sys.argv[1] == "texts":
        problems = wrong_texts(root)
    else:
        java, jar, library, work_directory = sys.argv[3:]
        shutil.rmtree(work_directory, ignore_errors=True)
        os.makedirs(work_directory)
        paths = {"build/release/java/tabulo.jar": jar, "build/release/libtabulo.so": library,
                 "build/release/example_": os.path.join(os.path.dirname(library), "example_"),
                 "build/example": os.path.join(work_directory, "tables"), "examples/java/": os.path.join(root, "examples/java", "")}
        problems = wrong_outputs(root, paths, os.path.dirname(java) + os.pathsep + os.environ["PATH"], work_directory)
    print("\n".join(problems))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
