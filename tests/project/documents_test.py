"""Tests of documented_layout.py and document_links.py."""

import os
import tempfile
import unittest

import document_links
import documented_layout

LAYOUT = """| folder | holds | may include |
|---|---|---|
| `src/core/` | logs | nothing of ours |
| `src/storage/` | files | `core` |
| `docs/` | pages | |
"""


class DocumentsTest(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.TemporaryDirectory()
        self.addCleanup(self.directory.cleanup)
        self.root = self.directory.name
        for folder in ("src/core", "src/storage", "docs", "build"):
            os.makedirs(os.path.join(self.root, folder))

    def write(self, path, text):
        with open(os.path.join(self.root, path), "w", encoding="utf-8") as file:
            file.write(text)

    def test_the_layout_of_the_tree_is_right(self):
        self.assertEqual(documented_layout.problems(self.root, LAYOUT), [])

    def test_a_document_without_rows_is_named(self):
        self.assertEqual(len(documented_layout.problems(self.root, "No table.\n")), 1)

    def test_folders_without_a_row_are_named(self):
        os.makedirs(os.path.join(self.root, "src/watcher"))
        os.mkdir(os.path.join(self.root, "lib"))
        self.assertEqual(documented_layout.problems(self.root, LAYOUT), ["lib/ has no row.", "src/watcher/ has no row."])

    def test_a_row_without_a_folder_is_named(self):
        self.assertEqual(documented_layout.problems(self.root, LAYOUT + "| `pages/` | none | |\n"),
                         ["pages/ has a row and does not exist."])

    def test_another_direction_of_includes_is_named(self):
        wrong = LAYOUT.replace("| nothing of ours |", "| `storage` |")
        self.assertEqual(documented_layout.problems(self.root, wrong),
                         ["src/core/ may include nothing of ours, and not storage."])

    def test_a_folder_of_the_library_without_includes_is_named(self):
        wrong = LAYOUT.replace("| `core` |", "| |")
        self.assertEqual(documented_layout.problems(self.root, wrong),
                         ["The row of src/storage/ does not say what it may include."])

    def test_links_that_lead_somewhere_are_right(self):
        self.write("README.md", "# One\n[a](docs/page.md) [b](docs/page.md#a-close-look-sizeh) [c](#one) [d](https://a.example/b)\n")
        self.write("docs/page.md", "## A close look (`size.h`)\n[up](../README.md)\n")
        self.assertEqual(document_links.problems(self.root), [])

    def test_links_that_lead_nowhere_are_named(self):
        self.write("README.md", "# One\n[a](docs/none.md)\n[b](docs/page.md#other) [c](#two)\n")
        self.write("docs/page.md", "## Page\n```text\n# other\n```\n")
        self.assertEqual(document_links.problems(self.root),
                         ["README.md:2: docs/none.md does not exist.",
                          "README.md:3: docs/page.md has no heading that #other leads to.",
                          "README.md:3: README.md has no heading that #two leads to."])

    def test_paths_that_do_not_exist_are_named(self):
        self.write("src/core/log.h", "#pragma once\n")
        self.write("README.md", "`core/log.h` `src/core/log.h` `src/core/` `other/log.h` `src/<noun>.h` `build/none` `log`\n"
                   "`core/lag.h` and `src/lag/`\n")
        self.assertEqual(document_links.problems(self.root), ["README.md:2: core/lag.h does not exist.",
                                                              "README.md:2: src/lag/ does not exist."])


if __name__ == "__main__":
    unittest.main()
