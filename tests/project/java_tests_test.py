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
