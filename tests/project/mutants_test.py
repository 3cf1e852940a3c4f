"""Looks for the faults of small pieces of C++, and plants some of them."""

import os
import subprocess
import tempfile
import time
import unittest

import cpp_text
import fault_run
import fault_tests
import faults
import mutants

PATH = "src/query/match.cpp"
HEADER = "src/query/match.h"


def function(body, head="void f(int a, int b)"):
    return f"{head} {{\n{body}\n}}\n"


def afters(text, path=PATH):
    """What the lines of a text may become."""
    return [fault.after for place in faults.places(path, text) for fault in place]


def afters_of(line, head="void f(int a, int b)"):
    """What a line in a function may become."""
    return afters(function("    " + line, head))


class TextTest(unittest.TestCase):
    def test_comments_texts_and_directives_are_no_code(self):
        text = '#include <a>\nint a = 1;  // b = 2\n/* c\n */ const char* d = "e = \\"3\\"";\nauto f = R"x(g)")x";\nchar h = \'"\';\n'
        self.assertEqual(["int", "a", "=", "1", ";", "const", "char", "*", "d", "=", '"e = \\"3\\""', ";",
                          "auto", "f", "=", 'R"x(g)")x"', ";", "char", "h", "=", "'\"'", ";"],
                         [token.text for token in cpp_text.tokens(text)])

    def test_tokens_know_their_lines(self):
        lines = {token.text: token.line for token in cpp_text.tokens("a /*\n*/ b\n// x\n\\\n c R\"(\n)\" d")}
        self.assertEqual((1, 2, 5, 6), (lines["a"], lines["b"], lines["c"], lines["d"]))

    def test_a_line_is_normalised_outside_texts_only(self):
        self.assertEqual('f(a, "b  c") ;', cpp_text.normalised('  f(a,\n\t  "b  c")  // why\n  ;'))

    def test_functions_are_found_with_their_names_and_types(self):
        text = """namespace a {
namespace {
struct S : B {
    explicit S(int x) : x_(x), y_{x} { x_ = 1; }
    bool is() const noexcept { return x_ == 1; }
    int x_ = 0;
    int y_{0};
};
template <typename T>
std::vector<T> make(std::function<void(T)> each, int count = 3) {
    each([&](auto x) { return x; });
    if (count) {
    }
}
constexpr Table table{{1, 2}, f(3)};
}
ErrorCode S::run(int* a) noexcept {
}
bool operator==(const S& a, const S& b) {
}
}
"""
        source = cpp_text.Source(PATH, text)
        self.assertEqual([("S", 4, 4), ("is", 5, 5), ("make", 9, 14), ("S::run", 17, 18), ("operator==", 19, 20)],
                         [(f.name, f.first_line, f.last_line) for f in source.functions])
        self.assertIn("ErrorCode", source.functions[3].type_words)
        self.assertIn("bool", source.functions[4].type_words)
        self.assertIsNone(source.function_at(6))

    def test_brackets_that_do_not_match_are_refused(self):
        for text in ("f(", "f)", "{(})"):
            with self.assertRaises(ValueError):
                cpp_text.Source(PATH, text)


