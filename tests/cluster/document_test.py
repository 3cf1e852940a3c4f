"""The program of docs/shipping.md reads what was shipped."""

import os
import re
import subprocess
import unittest

from shipping_test import ShippingTest, end_on_signals

DOCUMENT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "docs", "shipping.md")


class DocumentTest(ShippingTest):
    def run_command(self, *command):
        run = subprocess.run(command, cwd=self.folder, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=60,
                             check=False)
        self.assertEqual(run.returncode, 0, f"{command[0]}: {run.stdout}")
        return run.stdout

    def test_the_program_in_c_prints_the_orders_that_were_sent(self):
        with open(DOCUMENT, encoding="utf-8") as file:
            programs = re.findall(r"```c\n(.*?)```", file.read(), re.DOTALL)
        self.assertEqual(len(programs), 1)
        with open(self.path("orders.c"), "w", encoding="utf-8") as file:
            file.write(programs[0])
        self.run_command("gcc", "-std=c99", "-Wall", "-Werror", "orders.c", "-o", "orders", "-lnats")
        self.start_cluster(1)
        self.written(500)
        self.ended(self.ship("--once"))
        check = self.assert_stream_is_right()
        printed = self.run_command("./orders", self.cluster.url()).splitlines()
        shipped = [line for line in check.message_subjects if re.fullmatch(r"ENG1\.[^.]+\.APP_TO\.D", line)]
        self.assertTrue(shipped, "the writer has sent an order")
        self.assertEqual([line.split(" ")[0] for line in printed], shipped)
        for line in printed:
            self.assertRegex(line, r" \d+: \d+ bytes$")


if __name__ == "__main__":
    end_on_signals()
    unittest.main()
