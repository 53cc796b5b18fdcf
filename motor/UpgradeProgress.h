#pragma once

namespace android {
namespace lumacast {

// How far the MCU firmware upgrade has got, for the motor service's dump. The upgrade's
// binder thread writes, dump reads from another thread: relaxed atomics, no lock, nothing
// logged.
class UpgradeProgress {
  public:
    struct State {
        bool running = false;
        int package = 0;      // the package being sent, from 1; 0 before the first
        int packages = 0;     // packages the image makes
        int upgrades = 0;     // upgrades finished since start-up
        int lastResult = 0;   // motor result code of the last finished upgrade
        int lastPackage = 0;  // how far the last finished upgrade got
        int lastPackages = 0;
    };

    static void begin();
    static void setPackages(int packages);
    static void setPackage(int package);
    static void end(int result);
    static State read();
};

}  // namespace lumacast
}  // namespace android
