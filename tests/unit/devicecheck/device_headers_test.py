#!/usr/bin/env python3
"""scripts/check-device-headers must pass code that the platform build accepts and name every
file that it would refuse: host-only headers and APIs, test helpers, glibc-only functions,
exceptions, RTTI, warnings, headers that do not stand alone, broken .aidl files, sources
that Android.bp leaves out."""

import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

REPO = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", "..", ".."))
CHECK = os.path.join(REPO, "scripts", "check-device-headers")

ANDROID_BP = """
cc_defaults {
    name: "lumacastd_defaults",
    // The check must keep -Werror whatever a module says.
    cflags: ["-Wno-error", "-DDO_NOT_CHECK_MANUAL_BINDER_INTERFACES"],
}
cc_library_static {
    name: "liblumacastd",
    defaults: ["lumacastd_defaults"],
    srcs: ["aidl/*.cpp", "util/**/*.cpp", "service/*.cpp"],
    exclude_srcs: ["service/main.cpp"],
}
cc_binary {
    name: "lumacastd",
    srcs: ["service/main.cpp"],
    static_libs: ["liblumacastd"],
}
cc_test {
    name: "lumacastd_unit_tests",
    srcs: ["tests/unit/dev/*.cpp"],
    static_libs: ["liblumacastd"],
}
"""

GOOD = {
    # A little of each platform API the daemon uses, as the platform declares it (the
    # check's run over the real tree compiles all the daemon uses).
    "service/main.cpp": """
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>

int main() {
    android::defaultServiceManager()->addService(android::String16("lumacastservice"), nullptr);
    android::ProcessState::self()->startThreadPool();
    return 0;
}
""",
    "util/Platform.h": """
#pragma once
int platform();
""",
    "util/Platform.cpp": """
#define LOG_TAG "lumacastservice"
#include "util/Platform.h"

#include <cutils/properties.h>
#include <hardware_legacy/uevent.h>
#include <linux/i2c-dev.h>
#include <log/log.h>

int platform() {
    char value[PROPERTY_VALUE_MAX] = {};
    property_get("sys.kora.usb.status", value, "0");
    __android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, "%d %lx", uevent_init(), I2C_RDWR + 0ul);
    return value[0];
}
""",
    # A hand-written interface, the way the daemon's are written: it needs the module's
    # cflags, and Android 12 API that Debian's Android 10 headers lack.
    "aidl/ISample.h": """
#pragma once
#include <binder/IInterface.h>
#include <binder/Parcel.h>
namespace kora {
namespace lumacast {
class ISample : public android::IInterface {
public:
    DECLARE_META_INTERFACE(Sample)
    virtual int32_t ping() = 0;
};
class BpSample : public android::BpInterface<ISample> {
public:
    explicit BpSample(const android::sp<android::IBinder>& impl)
        : android::BpInterface<ISample>(impl) {}
    int32_t ping() override {
        android::Parcel data, reply;
        data.markForBinder(remoteStrong());
        remote()->transact(android::IBinder::FIRST_CALL_TRANSACTION, data, &reply);
        return reply.readInt32();
    }
};
}  // namespace lumacast
}  // namespace kora
""",
    "aidl/ISample.cpp": """
#include "aidl/ISample.h"
namespace kora {
namespace lumacast {
IMPLEMENT_META_INTERFACE(Sample, "kora.lumacast.ISample")
}  // namespace lumacast
}  // namespace kora
""",
    "aidl/kora/lumacast/ISampleCallback.aidl": """
package kora.lumacast;
oneway interface ISampleCallback {
    void onFrame(in byte[] data, int len);
}
""",
    "aidl/kora/lumacast/ISampleService.aidl": """
package kora.lumacast;
import kora.lumacast.ISampleCallback;
interface ISampleService {
    boolean setCallback(ISampleCallback cb);
    @utf8InCpp String getVersion();
}
""",
    # Built by Android.bp (util/**), nothing wrong with it.
    "util/deep/Deep.cpp": "int deep() { return 1; }\n",
    "tests/unit/dev/GoodTest.cpp": """
#include <gtest/gtest.h>
#include <net/if.h>
TEST(DeviceAbi, IfreqHoldsAName) { EXPECT_GE(sizeof(ifreq), static_cast<size_t>(IFNAMSIZ)); }
""",
}

