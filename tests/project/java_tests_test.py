"""Judges outputs of Java test runs that must fail, and one that must not."""

import unittest

import java_tests

GOOD = """
[         3 tests successful      ]
[         0 tests failed          ]
"""
OUR_FRAME = "\tat com.corvane.kestrova.engine.tabulo.jni.JNITboLibLoader.initLibrary(Native Method)\n"


class JavaTestsTest(unittest.TestCase):
    def test_a_good_run_has_no_problem(self):
        self.assertEqual([], java_tests.problems(GOOD, 0))

    def test_a_failed_test_is_a_problem(self):
        output = GOOD.replace("0 tests failed", "2 tests failed")
        self.assertEqual(["The virtual machine ended with status 1.", "2 tests failed."], java_tests.problems(output, 1))

    def test_a_run_without_any_test_is_a_problem(self):
        output = GOOD.replace("3 tests", "0 tests")
        self.assertEqual(["No test ran to a good end."], java_tests.problems(output, 0))

    def test_a_run_that_exits_early_with_status_0_is_a_problem(self):
        self.assertEqual(["The run has no summary: it did not come to its end.", "No test ran to a good end."],
                         java_tests.problems("", 0))

    def test_a_crash_is_a_problem(self):
        self.assertIn("The virtual machine was ended by signal 6.", java_tests.problems("", -6))

    def test_every_kind_of_complaint_about_the_library_is_a_problem(self):
        for complaint in ("WARNING in native method: JNI call made without checking exceptions when required to from X",
                          "FATAL ERROR in native method: Using JNIEnv in the wrong thread",
                          "WARNING: JNI local refs: 33, exceeds capacity: 32",
                          "Warning: Calling other JNI functions in the scope of Get/ReleasePrimitiveArrayCritical"):
            self.assertEqual([f"-Xcheck:jni complains: {complaint} {OUR_FRAME.strip()}"],
                             java_tests.problems(f"half a line {complaint}\n{OUR_FRAME}{GOOD}".replace("half a line ", ""), 0))
            self.assertEqual(1, len(java_tests.problems(f"half a line {complaint}\n{OUR_FRAME}{GOOD}", 0)))

    def test_a_report_of_a_sanitizer_is_a_problem_wherever_it_stands(self):
        for report in ("ERROR: AddressSanitizer: heap-use-after-free on address 0x602000000010 at pc 0x7f00",
                       "runtime error: signed integer overflow: 2147483647 + 1 cannot be represented in type 'int'"):
            self.assertEqual([f"A sanitizer reports: {report}"],
                             java_tests.problems(f"==4711=={report}\n    #0 0x7f00 in f\n{GOOD}", 0))

    def test_the_environment_changes_only_where_libraries_are_preloaded(self):
        self.assertEqual({"PATH": "/bin"}, java_tests.environment([], "/s", {"PATH": "/bin"}))
        preloaded = java_tests.environment(["/lib/a.so", "/lib/b.so"], "/s", {"PATH": "/bin"})
        self.assertEqual("/lib/a.so:/lib/b.so", preloaded["LD_PRELOAD"])
        self.assertEqual("/bin", preloaded["PATH"])
        self.assertIn("handle_segv=0", preloaded["ASAN_OPTIONS"])
        self.assertIn(":suppressions=/s", preloaded["ASAN_OPTIONS"])

    def test_a_complaint_without_a_stack_counts(self):
        self.assertEqual(1, len(java_tests.problems(f"FATAL ERROR in native method: x\n{GOOD}", 0)))

    def test_a_complaint_about_the_loading_of_the_library_counts(self):
        frame = "\tat jdk.internal.loader.NativeLibraries.load(java.base@17.0.15/Native Method)\n"
        self.assertEqual(1, len(java_tests.problems(f"WARNING in native method: x\n{frame}{GOOD}", 0)))

    def test_a_complaint_about_the_virtual_machines_own_code_does_not_count(self):
        frame = "\tat java.io.FileOutputStream.writeBytes(java.base@17.0.15/Native Method)\n"
        self.assertEqual([], java_tests.problems(f"WARNING in native method: x\n{frame}{GOOD}", 0))


if __name__ == "__main__":
    unittest.main()
