// lumacast-scenario: plays scenario files on the fake TV (lumacastd, camsim, devsim) and
// stops each at its first line that does not do what it says. Run it through
// scripts/scenario, or let it make its own user, mount and network namespaces: it never
// touches the host's network.

#include <errno.h>
#include <ftw.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

#include "tests/support/Namespace.h"
#include "tools/demo/FakeTv.h"
#include "tools/scenario/Scenario.h"
#include "tools/scenario/ScenarioRunner.h"

using lumacast::scenario::Scenario;
using lumacast::scenario::ScenarioRunner;

namespace {

void usage(FILE* out) {
    fprintf(out,
            "usage: lumacast-scenario [--keep|--discard] FILE...\n"
            "  Plays each scenario on a fresh fake TV in namespaces of its own and stops it at\n"
            "  the first line that fails, naming the line, what was expected and what was seen.\n"
            "  --keep     keep each TV's work folder (logs, sockets) even when it passed\n"
            "  --discard  remove it even when the scenario failed\n"
            "The language: tools/scenario/README.md.\n"
            "Exit status: 0 all passed, 1 a scenario failed, 2 usage or a file that does not\n"
            "parse, 77 namespaces refused here.\n");
}

int removeEntry(const char* path, const struct stat*, int, struct FTW*) {
    remove(path);
    return 0;
}

// Runs in a child of its own: the fake TV mounts, makes interfaces and starts binder
// threads that must not outlive one scenario.
enum class Keep { kOnFailure, kAlways, kNever };

int play(const Scenario& scenario, Keep keep) {
    std::string why;
    if (!lumacast::test::enterFreshNetAndMountNamespaces(&why)) {
        fprintf(stderr, "lumacast-scenario: namespaces: %s\n", why.c_str());
        return 1;
    }
    // lumacastd's log goes to its file; this program's own chatter stays out.
    setenv("LUMACAST_LOG_QUIET", "1", 1);
    char dirTemplate[] = "/tmp/lumacast-scenario-XXXXXX";
    if (mkdtemp(dirTemplate) == nullptr) {
        perror("lumacast-scenario: mkdtemp");
        return 1;
    }
    const std::string dir = dirTemplate;
    bool ok = false;
    {
        lumacast::demo::FakeTv tv(dir);
        if (!tv.setUp(&why)) {
            why = "fake TV: " + why;
        } else {
            // The motor board's GPIO lines idle high.
            for (int gpio : {146, 147, 150, 151, 152}) tv.device().writeGpio(gpio, "1");
            ScenarioRunner runner(&tv, &scenario, stdout);
            ok = runner.run(&why);
        }
        if (!ok) {
            const std::string log = tv.daemonLog();
            printf("\nFAILED %s\n\nlumacastd's log ends:\n%s\n", why.c_str(),
                   log.substr(log.size() > 3000 ? log.size() - 3000 : 0).c_str());
        }
        tv.tearDown();
    }
    if (keep == Keep::kAlways || (!ok && keep == Keep::kOnFailure)) {
        printf("files kept in %s\n", dir.c_str());
    } else {
        nftw(dir.c_str(), removeEntry, 16, FTW_DEPTH | FTW_PHYS);
    }
    return ok ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    setvbuf(stdout, nullptr, _IOLBF, 0);
    Keep keep = Keep::kOnFailure;
    std::vector<Scenario> scenarios;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "-h" || a == "--help") {
            usage(stdout);
            return 0;
        }
        if (a == "--keep" || a == "--discard") {
            keep = a == "--keep" ? Keep::kAlways : Keep::kNever;
            continue;
        }
        if (a[0] == '-') {
            fprintf(stderr, "lumacast-scenario: unknown option '%s'\n", a.c_str());
            usage(stderr);
            return 2;
        }
        Scenario s;
        std::string why;
        if (!Scenario::load(a, &s, &why) || !ScenarioRunner::check(s, &why)) {
            fprintf(stderr, "lumacast-scenario: %s\n", why.c_str());
            return 2;
        }
        scenarios.push_back(std::move(s));
    }
    if (scenarios.empty()) {
        usage(stderr);
        return 2;
    }
    // Before any thread exists (a sanitizer's too): the kernel makes user namespaces only
    // for single-threaded processes. Each scenario then gets fresh ones inside this.
    lumacast::test::enterNamespaceOrExit();
    int failed = 0;
    for (const Scenario& s : scenarios) {
        printf("==> %s\n", s.path().c_str());
        const auto start = std::chrono::steady_clock::now();
        fflush(nullptr);
        const pid_t pid = fork();
        if (pid < 0) {
            perror("lumacast-scenario: fork");
            return 1;
        }
        if (pid == 0) {
            int rc = play(s, keep);
#if defined(__SANITIZE_ADDRESS__)
            // _exit skips the leak check that a normal exit would run.
            if (__lsan_do_recoverable_leak_check() != 0) rc = 1;
#endif
            fflush(nullptr);
            _exit(rc);
        }
        int status = 0;
        while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
        const double secs =
                std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        const int rc = WIFEXITED(status) ? WEXITSTATUS(status) : 1;
        if (rc != 0) {
            ++failed;
            printf("<== %s: FAILED (%.1f s)\n", s.path().c_str(), secs);
        } else {
            printf("<== %s: passed (%.1f s)\n", s.path().c_str(), secs);
        }
    }
    return failed > 0 ? 1 : 0;
}
