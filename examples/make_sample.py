#!/usr/bin/env python3
"""make_sample.py FILE: writes a big-endian sample for decode_sample, with Python's struct alone.

A station's record: a header, then one series after the other.

  header   "SAMP", 2-byte version 1, 2-byte count of series
  series   20-byte name and 12-byte unit, padded with zeros; 1-byte kind; 3 bytes of zero;
           4-byte count; then that many elements of the kind:
           s  2-byte integers   t  3-byte integers   f  4-byte floats   d  8-byte doubles
"""

import math
import struct
import sys


def three(value):
    return struct.pack(">i", value)[1:]


PACK = {
    "s": lambda value: struct.pack(">h", value),
    "t": three,
    "f": lambda value: struct.pack(">f", value),
    "d": lambda value: struct.pack(">d", value),
}

HOURS = 240

SERIES = [
    # Tenths of a degree, a day's wave: all fit.
    ("air temperature", "0.1 degC", "s",
     [105 + round(62 * math.sin(2 * math.pi * k / 24)) for k in range(HOURS)]),
    # A seismometer's counts, up to both ends of 24 bits.
    ("ground motion", "counts", "t",
     [round(4000 * math.sin(k / 3)) for k in range(HOURS - 3)] + [8388607, -8388608, -2]),
    # Whole litres, but the gauge stood half full three times and was broken once.
    ("rain gauge", "litre", "f",
     [float(k % 7) if k not in (17, 101, 163) else k % 7 + 0.5 for k in range(HOURS - 1)]
     + [math.nan]),
    # Quarter metres are floats exactly; two readings are finer than that, one larger than a float.
    ("water level", "metre", "d",
     [3.25 + k % 8 / 4 if k not in (5, 77) else 3.1 + k / 1000 for k in range(HOURS - 1)]
     + [1e39]),
]


def main():
    if len(sys.argv) != 2:
        sys.exit("usage: make_sample.py FILE")
    out = struct.pack(">4sHH", b"SAMP", 1, len(SERIES))
    for name, unit, kind, values in SERIES:
        out += struct.pack(">20s12sc3xI", name.encode(), unit.encode(), kind.encode(), len(values))
        out += b"".join(PACK[kind](value) for value in values)
    with open(sys.argv[1], "wb") as file:
        file.write(out)


if __name__ == "__main__":
    main()
