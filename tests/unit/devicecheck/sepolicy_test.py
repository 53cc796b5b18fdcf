#!/usr/bin/env python3
"""scripts/check-sepolicy must refuse a policy that the platform build would refuse: a rule
that breaks one of the platform's neverallows, a file_contexts line whose type does not
exist, a property whose type is no property type. Each case runs the check on a copy of the
repository's policy with one fault put in."""

import os
import shutil
import subprocess
import sys
import tempfile
import unittest
from concurrent.futures import ThreadPoolExecutor

REPO = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", "..", ".."))
CHECK = os.path.join(REPO, "scripts", "check-sepolicy")
SKIPPED = 77


def run_check(faults):
    """Runs the check on a scratch repository whose sepolicy/ is ours plus the faults
    ({file name: text appended}); returns (exit status, output)."""
    root = tempfile.mkdtemp(prefix="sepolicy-")
    try:
        os.makedirs(os.path.join(root, "scripts"))
        shutil.copy2(CHECK, os.path.join(root, "scripts"))
        shutil.copytree(os.path.join(REPO, "sepolicy"), os.path.join(root, "sepolicy"))
        for name, text in faults.items():
            with open(os.path.join(root, "sepolicy", name), "a", encoding="utf-8") as fh:
                fh.write(text)
        env = dict(os.environ)
        # The platform policy is found as the check finds it for the repository itself.
        if "LUMACAST_SYSTEM_SEPOLICY" not in env:
            shared = os.path.join(os.path.dirname(REPO), "shared", "aosp-sepolicy-12")
            if os.path.isdir(shared):
                env["LUMACAST_SYSTEM_SEPOLICY"] = shared
        # One variant: what tells them apart is the platform's, not the check's.
        r = subprocess.run([sys.executable, os.path.join(root, "scripts", "check-sepolicy"),
                            "--variant", "userdebug"],
                           capture_output=True, text=True, timeout=600, env=env)
        return r.returncode, r.stdout + r.stderr
    finally:
        shutil.rmtree(root, ignore_errors=True)


def next_line(name):
    """The number of a line appended to one of our policy files."""
    with open(os.path.join(REPO, "sepolicy", name), encoding="utf-8") as fh:
        return len(fh.readlines()) + 1


class SepolicyCheckTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        # Both runs at once: each compiles the whole platform policy twice.
        with ThreadPoolExecutor(max_workers=2) as pool:
            neverallow = pool.submit(run_check, {
                "lumacastd.te": "allow lumacastd sysfs:file { open read };\n"})
            cls.fc_line = next_line("file_contexts")
            cls.pc_line = next_line("property_contexts")
            contexts = pool.submit(run_check, {
                "file_contexts": "/dev/lumacast_probe  u:object_r:no_such_type:s0\n",
                "property_contexts":
                    "kora.camera.probe  u:object_r:lumacast_service:s0 exact bool\n"})
            cls.neverallow = neverallow.result()
            cls.contexts = contexts.result()

    def test_platform_neverallow_is_enforced(self):
        code, out = self.neverallow
        if code == SKIPPED:
            self.skipTest(out)
        self.assertEqual(code, 1, out)
        self.assertIn("neverallow on line", out)
        self.assertIn("of private/coredomain.te", out)
        self.assertIn("violated by allow lumacastd sysfs:file", out)
        self.assertIn("FAIL userdebug: device policy", out)

    def test_contexts_name_types_of_the_right_kind(self):
        code, out = self.contexts
        if code == SKIPPED:
            self.skipTest(out)
        self.assertEqual(code, 1, out)
        self.assertIn("invalid context u:object_r:no_such_type:s0", out)  # setfiles -c
        self.assertIn(f"sepolicy/file_contexts:{self.fc_line}: type no_such_type is not defined",
                      out)
        self.assertIn(f"sepolicy/property_contexts:{self.pc_line}: type lumacast_service lacks "
                      "property_type", out)
        # The faults are all there is: the policy itself still compiles.
        self.assertIn("ok   userdebug: device policy", out)


if __name__ == "__main__":
    for tool in ("m4", "checkpolicy", "secilc", "setfiles", "seinfo"):
        if shutil.which(tool) is None:
            print(f"skipped: {tool} missing (scripts/deps device)")
            sys.exit(SKIPPED)
    result = unittest.main(verbosity=2, exit=False).result
    # No platform policy here: skipped as a whole, as the check itself is.
    if result.wasSuccessful() and len(result.skipped) == result.testsRun:
        sys.exit(SKIPPED)
    sys.exit(0 if result.wasSuccessful() else 1)