class PlacesTest(unittest.TestCase):
    def test_comparisons_lose_or_gain_their_boundary(self):
        self.assertEqual(["g(a <= b);", ";"], afters_of("g(a < b);")[::-1])
        self.assertIn("g(a > b);", afters_of("g(a >= b);"))
        self.assertIn("g(a != b);", afters_of("g(a == b);"))

    def test_arithmetic_and_connectives_are_exchanged(self):
        for before, after in (("a + b", "a - b"), ("a * b", "a / b"), ("a & b", "a | b"), ("a << b", "a >> b"),
                              ("a && b", "a || b"), ("++a", "--a"), ("!a", "a"), ("-a", "a"), ("~a", "a"),
                              ("std::min(a, b)", "std::max(a, b)"), ("a ? b : c", "a ? c : b")):
            self.assertIn(f"g({after});", afters_of(f"g({before});"))
        self.assertIn("a -= b;", afters_of("a += b;"))

    def test_brackets_pointers_and_references_are_no_operators(self):
        self.assertEqual([], afters_of("const std::vector<std::array<T*, 4>>& x = g<2>(*a, &b);"))
        self.assertEqual([], afters("void f(Row&& row, const char* name);\n"))

    def test_numbers_become_their_neighbours(self):
        self.assertEqual(["const int x = 6;", "const int x = 8;"], afters_of("const int x = 7;"))
        self.assertEqual(["const int x = 1U;"], afters_of("const int x = 0U;"))
        self.assertEqual(["const int x = 15;", "const int x = 17;"], afters_of("const int x = 0x10;"))
        self.assertEqual(["const double x = 1.0;"], afters_of("const double x = 0.0;"))
        self.assertEqual(["const bool x = false;"], afters_of("const bool x = true;"))

    def test_constants_outside_functions_count(self):
        self.assertEqual(["constexpr int SIZE = 6;", "constexpr int SIZE = 8;", "bool on = true;"],
                         afters("constexpr int SIZE = 7;\nstruct S {\n    bool on = false;\n};\n"))

    def test_what_only_sizes_a_buffer_or_says_nothing_is_left_alone(self):
        for line in ("char text[64];", "std::array<char, 64> text;", 'static_assert(sizeof(a) == 4, "a");',
                     "using A = B<3>;", 'log_debug("f", "x = %d\\n", a + 1);', "constexpr int LINE_BUFFER = 512;"):
            self.assertEqual([], afters_of(line))
        self.assertEqual([], afters("#define A 1\nnamespace a::b {}\nint g() noexcept(1 == 1);\n"))

    def test_the_texts_of_warnings_stay_but_their_calls_may_go(self):
        self.assertEqual([";"], afters_of('log_warning("f", "1 + 1\\n");'))

    def test_a_variable_that_is_handed_over_to_be_filled_begins_as_it_does(self):
        self.assertEqual([], afters(function("    int size = 0;\n    bool ok = g(&size);")))
        self.assertEqual(["int size = 1;"], afters(function("    int size = 0;\n    bool ok = g(size, &size);")))

    def test_conditions_are_negated_once(self):
        self.assertIn("if (!(a < b)) {", afters(function("    if (a < b) {\n    }")))
        self.assertEqual(["if (a != b) {"], afters(function("    if (a == b) {\n    }")))
        self.assertEqual(["if (a) {"], afters(function("    if (!a) {\n    }")))
        self.assertEqual(["while (!(a)) {"], afters(function("    while (a) {\n    }")))

    def test_error_codes_are_dropped(self):
        head = "ErrorCode f(int a)"
        self.assertEqual(["return NO_ERROR;"], afters_of("return code;", head))
        self.assertEqual(["return NO_ERROR;", "return (static_cast<void>(g(a)), NO_ERROR);"], afters_of("return g(a);", head))
        self.assertEqual([], afters_of("return NO_ERROR;", head))
        self.assertIn("const ErrorCode code = (static_cast<void>(g(a)), NO_ERROR);", afters_of("const ErrorCode code = g(a);"))
        text = function("    ErrorCode code = NO_ERROR;\n    code = g(a);")
        self.assertEqual([";", "code = (static_cast<void>(g(a)), NO_ERROR);"], afters(text))
        self.assertIn("return NO_ERROR;", afters(function("    g([&] {\n        return FILE_ERROR;\n    });")))

    def test_results_of_other_types_are_lost(self):
        self.assertEqual(["return !(a.b());"], afters_of("return a.b();", "bool f(A a)"))
        self.assertEqual(["return {};"], afters_of("return a;", "std::int64_t f(A a)"))
        self.assertEqual([], afters_of("return nullptr;", "A* f()"))

    def test_statements_are_removed(self):
        for line in ("g(a, b);", "a->b[2].c = d;", "std::sort(a, b);", "*a = b;", "(void)g(a);", "break;", "continue;", "return;", "++a;"):
            self.assertIn(";", afters_of(line))
        for line in ("int c = a;", "A c(a);", "return a;", "const A& c = a;", "delete a;", "std::vector<int> c(a);"):
            self.assertNotIn(";", afters_of(line))

    def test_the_head_of_a_loop_ends_no_statement(self):
        text = "void f() {\n    for (int a = g(); a != h; b = g()) {\n        a = b;\n    }\n}\n"
        self.assertEqual([";", "for (int a = g(); a == h; b = g()) {"], sorted(afters(text)))

    def test_no_line_moves_when_a_fault_is_planted(self):
        text = function("    g(a,\n      b);\n    h();")
        fault = next(f for place in faults.places(PATH, text) for f in place if f.before == "g(a, b);")
        self.assertEqual(function("    ;\n\n    h();"), fault.planted(text))

    def test_the_fault_tells_its_place(self):
        fault = faults.places(PATH, function("    g(a);\n"))[0][0]
        self.assertEqual(f"{PATH}:2 f\n- g(a);\n+ ;", str(fault))


