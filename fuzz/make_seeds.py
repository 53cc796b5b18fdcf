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
text_arg = text


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


def message(kind, dtype, blocks=(), text=b"", json_len=None, count=None):
    """One camera message: 24-byte header, blocks (param, payload), result text."""
    j = len(text) if json_len is None else json_len
    k = len(blocks) if count is None else count
    head = bytes([0xFF, 0x00, 0x01, kind]) + struct.pack(">H", dtype) + bytes(10)
    head += struct.pack(">II", j, k)
    body = b"".join(bytes(4) + struct.pack(">ii", p, len(d)) + d for p, d in blocks)
    return head + body + text


def stream_seeds():
    data, result = 0xA1, 0xA2
    ok = b'{"cmd_id":15,"param":1,"rval":0}'
    return {
        "seed-result": message(result, 0, text=ok),
        "seed-ai-json": message(data, 1, [(0, b'{"a":1}')]),
        "seed-protobuf": message(data, 2, [(0, bytes(range(40)))]),
        "seed-frame-two-blocks": message(data, 3, [(7, b"\x01" * 300), (9, b"\x02" * 1500)]),
        "seed-frames-then-result": message(result, 3, [(1, b"jpeg" * 64)], text=ok),
        "seed-unknown-type": message(data, 5, [(0, b"dropped")]),
        "seed-empty-block": message(data, 3, [(0, b"")]) + message(data, 1, [(0, b"x")]),
        "seed-short-then-whole": b"\xff\x00\x01" + message(result, 0, text=ok),
        "seed-foreign-kind": bytes([0xFF, 0, 1, 0xA3]) + bytes(20) + message(result, 0, text=ok),
        "seed-huge-lengths": message(result, 3, [(0, b"")], json_len=0xFFFFFFFF, count=0xFFFFFFFF),
        "seed-truncated-payload": message(data, 3, [(0, b"abc")])[:-2],
        "seed-text-cut": message(result, 0, text=ok)[:-10],
    }


def result_seeds():
    # kind, its cmd_id, argument text
    kinds = [(0, 14), (1, 15), (2, 16), (3, 1), (4, 2), (5, 1), (6, 2), (7, 3), (8, 4),
             (9, 12), (10, 13), (11, 14), (12, 15), (13, 5), (14, 6)]
    args = {5: '{"face":1}', 7: "1920x1080", 8: "[90,45]", 13: "face_detect=1", 14: "x"}
    seeds = {}
    for kind, cmd in kinds:
        text = ('{"cmd_id":%d,"param":1,"rval":0}' % cmd).encode()
        body = u32(kind) + u32(1) + u32(2) + text_arg(args.get(kind, ""))
        seeds["seed-kind%02d" % kind] = body + u32(len(text) - 1) + text
    long_text = ('{"cmd_id":15,"param":1,"rval":0,"zoom":"%s"}' % ("z" * 120)).encode()
    seeds["seed-long-text"] = u32(12) + u32(0) + u32(0) + text_arg("") + u32(len(long_text) - 1) + long_text
    seeds["seed-long-argument"] = u32(14) + u32(0) + u32(0) + text_arg("p" * 300) + u32(0) + b"{}"
    seeds["seed-short-read"] = u32(12) + u32(0) + u32(0) + text_arg("") + u32(9) + long_text
    return seeds


def uevent_seeds():
    return {
        "seed-plug": b"add@/devices/platform/usb/1-1/1-1:1.0/video4linux/video0\n"
                     b"add@/devices/platform/usb/1-1/1-1:1.2/net/usb0\n"
                     b"add@/devices/platform/usb/1-1/1-1:1.2/net/usb0/queues/tx-0",
        "seed-unplug": b"remove@/devices/platform/usb/1-1/1-1:1.2/net/usb0/queues/tx-0\n"
                       b"remove@/devices/platform/usb/1-1/1-1:1.2/net/usb0\n"
                       b"remove@/devices/platform/usb/1-1/1-1:1.0/video4linux/video0",
        "seed-odd-numbers": b"add@/x/video4linux/video12\nremove@/x/video4linux/video:\n"
                            b"change@/x/net/usb3\nremove@/x/video4linux/video",
    }


def product_seeds():
    line, as_file = b"\x00\x00", b"\x01\x00"
    uevent = b"DEVTYPE=usb_interface\nDRIVER=cdc_ncm\nPRODUCT=%s\nTYPE=239/2/1\n"
    return {
        "seed-line-keepalive": line + b"PRODUCT=2bc5/604/100\n",
        "seed-line-range": line + b"PRODUCT=416/5050/1\n",
        "seed-line-refused": line + b"PRODUCT=416/5051/1\n",
        "seed-line-unsplit": b"\x00\x01" + b"PRODUCT=2bc5\n",
        "seed-file-camera": as_file + uevent % b"1d6b/102/404",
        "seed-file-other": as_file + uevent % b"46d/825/10",
        "seed-file-long-line": as_file + b"X" * 300 + b"PRODUCT=2bc5/604/1\n" + uevent % b"416/5041/1",
    }


TARGETS = {
    "lumacast_transact": lumacast_seeds,
    "motor_transact": motor_seeds,
    "callback_reply": callback_seeds,
    "stream": stream_seeds,
    "result": result_seeds,
    "uevent": uevent_seeds,
    "product": product_seeds,
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
