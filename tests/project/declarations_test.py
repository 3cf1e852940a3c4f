"""Shows how functions are found in C++ code, and breaks each rule about declarations in a small tree of its own."""

import os
import tempfile
import unittest

import cpp_code
import dead_declarations


def found(text):
    return [("::".join(part for part in (f.scope, f.name) if part), f.first, f.last, f.has_body)
            for f in cpp_code.functions(text)]


class FunctionsTest(unittest.TestCase):
    def test_declarations_and_definitions_are_told_apart(self):
        self.assertEqual([("f", 1, 1, False), ("g", 2, 4, True), ("h", 5, 6, False)],
                         found("int f(int a);\nint g() {\n    f(1);\n}\n[[nodiscard]] bool h(int a,\n    int b) noexcept;\n"))

    def test_members_carry_their_type(self):
        self.assertEqual([("A::f", 2, 2, False), ("A::B::g", 4, 4, True), ("A::h", 7, 7, False), ("A::h", 9, 9, True)],
                         found("struct A final : Base<int> {\n    int f() const;\n    struct B {\n        void g() {}\n    };\n"
                               "public:\n    void h();\n};\nvoid A::h() {}\n"))

    def test_private_members_are_told_from_others(self):
        private = [f.name for f in cpp_code.functions("class A {\n    void a();\n  public:\n    int x;\n    void b();\n"
                                                      "    struct B {\n        void c();\n    };\n  private:\n    int y;\n"
                                                      "    void d();\n};\nstruct C {\n    void e();\n};\nvoid f();\n")
                   if f.is_private]
        self.assertEqual(["a", "d"], private)

    def test_namespaces_and_language_linkage_hold_functions(self):
        self.assertEqual([("f", 2, 2, True), ("g", 5, 5, False)],
                         found('namespace a::b {\nvoid f() {}\n}\nextern "C" {\nint g(void (*handler)(int));\n}\n'))

    def test_what_is_no_function_is_not_found(self):
        self.assertEqual([], found("using F = int (*)(int);\nstatic_assert(sizeof(int) == 4);\nint (*hook)(int) = nullptr;\n"
                                   "constexpr int A = f(3);\nint b{f(1)};\nenum class E { one, two };\n#define G(x) g(x);\n"
                                   "// int f();\nconst char* text = \"int f();\";\nauto l = [](int a) { return a; };\n"
                                   "struct A {\n    int (*call)(int);\n    alignas(8) char bytes[4] = {};\n};\n"))

    def test_operators_constructors_and_kinds_of_templates_are_found(self):
        self.assertEqual([("A::A", 1, 3, True), ("A::~A", 4, 4, False), ("A::operator_", 5, 5, True),
                          ("operator_", 6, 6, True), ("as", 7, 8, True)],
                         found("A::A(int a) : first(a), second{a} {\n    run();\n}\nA::~A() = default;\n"
                               "bool A::operator()(int a) const {}\nvoid operator delete[](void* p) {}\n"
                               "template <> std::vector<int(int)> as<int>(\n    int a) {}\n"))

    def test_quotes_do_not_confuse_the_braces(self):
        self.assertEqual([("f", 1, 3, True), ("g", 4, 4, True)],
                         found("void f() {\n    use('{', \"}\\\"}\", 1'000, R\"(}})\");  // }\n}\nvoid g() {}\n"))

    def test_a_comment_counts_for_the_functions_right_below(self):
        comments = [f.comment for f in cpp_code.functions("// One.\n// Two.\nint f();\nint g();\n\nint h();\n")]
        self.assertEqual(["// One.\n// Two.", "// One.\n// Two.", ""], comments)