class WrittenTest(unittest.TestCase):
    TEXT = function("    if (a) {\n        g();\n    }\n    g();\n") + "\n" + function("    g();\n", "void h()")

    def test_lines_that_are_the_same_are_told_apart(self):
        found = [f for place in faults.places(PATH, self.TEXT) for f in place if f.after == ";"]
        self.assertEqual([("f", 1), ("f", 2), ("h", 1)], [(f.function, f.number) for f in found])

    def test_every_fault_is_found_again_as_it_is_written(self):
        for place in faults.places(PATH, self.TEXT):
            for fault in place:
                written, = faults.parse(str(fault), "list")
                located = faults.locate(written, {PATH: self.TEXT})
                self.assertEqual(fault.key, located.key)
                self.assertEqual(cpp_text.normalised(fault.planted(self.TEXT)),
                                 cpp_text.normalised(located.planted(self.TEXT)))

    def test_a_fault_is_found_again_after_lines_have_moved_and_comments_have_changed(self):
        written, = faults.parse(f"{PATH}:3 f\n- g();\n+ ;\n    It does nothing,\n    or so.\n", "list")
        located = faults.locate(written, {PATH: "// new\n\n" + self.TEXT.replace("g();", "g();  // g", 1)})
        self.assertEqual(written.key, located.key)
        self.assertEqual(5, located.line)
        self.assertEqual("It does nothing, or so.", written.reason)

    def test_a_fault_whose_text_has_changed_is_not_found(self):
        written, = faults.parse(f"{PATH} f #3\n- g();\n+ ;\n", "list")
        self.assertIsNone(faults.locate(written, {PATH: self.TEXT}))
        self.assertIsNone(faults.locate(written, {}))

    def test_any_code_may_take_the_place_of_any_other(self):
        written, = faults.parse(f"{PATH}:5\n- g();\n+ h(1);\n", "list")
        planted = faults.locate(written, {PATH: self.TEXT}).planted(self.TEXT)
        self.assertEqual("    h(1);", planted.splitlines()[4])

    def test_comments_and_empty_lines_may_stand_between_the_faults_of_a_list(self):
        text = f"# a list\n\n{PATH} f\n- a\n+ b\n\n\n# more\n{PATH} f #2\n- a\n+ \n    why\n"
        self.assertEqual([(PATH, "f", 1, "a", "b"), (PATH, "f", 2, "a", "")], [w.key for w in faults.parse(text, "list")])

    def test_what_is_no_list_is_refused_with_its_line(self):
        for text, line in (("\nx y z\n", 2), (f"{PATH}\n- a\n", 1), (f"{PATH}\n- a\n+ b\nc\n", 4)):
            with self.assertRaisesRegex(ValueError, f"list:{line}:"):
                faults.parse(text, "list")