BAD = {
    "util/HostHeader.cpp": "#include <lumacast/host/LogCapture.h>\n",
    # The host's String16 has more than the platform's.
    "util/HostMethod.cpp": """
#include <utils/String16.h>
size_t units(const android::String16& s) { return s.u16().size(); }
""",
    "util/TestHelper.cpp": '#include "tests/support/TestEnv.h"\n',
    "util/Cancel.cpp": """
#include <pthread.h>
void stop(pthread_t t) { pthread_cancel(t); }
""",
    "util/Backtrace.cpp": "#include <execinfo.h>\n",
    "util/Throw.cpp": "int fail(int v) { if (v) throw v; return 0; }\n",
    "util/Rtti.cpp": """
struct Base { virtual ~Base() = default; };
struct Derived : Base {};
bool isDerived(Base* b) { return dynamic_cast<Derived*>(b) != nullptr; }
""",
    "util/Unused.cpp": "int unused() { int never = 0; return 1; }\n",
    "util/NotAlone.h": "#pragma once\ninline std::string name() { return \"x\"; }\n",
    "aidl/kora/lumacast/IBroken.aidl": "package kora.lumacast;\ninterface IBroken { void f(; }\n",
    "tests/unit/dev/HostTest.cpp": '#include "tests/support/TestEnv.h"\n',
    # Compiles, but no module of Android.bp builds it.
    "motor/lowlevel/Orphan.cpp": "int orphan() { return 2; }\n",
}


def write_tree(root, files):
    for path, text in files.items():
        full = os.path.join(root, path)
        os.makedirs(os.path.dirname(full), exist_ok=True)
        with open(full, "w", encoding="utf-8") as fh:
            fh.write(text.lstrip("\n"))


def run_check(root, *files):
    r = subprocess.run([sys.executable, CHECK, "--root", root, *files],
                       capture_output=True, text=True, timeout=600)
    failed = re.findall(r"^FAIL (\S+)$", r.stdout, re.M)
    return r.returncode, failed, r.stdout + r.stderr


class DeviceHeaderCheckTest(unittest.TestCase):
    def setUp(self):
        self.root = tempfile.mkdtemp(prefix="devicecheck-")
        self.addCleanup(shutil.rmtree, self.root, ignore_errors=True)
        write_tree(self.root, {"Android.bp": ANDROID_BP})
        # Present in the tree, out of the product's reach all the same.
        write_tree(self.root, {"tests/support/TestEnv.h": "#pragma once\n",
                               "platform/host/include/lumacast/host/LogCapture.h":
                                   "#pragma once\n"})

    def test_platform_code_passes(self):
        write_tree(self.root, GOOD)
        code, failed, out = run_check(self.root)
        self.assertEqual((code, failed), (0, []), out)
        # Every unit was compiled: product files, the device test, two generated interfaces.
        m = re.search(r"(\d+) units checked .*\((\d+) product files, (\d+) device test sources, "
                      r"(\d+) aidl units\), 0 failed", out)
        self.assertIsNotNone(m, out)
        product = [f for f in GOOD if f.split("/")[0] != "tests" and f.endswith((".cpp", ".h"))]
        aidl = [f for f in GOOD if f.endswith(".aidl")]
        self.assertEqual(tuple(int(g) for g in m.groups()),
                         (len(product) + 1 + len(aidl), len(product), 1, len(aidl)), out)

    def test_every_refused_file_is_named(self):
        write_tree(self.root, GOOD)
        write_tree(self.root, BAD)
        code, failed, out = run_check(self.root)
        expected = {f for f in BAD if f != "motor/lowlevel/Orphan.cpp"} | {"Android.bp"}
        self.assertEqual((code, set(failed)), (1, expected), out)
        self.assertRegex(out, r"lumacastd does not compile: motor/lowlevel/Orphan\.cpp")
        # The reason travels with the name.
        self.assertIn("'lumacast/host/LogCapture.h' file not found", out)
        self.assertIn("'pthread_cancel' is unavailable", out)
        # Named files: only those are looked at.
        code, failed, out = run_check(self.root, "util/Platform.cpp", "util/Cancel.cpp")
        self.assertEqual((code, failed), (1, ["util/Cancel.cpp"]), out)

    def test_broken_blueprint_fails(self):
        # A comma missing between two properties of the daemon's module.
        broken = ANDROID_BP.replace('name: "lumacastd",', 'name: "lumacastd"')
        cases = [
            ("no cc_binary named lumacastd",
             {"Android.bp": "cc_defaults { name: \"lumacastd_defaults\" }\n",
              "util/Ok.cpp": "int ok() { return 0; }\n"}),
            ("parsing error", dict(GOOD, **{"Android.bp": broken})),
        ]
        for reason, tree in cases:
            with self.subTest(reason):
                write_tree(self.root, tree)
                code, failed, out = run_check(self.root)
                self.assertEqual((code, failed), (1, ["Android.bp"]), out)
                self.assertIn(reason, out)


if __name__ == "__main__":
    for need in ("/usr/include/android/binder", shutil.which("clang++"), shutil.which("aidl"),
                 shutil.which("bpfmt")):
        if not need or not os.path.exists(need):
            print("skipped: needs the device packages (scripts/deps device)")
            sys.exit(77)
    unittest.main(verbosity=2)
