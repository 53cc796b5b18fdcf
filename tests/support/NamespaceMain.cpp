#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "tests/support/Namespace.h"
#include "tests/support/TestEnv.h"

// Test programs that build a fake device run whole inside a private user + mount +
// network namespace; nothing they do reaches the host.
int main(int argc, char** argv) {
    signal(SIGPIPE, SIG_IGN);
    ::testing::InitGoogleTest(&argc, argv);
    lumacast::test::enterNamespaceOrExit();
    lumacast::test::setUpTestEnvironment();
    return RUN_ALL_TESTS();
}
