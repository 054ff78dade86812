#!/usr/bin/env python3
"""decode_sample over the file that make_sample.py makes, values written out, and over broken ones.

usage: decode_sample_test.py PROGRAM EXAMPLES
"""

import os
import struct
import subprocess
import sys
import tempfile
import unittest

PROGRAM = EXAMPLES = ""

EXPECTED = """\
{path}: 4248 bytes, 4 series, big-endian
air temperature: 240 2-byte integers, read as int
    least 43, most 167, total 25200, mean 105 0.1 degC
    all exact
ground motion: 240 3-byte integers, read as int
    least -8388608, most 8388607, total 23423, mean 97.5958 counts
    all exact
rain gauge: 240 floats, read as int
    element 17: 3.5 became 3
    element 101: 3.5 became 3
    element 163: 2.5 became 2
    element 239: nan became -2147483648
    4 of 240 not exact; the other 236:
    least 0, most 6, total 706, mean 2.99153 litre
water level: 240 doubles, read as float
    element 5: 3.105 became 3.10500002
    element 77: 3.177 became 3.17700005
    element 239: 9.9999999999999994e+38 became inf
    3 of 240 not exact; the other 237:
    least 3.25, most 5, total 976, mean 4.11814 metre
"""


def run(*command):
    return subprocess.run(command, capture_output=True, text=True, check=False)


def series(kind, count, data, name=b"name", unit=b"unit"):
    return struct.pack(">20s12sc3xI", name, unit, kind, count) + data


def header(count, version=1):
    return struct.pack(">4sHH", b"SAMP", version, count)


class DecodeSample(unittest.TestCase):
    maxDiff = None

    def sample(self):
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "sample.bin")
            subprocess.run([sys.executable, os.path.join(EXAMPLES, "make_sample.py"), path],
                           check=True)
            with open(path, "rb") as file:
                return file.read()

    def feed(self, data):
        with tempfile.NamedTemporaryFile() as file:
            file.write(data)
            file.flush()
            result = run(PROGRAM, file.name)
            return file.name, result

    def test_reports_what_the_sample_holds(self):
        path, result = self.feed(self.sample())
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertEqual(result.stdout, EXPECTED.format(path=path))

    def test_the_totals_are_those_of_the_values(self):
        # Said again from what the sample is made of.
        sys.path.insert(0, EXAMPLES)
        sys.dont_write_bytecode = True
        import make_sample
        for (name, _, kind, values), total in zip(make_sample.SERIES, (25200, 23423, 706, 976)):
            if kind == "f":
                values = [value for value in values if value == value and value == int(value)]
            if kind == "d":
                values = [value for value in values if value * 4 == int(value * 4) and value < 10]
            self.assertEqual(sum(values), total, name)

    def test_lists_ten_inexact_elements_and_counts_the_others(self):
        values = struct.pack(">12f", *[k + 0.5 for k in range(12)])
        _, result = self.feed(header(1) + series(b"f", 12, values))
        self.assertEqual(result.stdout.splitlines()[2:],
                         [f"    element {k}: {k}.5 became {k}" for k in range(10)] +
                         ["    and 2 more", "    12 of 12 not exact; the other 0:"])

    def test_takes_no_series_and_an_empty_one(self):
        path, result = self.feed(header(0))
        self.assertEqual((result.returncode, result.stdout),
                         (0, f"{path}: 8 bytes, 0 series, big-endian\n"))
        _, result = self.feed(header(1) + series(b"s", 0, b""))
        self.assertEqual(result.returncode, 0)
        self.assertEqual(result.stdout.splitlines()[1:],
                         ["name: 0 2-byte integers, read as int", "    all exact"])

    def refused(self, data, text):
        path, result = self.feed(data)
        self.assertEqual((result.returncode, result.stderr),
                         (1, f"decode_sample: {path}: {text}\n"))

    def test_refuses_a_file_that_is_cut_anywhere(self):
        sample = self.sample()
        for size in list(range(0, 60)) + list(range(60, len(sample), 37)):
            _, result = self.feed(sample[:size])
            self.assertEqual(result.returncode, 1, size)
            self.assertIn("ends ", result.stderr, size)

    def test_refuses_nonsense(self):
        self.refused(b"", "ends within its header")
        self.refused(b"SAMP", "ends within its header")
        self.refused(b"nonsense", "is not a sample file")
        self.refused(header(0, version=2), "has an unknown version")
        self.refused(header(1), "ends within the head of a series")
        self.refused(header(1) + series(b"x", 0, b""), "has a series of an unknown kind")
        self.refused(header(1) + series(b"s", 0xFFFFFFFF, b"\0" * 8),
                     "ends before the elements that it announces")
        self.refused(header(1) + series(b"d", 0x20000001, b"\0" * 8),
                     "ends before the elements that it announces")
        self.refused(header(1) + series(b"s", 1, b"\0\0", name=b"\x1b[2J"),
                     "has a series with a name or unit that cannot be printed")
        self.refused(header(1) + series(b"s", 1, b"\0\0") + b"more",
                     "goes on behind its last series")

    def test_says_what_cannot_be_opened(self):
        result = run(PROGRAM, "/nowhere")
        self.assertEqual((result.returncode, result.stderr),
                         (1, "/nowhere: No such file or directory\n"))
        self.assertEqual(run(PROGRAM).returncode, 2)


if __name__ == "__main__":
    PROGRAM, EXAMPLES = sys.argv[1:3]
    del sys.argv[1:3]
    unittest.main()
