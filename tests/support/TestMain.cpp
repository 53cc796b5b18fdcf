#include <signal.h>

#include <gtest/gtest.h>

#include "tests/support/TestEnv.h"

int main(int argc, char** argv) {
    // A test that writes to a peer which has gone must see EPIPE, not die.
    signal(SIGPIPE, SIG_IGN);
    ::testing::InitGoogleTest(&argc, argv);
    lumacast::test::setUpTestEnvironment();
    return RUN_ALL_TESTS();
}
