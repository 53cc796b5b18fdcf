#include "tests/support/TestEnv.h"

#include <gtest/gtest.h>
#include <lumacast/host/PropertyStore.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace lumacast::test {

namespace {

std::string gTempDir;

pid_t gOwner = 0;

void cleanUp() {
    // Forked children exit through here too; only the creator removes the directory.
    std::error_code error;
    if (getpid() == gOwner && !gTempDir.empty()) std::filesystem::remove_all(gTempDir, error);
}

class PropertyResetter : public ::testing::EmptyTestEventListener {
    void OnTestStart(const ::testing::TestInfo&) override { clearProperties(); }
};

}  // namespace

void setUpTestEnvironment() {
    const char* base = getenv("TMPDIR");
    std::string templ = std::string(base && base[0] ? base : "/tmp") + "/lumacast-test-XXXXXX";
    if (mkdtemp(&templ[0]) == nullptr) {
        perror("mkdtemp");
        exit(1);
    }
    gTempDir = templ;
    gOwner = getpid();
    atexit(cleanUp);
    setenv("LUMACAST_PROPERTY_DIR", (gTempDir + "/properties").c_str(), 1);
    setenv("LUMACAST_BINDER_DIR", (gTempDir + "/binder").c_str(), 1);
    ::testing::UnitTest::GetInstance()->listeners().Append(new PropertyResetter);
}

const std::string& testTempDir() { return gTempDir; }

void clearProperties() {
    std::error_code error;
    for (const auto& e : std::filesystem::directory_iterator(host::propertyDir(), error)) {
        std::filesystem::remove(e.path(), error);
    }
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

std::string lastLines(const std::string& text, size_t lines) {
    size_t at = text.size();
    while (lines-- > 0 && at > 0) {
        const size_t nl = text.rfind('\n', at - 1);
        if (nl == std::string::npos) return text;
        at = nl;
    }
    return text.substr(at);
}

}  // namespace lumacast::test