class DeadDeclarationsTest(unittest.TestCase):
    def setUp(self):
        self._directory = tempfile.TemporaryDirectory()
        self.addCleanup(self._directory.cleanup)
        self.root = self._directory.name
        self.write("src/core/log.h", "void log_write(int a);\n")
        self.write("src/core/log.cpp", "void log_write(int a) {}\n")
        self.write("src/storage/file.cpp", "void use() {\n    log_write(1);\n}\n")

    def write(self, path, text):
        full = os.path.join(self.root, path)
        os.makedirs(os.path.dirname(full), exist_ok=True)
        with open(full, "w", encoding="utf-8") as file:
            file.write(text)

    def expect(self, *sentences):
        self.assertEqual(list(sentences), dead_declarations.problems(self.root))

    def test_a_function_that_another_source_calls_is_alive(self):
        self.expect()

    def test_a_function_that_nothing_defines_is_named(self):
        self.write("src/core/log.cpp", "")
        self.expect("src/core/log.h:1: log_write is declared and not defined.")

    def test_an_overload_that_nothing_defines_is_named(self):
        self.write("src/core/log.h", "void log_write(int a);\nvoid log_write(long a);\n")
        self.expect("src/core/log.h:1: log_write is declared and not defined.",
                    "src/core/log.h:2: log_write is declared and not defined.")

    def test_a_function_that_only_tests_call_is_named(self):
        os.remove(os.path.join(self.root, "src/storage/file.cpp"))
        self.write("tests/core/log_test.cpp", "void test() {\n    log_write(1);\n}\n")
        self.expect("src/core/log.h:1: log_write has no caller but tests: take it out of the header, or say "
                    '"No caller of ours:" and why it is there.')

    def test_a_function_that_only_its_own_source_calls_is_named(self):
        self.write("src/storage/file.cpp", "")
        self.write("src/core/log.cpp", "void log_write(int a) {}\nvoid twice() {\n    log_write(2);\n}\n")
        self.expect("src/core/log.h:1: log_write has no caller outside src/core/log.cpp: take it out of the header, or say "
                    '"Called here only:" and why it is there.')

    def test_a_private_member_is_for_its_own_source(self):
        self.write("src/storage/file.cpp", "void use() {\n    Log log;\n}\n")
        self.write("src/core/log.h", "class Log {\n    void flush();\n};\n")
        self.write("src/core/log.cpp", "void Log::flush() {}\n")
        self.expect("src/core/log.h:2: Log::flush has no caller but tests: take it out of the header, or say "
                    '"No caller of ours:" and why it is there.')
        self.write("src/core/log.cpp", "void Log::flush() {\n    flush();\n}\n")
        self.expect()

    def test_a_function_that_its_own_header_uses_is_alive(self):
        self.write("src/storage/file.cpp", "")
        self.write("src/core/log.h", "void log_write(int a);\nusing Log = Handle<int, log_write>;\n")
        self.expect()

    def test_the_words_about_callers_are_believed_while_they_are_true(self):
        self.write("src/storage/file.cpp", "")
        self.write("src/core/log.h", "// Writes. No caller of\n// ours: for hosts.\nvoid log_write(int a);\n")
        self.expect()
        self.write("src/query/query.cpp", "void use() {\n    log_write(1);\n}\n")
        self.expect('src/core/log.h:3: log_write says "No caller of ours:" and is named in src/query/query.cpp.')

    def test_members_of_a_class_template_are_found_behind_its_header(self):
        self.write("include/tabulo/query.h", "template <typename T>\nclass Range {\npublic:\n    static Range above(T value);\n};\n")
        self.write("tests/api/query_test.cpp", "TEST(Range, IsAbove) {\n    Range<int>::above(1);\n}\n")
        self.expect("include/tabulo/query.h:4: Range::above is declared and not defined.")
        self.write("src/api/range.cpp", "template <typename T>\nRange<T> Range<T>::above(T value) {\n    return Range(value);\n}\n")
        self.expect()

    def test_a_public_function_needs_a_definition_and_a_test(self):
        self.write("include/tabulo/reader.h", "class Reader {\npublic:\n    Reader();\n    int count() const;\n};\n")
        self.write("src/api/reader.cpp", "Reader::Reader() {}\n")
        self.expect("include/tabulo/reader.h:4: Reader::count is declared and not defined.")
        self.write("src/api/reader.cpp", "Reader::Reader() {}\nint Reader::count() const {\n    return 1;\n}\n")
        self.expect("include/tabulo/reader.h:4: Reader::count is not even called by a test.")
        self.write("tests/api/reader_test.cpp", "TEST(Reader, Counts) {\n    reader.count();\n}\n")
        self.expect()


if __name__ == "__main__":
    unittest.main()
