#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include <gtest/gtest.h>

#include "tests/support/Namespace.h"
#include "tests/support/TestEnv.h"

// Test programs that build a fake device run whole inside a private user + mount +
// network namespace; nothing they do reaches the host.
int main(int argc, char** argv) {
    signal(SIGPIPE, SIG_IGN);
    ::testing::InitGoogleTest(&argc, argv);
    if (!lumacast::test::inTestNamespace()) {
        std::string why;
        if (lumacast::test::enterUserMountNetNamespace(&why) !=
            lumacast::test::NamespaceResult::kEntered) {
            const char* require = getenv("LUMACAST_REQUIRE_NAMESPACES");
            if (require != nullptr && strcmp(require, "1") == 0) {
                fprintf(stderr, "namespaces refused (%s) but LUMACAST_REQUIRE_NAMESPACES=1\n",
                        why.c_str());
                return 1;
            }
            printf("skipped: needs namespaces (%s)\n", why.c_str());
            return lumacast::test::kSkipExitCode;
        }
    }
    lumacast::test::setInterfaceUp("lo");
    lumacast::test::setUpTestEnvironment();
    return RUN_ALL_TESTS();
}
