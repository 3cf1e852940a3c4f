"""Tests of readme_example.py."""

import os
import tempfile
import unittest

import readme_example

README = """See [First.java](examples/First.java):

```java
int a = 1;
    int b = 2;
```

and [first.cpp](examples/first.cpp):

```cpp
int c = 3;
```

```console
$ cat \\
    examples/first.cpp
int c = 3;
$ echo done
done
```
"""


class ReadmeExampleTest(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.TemporaryDirectory()
        self.addCleanup(self.directory.cleanup)
        self.root = self.directory.name
        os.mkdir(os.path.join(self.root, "examples"))
        self.write("README.md", README)
        self.write("examples/First.java", "class First {\n    int a = 1;\n        int b = 2;\n}\n")
        self.write("examples/first.cpp", "int c = 3;\n")

    def write(self, path, text):
        with open(os.path.join(self.root, path), "w", encoding="utf-8") as file:
            file.write(text)

    def outputs(self):
        return readme_example.wrong_outputs(self.root, {"examples/": os.path.join(self.root, "examples", "")},
                                            os.environ["PATH"], self.root)

    def test_texts_that_stand_in_their_files_are_right(self):
        self.assertEqual(readme_example.wrong_texts(self.root), [])

    def test_a_text_that_differs_in_one_line_is_named(self):
        self.write("examples/First.java", "class First {\n    int a = 1;\n        int b = 3;\n}\n")
        self.assertEqual(readme_example.wrong_texts(self.root),
                         ["README.md:4: the java text does not stand in examples/First.java."])

    def test_the_page_about_java_is_looked_at_too(self):
        os.mkdir(os.path.join(self.root, "docs"))
        self.write("docs/java.md", "[First.java](../examples/First.java)\n```java\nint a = 1;\n```\n```java\nint a = 2;\n```\n")
        self.assertEqual(readme_example.wrong_texts(self.root),
                         ["docs/java.md:6: the java text does not stand in examples/First.java."])

    def test_a_text_that_is_indented_otherwise_is_named(self):
        self.write("examples/First.java", "class First {\n    int a = 1;\n    int b = 2;\n}\n")
        self.assertEqual(len(readme_example.wrong_texts(self.root)), 1)

    def test_a_text_without_a_file_is_named(self):
        os.remove(os.path.join(self.root, "examples/first.cpp"))
        self.assertEqual(readme_example.wrong_texts(self.root), ["README.md:11: examples/first.cpp does not exist."])

    def test_a_readme_without_examples_is_named(self):
        self.write("README.md", "Nothing.\n")
        self.assertEqual(readme_example.wrong_texts(self.root), ["README.md has no block that begins with ```java.",
                                                                  "README.md has no block that begins with ```cpp."])
        self.assertEqual(self.outputs(), ["README.md has no block that begins with ```console."])

    def test_commands_that_print_what_is_shown_are_right(self):
        self.assertEqual(self.outputs(), [])

    def test_a_command_that_prints_something_else_is_named(self):
        self.write("examples/first.cpp", "int c = 4;\n")
        problems = self.outputs()
        self.assertEqual(len(problems), 1)
        self.assertIn("README.md:15: cat ", problems[0])
        self.assertIn("int c = 4;\ninstead of\nint c = 3;\n", problems[0])

    def test_a_command_that_fails_is_named(self):
        self.write("README.md", "```console\n$ exit 3\n```\n")
        self.assertIn("ended with 3", self.outputs()[0])


if __name__ == "__main__":
    unittest.main()