class DrawingTest(unittest.TestCase):
    SOURCES = {PATH: function("\n".join(f"    g{i}({i});" for i in range(200))),
               HEADER: "\n".join(f"constexpr int A{i} = {i};" for i in range(200))}

    def test_a_seed_draws_the_same_faults_again(self):
        keys = [[fault.key for fault in mutants.draw(self.SOURCES, seed)] for seed in (7, 7, 8)]
        self.assertEqual(keys[0], keys[1])
        self.assertNotEqual(keys[0], keys[2])
        self.assertEqual(len(keys[0]), len(set(keys[0])))

    def test_headers_are_drawn_less_often(self):
        first = [fault.path for fault in mutants.draw(self.SOURCES, 3)[:100]]
        self.assertLess(first.count(HEADER), 50)
        self.assertGreater(first.count(HEADER), 0)

    def test_all_faults_of_a_line_can_be_asked_for(self):
        self.assertEqual(["constexpr int A5 = 4;", "constexpr int A5 = 6;"],
                         [fault.after for fault in mutants.all_at(self.SOURCES, f"{HEADER}:6")])
        for where in ("src/a.cpp", f"{PATH}:999"):
            with self.assertRaises(ValueError):
                mutants.all_at(self.SOURCES, where)

    def test_a_worker_waits_for_no_more_faults_than_are_wanted(self):
        waiting = fault_run._Waiting("abcdef", 2)
        self.assertEqual(["a", "b", None], [waiting.next() for _ in range(3)])
        waiting.done(False)
        self.assertEqual(["c", None], [waiting.next() for _ in range(2)])
        waiting.done(True)
        waiting.done(True)
        self.assertIsNone(waiting.next())


class BrokenBuild:
    """Every test of it fails."""

    own_library = "own"

    def run(self, place, library, tests, seed):
        return fault_tests.Outcome(tests[0].name, "fails")


class JudgingTest(unittest.TestCase):
    def setUp(self):
        self.run_ = fault_run.Run.__new__(fault_run.Run)
        self.run_._seed = 1
        self.run_._trusted = set()
        self.run_._build = BrokenBuild()
        self.groups = [[fault_tests.Test("tests_query", "T.fails", 1)]]

    def test_a_test_that_fails_without_the_fault_ends_the_run(self):
        with self.assertRaises(fault_tests.CleanRunFailed):
            self.run_._run(None, self.groups, None, "with a fault")

    def test_a_test_that_fails_in_the_build_that_has_a_headers_fault_has_noticed_it(self):
        verdict = self.run_._run(None, self.groups, None, BrokenBuild.own_library)
        self.assertEqual(fault_run.Verdict("noticed", "T.fails fails"), verdict)


class OrderTest(unittest.TestCase):
    def test_quick_tests_come_first_and_among_them_those_of_the_folder(self):
        def test(program, milliseconds):
            return fault_tests.Test(program, f"T.{program}{milliseconds}", milliseconds)

        tests = [test("tests_core", 9), test("tests_query", 10), test("tests_query", 5000), test("tests_core", 200),
                 test("tests_power", 3), test("tests_query", 20)]
        self.assertEqual([["T.tests_query10", "T.tests_query20"], ["T.tests_power3"], ["T.tests_core9"],
                          ["T.tests_core200"], ["T.tests_query5000"]],
                         [[test.name for test in group] for group in fault_run.in_order(tests, PATH)])


