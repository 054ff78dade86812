#!/usr/bin/env python3
"""zone_transitions, against zdump for every zone of the host, and fed with broken files.

usage: zone_transitions_test.py PROGRAM

What is compared. The program prints the transitions that a file holds explicitly, zdump the
changes of the C library's local time, found by probing. So:

- For each transition: the moment in UTC, the local time, offset, daylight flag and name behind it,
  and the same one second before it.
- zdump goes on with the rule for later years; what lies after a file's last explicit transition is
  left out. Before the first and between the explicit ones nothing may be left out on either side.
- In the zones that count leap seconds zdump shows each as a change, too: from 23:59:60 to the next
  second. They are compared with the days that the program lists.
- A transition after which offset, flag and name are what they were is no change of local time, and
  zdump cannot show it. The program marks it "(nothing changes)"; the mark is checked.
"""

import datetime
import os
import re
import subprocess
import sys
import tempfile
import unittest

PROGRAM = ""
ZONES = "/usr/share/zoneinfo"
BATCH = 100

MONTHS = {name: k + 1 for k, name in enumerate(
    "Jan Feb Mar Apr May Jun Jul Aug Sep Oct Nov Dec".split())}
ZDUMP = re.compile(r"\S+ +\w+ (\w+) +(\d+) (\d\d):(\d\d):(\d\d) (-?\d+) UT ="
                   r" \w+ (\w+) +(\d+) (\d\d):(\d\d):(\d\d) (-?\d+) (\S+)"
                   r" isdst=([01]) gmtoff=(-?\d+)")
PRINTED = re.compile(r"(\S+ \S+) +(\S+ \S+) +([+-])(\d\d):(\d\d):(\d\d)  (yes|no) +(\S+)"
                     r"(  \(nothing changes\))?")
BEFORE = re.compile(r"before +([+-])(\d\d):(\d\d):(\d\d)  (yes|no) +(\S+)")


def zones():
    """Names of all files of the tree that are zones, those of the same content together."""
    found = {}
    for folder, _, files in os.walk(ZONES):
        for name in files:
            path = os.path.join(folder, name)
            with open(path, "rb") as file:
                content = file.read()
            if content[:4] == b"TZif":
                found.setdefault(content, []).append(os.path.relpath(path, ZONES))
    return [sorted(names) for names in found.values()]


def run(*command):
    return subprocess.run(command, capture_output=True, text=True, check=False)


def offset(sign, hours, minutes, seconds):
    return int(sign + "1") * (int(hours) * 3600 + int(minutes) * 60 + int(seconds))


def output(names):
    """By zone: what the program prints, but for the title with the zone's name."""
    result = run(PROGRAM, *names)
    if result.returncode != 0 or result.stderr:
        raise AssertionError(result.stderr)
    texts = {}
    for text in re.split(r"\n(?=\S+: \d+ transitions)", "\n" + result.stdout):
        if text.strip():
            title, rest = text.split("\n", 1)
            texts[title.split(":")[0]] = title.split("(")[0].split(": ")[1] + "\n" + rest.strip()
    return texts


def rows_of(text):
    """The state before, a list of (utc, local, state, marked), state being (offset, daylight,
    name), and the days that end in a leap second."""
    head, table = text.split("\n\n")
    leaps = re.findall(r"\d{4}-\d\d-\d\d", head)
    before = None
    rows = []
    for line in table.splitlines()[1:]:
        if before is None:
            match = BEFORE.fullmatch(line)
            before = (offset(*match.groups()[:4]), match[5] == "yes", match[6])
        else:
            match = PRINTED.fullmatch(line)
            state = (offset(*match.groups()[2:6]), match[7] == "yes", match[8])
            rows.append((match[1], match[2], state, match[9] is not None))
    if len(rows) != int(head.split()[0]):
        raise AssertionError(f"{len(rows)} printed: {head}")
    return before, rows, leaps


def stamp(month, day, hour, minute, second, year):
    return f"{int(year):04d}-{MONTHS[month]:02d}-{int(day):02d} {hour}:{minute}:{second}"


