#pragma once

#include <string>

namespace lumacast::test {

// Gives this test program a private property store (LUMACAST_PROPERTY_DIR) and binder
// directory (LUMACAST_BINDER_DIR) under a fresh temporary directory, removed at exit,
// and registers a listener that empties the property store before every test.
// Called by both test mains before anything else runs.
void setUpTestEnvironment();

// The temporary directory of this test program.
const std::string& testTempDir();

// Deletes every property of the store.
void clearProperties();

// The whole content of a file, byte for byte; "" when it cannot be read.
std::string readFile(const std::string& path);

// The last `lines` lines of a text (all of it when it has fewer), for failure messages.
std::string lastLines(const std::string& text, size_t lines);

}  // namespace lumacast::test
