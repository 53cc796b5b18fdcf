#include "tests/support/TestEnv.h"

#include <dirent.h>
#include <gtest/gtest.h>
#include <lumacast/host/PropertyStore.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

namespace lumacast::test {

namespace {

std::string gTempDir;

void removeTree(const std::string& path) {
    DIR* d = opendir(path.c_str());
    if (d != nullptr) {
        while (struct dirent* e = readdir(d)) {
            if (strcmp(e->d_name, ".") == 0 || strcmp(e->d_name, "..") == 0) continue;
            const std::string child = path + "/" + e->d_name;
            if (e->d_type == DT_DIR) {
                removeTree(child);
            } else {
                unlink(child.c_str());
            }
        }
        closedir(d);
    }
    rmdir(path.c_str());
}

pid_t gOwner = 0;

void cleanUp() {
    // Forked children exit through here too; only the creator removes the directory.
    if (getpid() == gOwner && !gTempDir.empty()) removeTree(gTempDir);
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
    const std::string dir = lumacast::host::propertyDir();
    DIR* d = opendir(dir.c_str());
    if (d == nullptr) return;
    while (struct dirent* e = readdir(d)) {
        if (e->d_name[0] == '.' && (e->d_name[1] == '\0' || strcmp(e->d_name, "..") == 0)) {
            continue;
        }
        unlink((dir + "/" + e->d_name).c_str());
    }
    closedir(d);
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
