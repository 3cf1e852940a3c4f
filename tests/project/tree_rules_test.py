"""Breaks each rule of the tree in a small tree of its own and expects the sentence that names the place."""

import os
import tempfile
import unittest

import tree_rules


class TreeRulesTest(unittest.TestCase):
    def setUp(self):
        self._directory = tempfile.TemporaryDirectory()
        self.addCleanup(self._directory.cleanup)
        self.root = self._directory.name
        self.write("src/core/log.h", "#pragma once\n\n#include <string>\n")
        self.write("src/core/platform.cpp", '#include "core/log.h"\n\n#include <unistd.h>\n')
        self.write("src/storage/table_file.h", '#pragma once\n\n#include "core/log.h"\n\nint table_open(int file);\n')
        self.write("src/storage/table_file.cpp", "int table_open(int file) {\n    return file;\n}\n")
        self.write("src/messagetable/frame.h", '#pragma once\n\n#include "storage/table_file.h"\n')
        self.write("java/jni/table.cpp", '#include "messagetable/frame.h"\n\n#include <jni.h>\n\nint file = table_open(1);\n')
        self.write("tests/core/log_test.cpp", '#include "core/log.h"\n\n#include <sys/wait.h>\n\nTEST(Log, IsThere) {}\n')
        self.write("tests/java/a/TableTest.java", "    @Test\n")

    def write(self, path, text):
        full = os.path.join(self.root, path)
        os.makedirs(os.path.dirname(full), exist_ok=True)
        with open(full, "w", encoding="utf-8") as file:
            file.write(text)

    def expect(self, rule, *sentences):
        self.assertEqual(list(sentences), rule(self.root))

    def test_a_tree_that_keeps_every_rule_has_no_complaint(self):
        for rule in tree_rules.RULES:
            self.expect(rule)

    def test_an_include_upwards_is_named(self):
        self.write("src/core/up.cpp", '#include <vector>\n#include "storage/table_file.h"\n')
        self.expect(tree_rules.include_direction,
                    'src/core/up.cpp:2: "storage/table_file.h" points the wrong way: '
                    "src/core/ may include nothing of ours besides itself.")

    def test_an_include_sideways_is_named(self):
        self.write("src/sessioninfo/table.h", '#pragma once\n#include "messagetable/frame.h"\n')
        self.expect(tree_rules.include_direction,
                    'src/sessioninfo/table.h:2: "messagetable/frame.h" points the wrong way: '
                    "src/sessioninfo/ may include storage, core besides itself.")

    def test_an_include_of_a_test_helper_in_the_library_is_named(self):
        self.write("tests/support/temp.h", "#pragma once\n")
        self.write("java/jni/wrong.cpp", '#  include "tests/support/temp.h"\n')
        self.assertIn('java/jni/wrong.cpp:1: "tests/support/temp.h" points the wrong way',
                      tree_rules.include_direction(self.root)[0])

    def test_an_include_of_the_inside_in_a_tool_or_an_adapter_is_named(self):
        self.write("include/tabulo/reader.h", "#pragma once\n")
        self.write("tool/main.cpp", '#include "core/log.h"\n#include "tabulo/reader.h"\n')
        self.write("adapters/sqlite/table.cpp", '#include "messagetable/frame.h"\n')
        self.expect(tree_rules.include_direction,
                    'adapters/sqlite/table.cpp:1: "messagetable/frame.h" points the wrong way: '
                    "adapters/ may include tabulo besides itself.",
                    'tool/main.cpp:1: "core/log.h" points the wrong way: '
                    "tool/ may include adapters, tabulo besides itself.")

    def test_an_include_without_its_folder_is_named(self):
        self.write("src/core/near.cpp", '#include "log.h"\n#include "core/../core/log.h"\n')
        self.expect(tree_rules.include_direction,
                    'src/core/near.cpp:1: "log.h" must begin with the folder it stands in, '
                    'as in "core/log.h" or "tests/support/bytes.h".',
                    'src/core/near.cpp:2: "core/../core/log.h" must begin with the folder it stands in, '
                    'as in "core/log.h" or "tests/support/bytes.h".')

    def test_an_include_in_brackets_of_our_own_file_is_named(self):
        self.write("src/storage/brackets.cpp", "#include <core/log.h>\n")
        self.expect(tree_rules.include_direction,
                    "src/storage/brackets.cpp:1: <core/log.h> is a file of this tree: include it in quotes.")

    def test_an_include_of_a_missing_file_is_named(self):
        self.write("tests/core/missing_test.cpp", '#include "core/lag.h"\n')
        self.expect(tree_rules.include_direction, 'tests/core/missing_test.cpp:1: "core/lag.h" does not exist.')

    def test_a_circle_of_includes_is_named(self):
        self.write("src/core/a.h", '#pragma once\n#include "core/b.h"\n')
        self.write("src/core/b.h", '#pragma once\n#include "core/a.h"\n')
        self.expect(tree_rules.include_circles,
                    "src/core/b.h:2: the includes go in a circle: src/core/a.h -> src/core/b.h -> src/core/a.h.")

    def test_a_system_header_outside_the_platform_files_is_named(self):
        self.write("src/storage/table_file.cpp", "#include <sys/file.h>\n")
        self.write("src/messagetable/platform.cpp", "#include <fcntl.h>\n")
        self.write("src/core/jni_in_core.cpp", "#include <jni.h>\n")
        self.expect(tree_rules.system_headers,
                    *(f"{place} is no header of the C++ library: "
                      "only src/core/*platform* and src/storage/*platform* may include it."
                      for place in ("src/core/jni_in_core.cpp:1: <jni.h>", "src/messagetable/platform.cpp:1: <fcntl.h>",
                                    "src/storage/table_file.cpp:1: <sys/file.h>")))

    def test_a_file_of_601_lines_is_named_and_one_of_600_is_not(self):
        self.write("tests/java/Just.java", "\n" * 600)
        self.write("tests/java/Long.java", "\n" * 601)
        self.write("build/core/long.cpp", "\n" * 601)
        self.expect(tree_rules.file_length, "tests/java/Long.java:601: the file has 601 lines, 600 are allowed.")

    def test_a_cpp_file_of_401_lines_is_named_and_one_of_400_is_not(self):
        self.write("tests/core/just_test.cpp", "\n" * 400)
        self.write("src/core/long.h", "\n" * 401)
        self.expect(tree_rules.file_length, "src/core/long.h:401: the file has 401 lines, 400 are allowed.")

    def test_a_function_of_61_lines_is_named_and_one_of_60_is_not(self):
        self.write("src/core/long.cpp", "void just() {\n" + "\n" * 58 + "}\n\nint Log::long_(int a,\n          int b) {\n" +
                   "\n" * 58 + "}\n")
        self.expect(tree_rules.function_length, "src/core/long.cpp:62: Log::long_ has 61 lines, 60 are allowed.")

    def test_a_header_without_its_guard_is_named(self):
        self.write("src/core/bare.h", "#include <string>\n")
        self.expect(tree_rules.header_guards, "src/core/bare.h:1: the header has no line '#pragma once'.")

    def test_tests_in_a_file_that_the_build_does_not_run_are_named(self):
        self.write("tests/java/a/TableTests.java", "class TableTests {\n    @Test\n}\n")
        self.write("tests/core/log.cpp", "TEST(Log, IsThere) {}\n")
        self.expect(tree_rules.test_names,
                    "tests/java/a/TableTests.java:2: the test never runs: the file's name must end in Test.java.",
                    "tests/core/log.cpp:1: a file with tests must have a name ending in _test.cpp.")


if __name__ == "__main__":
    unittest.main()
