#include <cutils/properties.h>
#include <lumacast/host/PropertyStore.h>

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

// One file per key in one directory: every process of a simulated device sees the same
// values, and writers replace files by rename so a reader never sees half a value.

namespace lumacast::host {

std::string propertyDir() {
    const char* dir = getenv("LUMACAST_PROPERTY_DIR");
    if (dir != nullptr && dir[0] != '\0') return dir;
    return "/tmp/lumacast-properties-" + std::to_string(getuid());
}

}  // namespace lumacast::host

namespace {

// Names as init accepts them; this also keeps every name a plain file name.
bool legalName(const char* name) {
    const size_t len = strlen(name);
    if (len == 0 || name[0] == '.' || name[len - 1] == '.') return false;
    for (size_t i = 0; i < len; ++i) {
        const char c = name[i];
        if (c == '.') {
            if (name[i - 1] == '.') return false;
            continue;
        }
        if (c == '_' || c == '-' || c == '@' || c == ':') continue;
        if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) continue;
        return false;
    }
    return true;
}

bool readValue(const char* key, std::string* out) {
    if (!legalName(key)) return false;
    const std::string path = lumacast::host::propertyDir() + "/" + key;
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    char buf[PROPERTY_VALUE_MAX * 4];
    size_t total = 0;
    while (total < sizeof(buf)) {
        const ssize_t n = read(fd, buf + total, sizeof(buf) - total);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        total += static_cast<size_t>(n);
    }
    close(fd);
    out->assign(buf, total);
    return true;
}

bool mkdirs(const std::string& dir) {
    std::string partial;
    size_t pos = 0;
    while (pos != std::string::npos) {
        pos = dir.find('/', pos + 1);
        partial = dir.substr(0, pos);
        if (partial.empty()) continue;
        if (mkdir(partial.c_str(), 0700) != 0 && errno != EEXIST) return false;
    }
    return true;
}

}  // namespace

extern "C" int property_get(const char* key, char* value, const char* default_value) {
    if (value == nullptr) return -1;
    std::string v;
    if (key == nullptr || !readValue(key, &v)) {
        v = default_value ? default_value : "";
    }
    const size_t n = v.size() < PROPERTY_VALUE_MAX - 1 ? v.size() : PROPERTY_VALUE_MAX - 1;
    memcpy(value, v.data(), n);
    value[n] = '\0';
    return static_cast<int>(n);
}

extern "C" int property_set(const char* key, const char* value) {
    if (key == nullptr || !legalName(key)) return -1;
    if (value == nullptr) value = "";
    const bool readOnly = strncmp(key, "ro.", 3) == 0;
    const size_t len = strlen(value);
    if (len >= PROPERTY_VALUE_MAX && !readOnly) return -1;
    if (memchr(value, '\n', len) != nullptr) return -1;
    const std::string dir = lumacast::host::propertyDir();
    if (!mkdirs(dir)) return -1;
    const std::string path = dir + "/" + key;
    if (readOnly && access(path.c_str(), F_OK) == 0) return -1;
    std::string tmp = dir + "/." + key + ".XXXXXX";
    const int fd = mkostemp(&tmp[0], O_CLOEXEC);
    if (fd < 0) return -1;
    size_t done = 0;
    bool ok = true;
    while (done < len) {
        const ssize_t n = write(fd, value + done, len - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            ok = false;
            break;
        }
        done += static_cast<size_t>(n);
    }
    ok = (close(fd) == 0) && ok;
    if (!ok || rename(tmp.c_str(), path.c_str()) != 0) {
        unlink(tmp.c_str());
        return -1;
    }
    return 0;
}

extern "C" int8_t property_get_bool(const char* key, int8_t default_value) {
    char buf[PROPERTY_VALUE_MAX];
    if (property_get(key, buf, "") <= 0) return default_value;
    if (!strcmp(buf, "1") || !strcmp(buf, "y") || !strcmp(buf, "yes") || !strcmp(buf, "on") ||
        !strcmp(buf, "true")) {
        return 1;
    }
    if (!strcmp(buf, "0") || !strcmp(buf, "n") || !strcmp(buf, "no") || !strcmp(buf, "off") ||
        !strcmp(buf, "false")) {
        return 0;
    }
    return default_value;
}

extern "C" int64_t property_get_int64(const char* key, int64_t default_value) {
    char buf[PROPERTY_VALUE_MAX];
    if (property_get(key, buf, "") <= 0) return default_value;
    char* end = nullptr;
    errno = 0;
    const long long v = strtoll(buf, &end, 0);
    if (errno != 0 || end == buf || *end != '\0') return default_value;
    return v;
}

extern "C" int32_t property_get_int32(const char* key, int32_t default_value) {
    const int64_t v = property_get_int64(key, default_value);
    return (v < INT32_MIN || v > INT32_MAX) ? default_value : static_cast<int32_t>(v);
}
