#pragma once

#include <binder/IBinder.h>
#include <stdint.h>

#include <atomic>

namespace android {
namespace internal {

// Which partition a binder object was built for. Parcels carry it next to every binder.
class Stability final {
  public:
    enum Level : uint8_t {
        UNDECLARED = 0,
        VENDOR = 0b000011,
        SYSTEM = 0b001100,
        VINTF = 0b111111,
    };

    // The object keeps the stability of the code that built it (system code here).
    static void markCompilationUnit(IBinder* binder);
    static void markVintf(IBinder* binder);
    static void markVndk(IBinder* binder);

    // The int32 that a parcel carries after a binder: wire format version in the low
    // byte, level in the high byte.
    static int32_t getRepr(IBinder* binder);
    static Level getLevel(IBinder* binder);
    static void tryMarkCompilationUnit(IBinder* binder);
    static status_t setRepr(IBinder* binder, int32_t representation);

    static constexpr uint8_t kWireFormatVersion = 1;
    static constexpr int32_t reprOf(Level level) {
        return static_cast<int32_t>(static_cast<uint32_t>(level) << 24 | kWireFormatVersion);
    }

  private:
    Stability() = delete;
    static std::atomic<int32_t>* slotOf(IBinder* binder);
};

}  // namespace internal
}  // namespace android
