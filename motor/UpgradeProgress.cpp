#include "motor/UpgradeProgress.h"

#include <atomic>

namespace android {
namespace lumacast {

namespace {

std::atomic<bool> gRunning{false};
std::atomic<int> gPackage{0};
std::atomic<int> gPackages{0};
std::atomic<int> gUpgrades{0};
std::atomic<int> gLastResult{0};
std::atomic<int> gLastPackage{0};
std::atomic<int> gLastPackages{0};

}  // namespace

void UpgradeProgress::begin() {
    gPackage.store(0, std::memory_order_relaxed);
    gPackages.store(0, std::memory_order_relaxed);
    gRunning.store(true, std::memory_order_relaxed);
}

void UpgradeProgress::setPackages(int packages) {
    gPackages.store(packages, std::memory_order_relaxed);
}

void UpgradeProgress::setPackage(int package) {
    gPackage.store(package, std::memory_order_relaxed);
}

void UpgradeProgress::end(int result) {
    gLastResult.store(result, std::memory_order_relaxed);
    gLastPackage.store(gPackage.load(std::memory_order_relaxed), std::memory_order_relaxed);
    gLastPackages.store(gPackages.load(std::memory_order_relaxed), std::memory_order_relaxed);
    gUpgrades.fetch_add(1, std::memory_order_relaxed);
    gRunning.store(false, std::memory_order_relaxed);
}

UpgradeProgress::State UpgradeProgress::read() {
    State s;
    s.running = gRunning.load(std::memory_order_relaxed);
    s.package = gPackage.load(std::memory_order_relaxed);
    s.packages = gPackages.load(std::memory_order_relaxed);
    s.upgrades = gUpgrades.load(std::memory_order_relaxed);
    s.lastResult = gLastResult.load(std::memory_order_relaxed);
    s.lastPackage = gLastPackage.load(std::memory_order_relaxed);
    s.lastPackages = gLastPackages.load(std::memory_order_relaxed);
    return s;
}

}  // namespace lumacast
}  // namespace android