class ProgramTest(unittest.TestCase):
    """Scripts stand in for test programs."""

    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.root = directory.name
        self.processes = fault_tests.Processes()
        self.addCleanup(self.processes.stop)

    def watch(self, script, limits=None, otherwise=20):
        process = self.processes.start(["bash", "-c", script], stdout=subprocess.PIPE)
        watch = fault_tests._Watch(process, limits or {}, otherwise)
        try:
            hangs = watch.follow()
        finally:
            self.processes.end(process)
        return watch, hangs

    def test_tests_and_their_times_are_read(self):
        watch, hangs = self.watch("""cat <<'END'
[ RUN      ] A.B
[       OK ] A.B (12 ms)
[ RUN      ] C/A.B/0
half a line[  FAILED  ] C/A.B/0, where GetParam() = 3 (7 ms)
[==========] 2 tests from 2 test suites ran. (19 ms total)
[  FAILED  ] 1 test, listed below:
[  FAILED  ] D.E
END""")
        self.assertFalse(hangs)
        self.assertEqual({"A.B": 12, "C/A.B/0": 7}, watch.times)
        self.assertEqual("C/A.B/0", watch.failed)
        self.assertTrue(watch.summed_up)

    def test_a_test_that_does_not_end_is_named(self):
        watch, hangs = self.watch("echo '[ RUN      ] A.B'; sleep 600", {"A.B": 0.1})
        self.assertTrue(hangs)
        self.assertEqual("A.B", watch.current)

    def test_what_a_process_has_started_ends_with_it(self):
        process = self.processes.start(["bash", "-c", "sleep 600 & echo $!; wait"], stdout=subprocess.PIPE, text=True)
        child = int(process.stdout.readline())
        self.processes.end(process)
        deadline = time.monotonic() + 20
        while self.is_alive(child):
            self.assertLess(time.monotonic(), deadline, "the child is still there")
            time.sleep(0.01)

    def is_alive(self, process_id):
        try:
            with open(f"/proc/{process_id}/stat", encoding="utf-8") as stat:
                return stat.read().rsplit(")", 1)[1].split()[0] != "Z"
        except OSError:
            return False

    def test_nothing_is_started_after_a_stop(self):
        self.processes.stop()
        with self.assertRaises(fault_tests.Stopped):
            self.processes.start(["true"])

    def test_a_command_that_fails_says_what_it_has_written(self):
        with self.assertRaisesRegex(fault_tests.BuildError, "no such thing"):
            self.processes.output(["bash", "-c", "echo no such thing >&2; exit 3"])

    def write(self, path, text):
        full = os.path.join(self.root, path)
        os.makedirs(os.path.dirname(full), exist_ok=True)
        with open(full, "w", encoding="utf-8") as file:
            file.write(text)

    def test_a_copy_holds_what_the_tree_holds_and_keeps_what_is_the_same(self):
        self.write("tree/src/a.cpp", "a")
        self.write("tree/src/b.cpp", "b")
        self.write("tree/build/c", "c")
        self.write("tree/.git/d", "d")
        self.write("copy/src/old.cpp", "x")
        self.write("copy/src/a.cpp", "a")
        self.write("copy/src/b.cpp", "B")
        os.utime(os.path.join(self.root, "copy/src/a.cpp"), (1, 1))
        fault_tests.copy_tree(os.path.join(self.root, "tree"), os.path.join(self.root, "copy"))
        held = [name for _, _, names in os.walk(os.path.join(self.root, "copy")) for name in names]
        self.assertEqual(["a.cpp", "b.cpp"], sorted(held))
        self.assertEqual(1, os.path.getmtime(os.path.join(self.root, "copy/src/a.cpp")))
        with open(os.path.join(self.root, "copy/src/b.cpp"), encoding="utf-8") as file:
            self.assertEqual("b", file.read())


class ReachTest(unittest.TestCase):
    SOURCE = cpp_text.Source(PATH, function("    if (a) {\n        g();\n    }\n    h(\n        a);\n    static int x = 1;"))

    def setUp(self):
        # The function's blocks begin in its lines 1, 3 and 5; block 4 is another file's.
        lines = {1: (PATH, 1), 2: (PATH, 3), 3: (PATH, 5), 4: ("src/query/other.cpp", 3)}
        self.reach = fault_tests.Reach(None)
        self.reach.know_lines(lines)
        times = {"S.entry": 1, "S.branch": 1, "S.all": 1, "T.none": 1, "T.other": 1}
        blocks = {"*": [], "T.*": [3], "S.entry": [1, 3], "S.branch": [1, 2], "S.all": [1, 2, 3], "T.other": [4]}
        self.reach.add("tests_query", {"times": times, "blocks": blocks}, lines)

    def of(self, line):
        fault = next(f for place in faults.places(PATH, self.SOURCE.text) for f in place if f.line == line)
        return [test.name for test in self.reach.of(fault, self.SOURCE.function_at(line))]

    def test_a_line_is_reached_with_the_block_that_begins_at_it_or_in_front_of_it(self):
        self.assertEqual(["S.entry", "S.branch", "S.all"], self.of(2))
        self.assertEqual(["S.branch", "S.all"], self.of(3))

    def test_what_ran_between_two_tests_counts_for_all_of_their_suite(self):
        self.assertEqual(["S.entry", "S.all", "T.none", "T.other"], self.of(5))

    def test_what_may_run_only_once_counts_for_every_test(self):
        self.assertEqual(5, len(self.of(7)))


if __name__ == "__main__":
    unittest.main()