def dumped(names, first, last):
    """By zone, zdump's lines as (utc, local, state)."""
    result = run("zdump", "-v", "-c", f"{first},{last}", *names)
    if result.returncode != 0:
        raise AssertionError(result.stderr)
    lines = {name: [] for name in names}
    for line in result.stdout.splitlines():
        name = line.split(maxsplit=1)[0]
        if line.endswith("= NULL"):  # the ends of 64 bits, which have no year
            continue
        match = ZDUMP.fullmatch(line)
        if not match:
            raise AssertionError(line)
        g = match.groups()
        lines[name].append((stamp(*g[0:6]), stamp(*g[6:12]), (int(g[14]), g[13] == "1", g[12])))
    return lines


def shifted(text, seconds):
    year, month, day, hour, minute, second = map(int, re.split("[- :]", text))
    moment = datetime.datetime(year, month, day, hour, minute, second)
    return (moment + datetime.timedelta(seconds=seconds)).isoformat(" ").rjust(19, "0")


class ZoneTransitions(unittest.TestCase):
    maxDiff = None

    def test_equal_zdump_for_every_zone(self):
        groups = zones()
        names = sum(map(len, groups))
        self.assertGreater(names, 300, "the host has no zones: install tzdata")
        compared = 0
        for start in range(0, len(groups), BATCH):
            batch = groups[start:start + BATCH]
            ours = {}
            for group in batch:
                texts = output(group)
                self.assertEqual(sorted(texts), group)
                self.assertEqual(len(set(texts.values())), 1, group)
                ours[group[0]] = rows_of(texts[group[0]])
            moments = [row[0] for _, rows, _ in ours.values() for row in rows]
            self.assertTrue(all(len(moment) == 19 for moment in moments), "years of 4 digits")
            years = [int(moment[:4]) for moment in moments] + [1970, 2025]
            theirs = dumped(list(ours), min(years) - 1, max(years) + 2)
            for name, (before, rows, leaps) in ours.items():
                expected = []
                for utc, local, state, marked in rows:
                    self.assertEqual(marked, state == before, f"{name} {utc}")
                    self.assertEqual(local, shifted(utc, state[0]), f"{name} {utc}")
                    if state != before:
                        eve = shifted(utc, -1)
                        expected.append((eve, shifted(eve, before[0]), before))
                        expected.append((utc, local, state))
                    before = state
                lines = theirs[name]
                leap = [k for k, line in enumerate(lines) if line[0].endswith(":60")]
                self.assertEqual([lines[k][0][:10] for k in leap], leaps, name)
                lines = [line for k, line in enumerate(lines)
                         if k not in leap and k - 1 not in leap]
                last = rows[-1][0] if rows else "9999"
                self.assertEqual(expected, [line for line in lines if line[0] <= last], name)
                compared += len(rows)
        print(f"{names} zones, {len(groups)} of different content, {compared} transitions",
              file=sys.stderr)
        self.assertGreater(compared, 10000)

    def test_prints_times_of_8_bytes_and_the_rule_of_later_years(self):
        result = run(PROGRAM, "Europe/Paris")
        self.assertEqual(result.returncode, 0)
        self.assertIn("1891-03-15 23:50:39   1891-03-16 00:00:00   +00:09:21  no        PMT\n",
                      result.stdout)
        self.assertIn("rule CET-1CEST,M3.5.0,M10.5.0/3\n", result.stdout)

    def test_reads_version_1_and_times_of_64_bits(self):
        head = b"TZif%s" + bytes(15)
        types = b"\x00\x00\x0e\x10\x00\x00" + b"\xff\xff\xf8\x30\x01\x04" + b"ABC\x00DEF\x00"
        counts = b"".join(n.to_bytes(4, "big") for n in (0, 0, 0, 2, 2, 8))
        one = (head % b"\x00") + counts + b"\xff\xff\xff\xff\x00\x00\x00\x01" + b"\x01\x00" + types
        self.assertEqual(self.feed(one), (0, [
            "before                                      +01:00:00  no        ABC",
            "1969-12-31 23:59:59   1969-12-31 23:26:39   -00:33:20  yes       DEF",
            "1970-01-01 00:00:01   1970-01-01 01:00:01   +01:00:00  no        ABC"]))
        times = (-2**59).to_bytes(8, "big", signed=True) + (2**40).to_bytes(8, "big")
        nothing = (head % b"2") + b"".join(n.to_bytes(4, "big") for n in (0, 0, 0, 0, 1, 1)) \
            + bytes(7)
        two = nothing + (head % b"2") + counts + times + b"\x01\x01" + types + b"\n<+00>0\n"
        self.assertEqual(self.feed(two), (0, [
            "before                                      +01:00:00  no        ABC",
            "-18267312070-10-26 17:01:52  -18267312070-10-26 16:28:32  -00:33:20  yes       DEF",
            "36812-02-20 00:36:16  36812-02-20 00:02:56  -00:33:20  yes       DEF"
            "  (nothing changes)"]))

    def feed(self, data):
        with tempfile.NamedTemporaryFile() as file:
            file.write(data)
            file.flush()
            result = run(PROGRAM, file.name)
            return result.returncode, result.stdout.split("\n\n")[-1].splitlines()[1:]

    def refused(self, data, text):
        with tempfile.NamedTemporaryFile() as file:
            file.write(data)
            file.flush()
            result = run(PROGRAM, file.name)
        self.assertEqual((result.returncode, result.stdout), (1, ""), text)
        self.assertRegex(result.stderr, r"\Azone_transitions: \S+: " + text + r"\n\Z")

    def test_refuses_a_file_that_is_cut_anywhere(self):
        with open(os.path.join(ZONES, "Asia/Tokyo"), "rb") as file:
            whole = file.read()
        for size in range(len(whole)):
            self.refused(whole[:size], "(ends .*|is not a zone-information file)")

    def test_refuses_nonsense(self):
        with open(os.path.join(ZONES, "Asia/Tokyo"), "rb") as file:
            whole = file.read()
        second = whole.index(b"TZif", 4)
        self.refused(b"", "ends within a header")
        self.refused(b"no zone" * 100, "is not a zone-information file")
        self.refused(b"TZif:" + whole[5:], "has an unknown version")
        at = second + 20
        for count, text in [(2, "ends before the data that its header announces"),
                            (3, "ends before the data that its header announces"),
                            (4, "ends before the data that its header announces")]:
            place = at + 4 * count
            self.refused(whole[:place] + b"\xff\xff\xff\xff" + whole[place + 4:], text)
        times = second + 44
        transitions = int.from_bytes(whole[at + 12:at + 16], "big")
        kinds = times + 8 * transitions
        self.refused(whole[:kinds] + b"\xfe" + whole[kinds + 1:],
                     "has a transition to a local time that it does not describe")
        self.refused(whole[:times] + b"\x7f" + whole[times + 1:],
                     "has transitions that are not in order")
        types = kinds + transitions
        self.refused(whole[:types] + b"\x7f" + whole[types + 1:], "has an impossible offset from UT")
        self.refused(whole[:types + 5] + b"\xfe" + whole[types + 6:],
                     "has a local time without a name")
        self.refused(whole.replace(b"JST\x00", b"J\x1bT\x00"), "has a name that cannot be printed")
        self.refused(whole.replace(b"\nJST-9", b"\n\x1b[2J-"), "has a footer that cannot be printed")

    def test_survives_every_byte_changed(self):
        with open(os.path.join(ZONES, "Asia/Tokyo"), "rb") as file:
            whole = file.read()
        with tempfile.NamedTemporaryFile() as file:
            for place in range(len(whole)):
                value = whole[place] ^ (0xFF if place % 2 else 0x80)
                file.seek(0)
                file.write(whole[:place] + bytes([value]) + whole[place + 1:])
                file.flush()
                self.assertIn(run(PROGRAM, file.name).returncode, (0, 1), f"byte {place}")

    def test_says_what_cannot_be_opened(self):
        result = run(PROGRAM, "Nowhere/None")
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stderr,
                         "/usr/share/zoneinfo/Nowhere/None: No such file or directory\n")
        self.assertEqual(run(PROGRAM).returncode, 2)
        result = run(PROGRAM, ".")
        self.assertEqual((result.returncode, result.stderr), (1, ".: Is a directory\n"))


if __name__ == "__main__":
    PROGRAM = sys.argv.pop(1)
    unittest.main()
