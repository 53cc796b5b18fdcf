#!/usr/bin/env python3
"""Writes the seed inputs of the fuzz targets into corpus/<target>/seed-*.

The binder targets read their input through FuzzInput (support/FuzzInput.h): below(n)
and u32() take four big-endian bytes, flag() and byte() one, text(max) and run(max) a
two-byte big-endian length and then the bytes. The seeds spell out well-formed calls of
every code in that encoding; the other targets take raw bytes. Run it after changing how
a target reads its input; files not named seed-* (regressions) are left alone.
"""
import os
import struct
import sys

HERE = os.path.dirname(os.path.abspath(__file__))


def u32(v):
    return struct.pack(">I", v & 0xFFFFFFFF)


def flag(v):
    return bytes([1 if v else 0])


def text(s):
    b = s.encode() if isinstance(s, str) else s
    return struct.pack(">H", len(b)) + b


# Items of ParcelFuzz.h's writeItem.
def item_int(v):
    return u32(0) + u32(v)


def item_bool(v):
    return u32(1) + u32(1 if v else 0)


def item_string(s):
    return u32(2) + text(s)


def item_null_string():
    return u32(4)


def item_binder(index):
    return u32(6) + u32(index)


def item_vector(b):
    return u32(8) + text(b)


def plan_ok(value=1, string="result"):
    # ServiceDouble::plan: status ok, bool, int, echo, string
    return u32(4) + flag(True) + u32(value) + flag(False) + text(string)


def request(code, items):
    # code from the first choice (below(n)), the unused random code, choice 0, two-way,
    # right token, items
    return u32(code) + u32(0) + u32(0) + flag(False) + u32(4) + b"".join(items)


def lumacast_seeds():
    listener = 1  # Listener in the fuzzer's binder table
    calls = {
        1: [item_binder(listener)],
        2: [item_binder(listener)],
        3: [item_bool(True)],
        4: [],
        5: [],
        6: [item_int(3)],
        7: [],
        8: [item_string("face_detect=1")],
        9: [item_string("x")],
        10: [item_int(2), item_string('{"face":1}')],
        11: [],
        12: [item_int(1), item_string("1920x1080")],
        13: [item_string("[90,45]")],
        14: [item_int(1)],
        15: [],
        16: [item_int(2), item_int(1)],
        17: [],
    }
    seeds = {}
    for code, items in calls.items():
        # plan, then callListener
        seeds["seed-code%02d" % code] = plan_ok() + flag(code == 1) + request(code, items)
    seeds["seed-null-callback"] = plan_ok() + flag(False) + request(1, [item_binder(0)])
    seeds["seed-null-string"] = plan_ok() + flag(False) + request(8, [item_null_string()])
    return seeds


def motor_seeds():
    calls = {
        1: [item_string("MT9652-CEDAR")],
        2: [], 3: [], 4: [], 5: [], 6: [], 7: [],
        8: [item_bool(True)],
        9: [], 10: [],
        11: [item_string("/data/mcu.bin")],
    }
    return {"seed-code%02d" % c: plan_ok() + request(c, items) for c, items in calls.items()}


def callback_seeds():
    seeds = {}
    for call in range(3):
        # call, text, bytes, count, param, then the listener: reply kind (status word),
        # exception choice EX_NONE, no items, result OK
        body = u32(call) + text('{"faces":[1,2]}') + text(bytes(range(16))) + u32(2) + u32(7)
        ok_reply = u32(2) + u32(0) + u32(0) + u32(0)
        seeds["seed-call%d-ok" % call] = body + ok_reply
        seeds["seed-call%d-unknown" % call] = body + ok_reply[:-4] + u32(3)
        seeds["seed-call%d-exception" % call] = (
            body + u32(2) + u32(4) + u32(1) + u32(2) + text("bad listener") + u32(0))
    return seeds


TARGETS = {
    "lumacast_transact": lumacast_seeds,
    "motor_transact": motor_seeds,
    "callback_reply": callback_seeds,
}


def main():
    for target, make in TARGETS.items():
        folder = os.path.join(HERE, "corpus", target)
        os.makedirs(folder, exist_ok=True)
        for name in os.listdir(folder):
            if name.startswith("seed-"):
                os.remove(os.path.join(folder, name))
        for name, data in make().items():
            with open(os.path.join(folder, name), "wb") as f:
                f.write(data)
    return 0


if __name__ == "__main__":
    sys.exit(main())
