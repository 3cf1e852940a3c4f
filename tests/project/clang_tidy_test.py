"""Lets clang_tidy.py look at a small tree with a clang-tidy that complains about every "WRONG" and writes down what it is asked."""

import json
import os
import subprocess
import sys
import tempfile
import unittest

_CLANG_TIDY = """#!/bin/sh
[ "$1" = --version ] && { echo "version 1"; exit 0; }
for file; do :; done
echo "$file" >>"$0.asked"
! grep -H "WRONG" "$file" | sed "s/$/ error: wrong/" | grep .
"""


class ClangTidyTest(unittest.TestCase):
    def setUp(self):
        self._directory = tempfile.TemporaryDirectory()
        self.addCleanup(self._directory.cleanup)
        self.root = self._directory.name
        self.clang_tidy = self.write("clang-tidy", _CLANG_TIDY)
        os.chmod(self.clang_tidy, 0o755)
        self.write(".clang-tidy", "Checks: all\n")
        self.write("src/core/log.h", "#pragma once\n")
        self.write("src/storage/file.h", '#include "core/log.h"\n')
        sources = [self.write("src/core/log.cpp", '#include "core/log.h"\n'),
                   self.write("src/storage/file.cpp", '#include "storage/file.h"\n'),
                   self.write("java/jni/table.cpp", "\n"), self.write("tests/core/log_test.cpp", "WRONG\n")]
        self.write("build/compile_commands.json",
                   json.dumps([{"directory": "/", "file": path, "command": "g++ " + path} for path in sources]))

    def write(self, path, text):
        full = os.path.join(self.root, path)
        os.makedirs(os.path.dirname(full), exist_ok=True)
        with open(full, "w", encoding="utf-8") as file:
            file.write(text)
        return full

    def run_it(self, clang_tidy=None):
        script = os.path.join(os.path.dirname(os.path.abspath(__file__)), "clang_tidy.py")
        return subprocess.run([sys.executable, "-B", script, self.root, clang_tidy or self.clang_tidy,
                               os.path.join(self.root, "build")], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              check=False)

    def expect(self, status, *asked):
        run = self.run_it()
        self.assertEqual(status, run.returncode, run.stdout)
        found = []
        if os.path.isfile(self.clang_tidy + ".asked"):
            with open(self.clang_tidy + ".asked", encoding="utf-8") as file:
                found = [os.path.relpath(line, self.root) for line in file.read().split()]
            os.remove(self.clang_tidy + ".asked")
        self.assertEqual(sorted(asked), sorted(found))
        return run.stdout

    def expect_all(self, status=0):
        return self.expect(status, "src/core/log.cpp", "src/storage/file.cpp", "java/jni/table.cpp")

    def test_what_has_passed_is_not_looked_at_again(self):
        self.expect_all()
        self.expect(0)

    def test_a_change_of_a_source_or_of_a_header_leads_to_those_that_read_it(self):
        self.expect_all()
        self.write("java/jni/table.cpp", "int a;\n")
        self.expect(0, "java/jni/table.cpp")
        self.write("src/storage/file.h", '#include "core/log.h"\n\n')
        self.expect(0, "src/storage/file.cpp")
        self.write("src/core/log.h", "#pragma once\n\n")
        self.expect(0, "src/core/log.cpp", "src/storage/file.cpp")

    def test_a_change_of_the_configuration_leads_to_all(self):
        self.expect_all()
        self.write(".clang-tidy", "Checks: some\n")
        self.expect_all()

    def test_a_complaint_is_shown_until_it_is_gone(self):
        self.write("src/core/log.cpp", '#include "core/log.h"\n// WRONG\n')
        self.assertIn("log.cpp:// WRONG error: wrong", self.expect_all(1))
        self.assertIn("log.cpp:// WRONG error: wrong", self.expect(1, "src/core/log.cpp"))
        self.write("src/core/log.cpp", '#include "core/log.h"\n')
        self.expect(0, "src/core/log.cpp")

    def test_a_missing_clang_tidy_and_a_build_without_sources_fail(self):
        run = self.run_it("TABULO_CLANG_TIDY-NOTFOUND")
        self.assertEqual((1, "clang-tidy is missing: install the package clang-tidy.\n"), (run.returncode, run.stdout))
        self.write("build/compile_commands.json", "[]")
        self.assertIn("compiles no source of src/, java/jni/, tool/, adapters/.", self.expect(1))


if __name__ == "__main__":
    unittest.main()
