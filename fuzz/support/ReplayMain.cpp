// Runs a fuzz target over checked-in inputs without libFuzzer, so that the seed corpus and
// every input that once broke something replay in the ordinary test builds (gcc, ASan,
// TSan). Arguments are files or folders of files.
//
// As libFuzzer would, it fails an input that runs too long or grows the process too far,
// so that an input once found to exhaust memory fails here instead of taking the machine
// down with it.
#include <dirent.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <fstream>
#include <iterator>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {

constexpr long kRssLimitMb = 2048;
constexpr auto kInputTimeout = std::chrono::seconds(60);

long rssMb() {
    FILE* f = fopen("/proc/self/statm", "r");
    if (f == nullptr) return 0;
    long pages = 0;
    long resident = 0;
    const int n = fscanf(f, "%ld %ld", &pages, &resident);
    fclose(f);
    return n == 2 ? resident * sysconf(_SC_PAGESIZE) / (1024 * 1024) : 0;
}

// Watches the input being replayed; aborts with its name when it breaks a limit.
class Watchdog {
  public:
    Watchdog() : mThread([this] { run(); }) {}
    ~Watchdog() {
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mDone = true;
        }
        mCond.notify_all();
        mThread.join();
    }
    void begin(const std::string& file) {
        std::lock_guard<std::mutex> lock(mMutex);
        mFile = file;
        mStart = std::chrono::steady_clock::now();
    }

  private:
    void run() {
        std::unique_lock<std::mutex> lock(mMutex);
        while (!mCond.wait_for(lock, std::chrono::milliseconds(100), [this] { return mDone; })) {
            const long rss = rssMb();
            if (rss > kRssLimitMb) fail("uses " + std::to_string(rss) + " MB");
            if (!mFile.empty() && std::chrono::steady_clock::now() - mStart > kInputTimeout) {
                fail("runs longer than " + std::to_string(kInputTimeout.count()) + " s");
            }
        }
    }
    void fail(const std::string& why) {
        fprintf(stderr, "replay: %s %s\n", mFile.c_str(), why.c_str());
        abort();
    }

    std::mutex mMutex;
    std::condition_variable mCond;
    bool mDone = false;
    std::string mFile;
    std::chrono::steady_clock::time_point mStart;
    std::thread mThread;
};

void collect(const std::string& path, std::vector<std::string>* files) {
    struct stat st;
    if (stat(path.c_str(), &st) != 0) {
        fprintf(stderr, "replay: cannot read %s\n", path.c_str());
        exit(2);
    }
    if (!S_ISDIR(st.st_mode)) {
        files->push_back(path);
        return;
    }
    DIR* dir = opendir(path.c_str());
    if (dir == nullptr) {
        fprintf(stderr, "replay: cannot open %s\n", path.c_str());
        exit(2);
    }
    std::vector<std::string> names;
    while (dirent* e = readdir(dir)) {
        if (e->d_name[0] != '.') names.push_back(path + "/" + e->d_name);
    }
    closedir(dir);
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) collect(name, files);
}

}  // namespace

int main(int argc, char** argv) {
    if (LLVMFuzzerInitialize != nullptr) LLVMFuzzerInitialize(&argc, &argv);
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i) collect(argv[i], &files);
    if (files.empty()) {
        fprintf(stderr, "replay: no inputs\n");
        return 2;
    }
    Watchdog watchdog;
    for (const std::string& file : files) {
        watchdog.begin(file);
        std::ifstream in(file, std::ios::binary);
        std::vector<char> bytes((std::istreambuf_iterator<char>(in)),
                                std::istreambuf_iterator<char>());
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    }
    printf("replayed %zu inputs\n", files.size());
    return 0;
}
