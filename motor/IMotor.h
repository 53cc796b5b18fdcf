#pragma once

#include <atomic>
#include <string>

namespace android {
namespace lumacast {

// A board model's motor driver, and the selection of the model from the board string.
class IMotor {
  public:
    virtual ~IMotor() = default;

    virtual int motor_down() = 0;
    virtual int motor_up() = 0;
    virtual int get_motor_status() = 0;
    virtual int get_rotate_time() = 0;
    virtual int motor_mcu_upgrade(std::string path) = 0;
    // Valid until the next call of the same model on the same thread.
    virtual const char* get_mcu_version() = 0;
    virtual int get_switch_status() = 0;

    // The driver of the first board string that names a known model; later calls return
    // that driver whatever they pass, until releaseInstance.
    static IMotor* getInstance(std::string type);
    static bool is_support_motor();
    // Deletes the selected driver and forgets it, so sMotor never points at a released one.
    static void releaseInstance(IMotor* motor);

    int mtk_get_switch_status();
    int motor_iic_write_status(int reg, unsigned char value);
    int motor_iic_write_data(int reg, unsigned char* data, int len);
    int motor_iic_read(unsigned char reg, unsigned char* buf, int len);

  protected:
    const char* mDevPath = nullptr;
    int mReadAddr = 0;
    int mWriteAddr = 0;

  private:
    static IMotor* sMotor;
    static std::atomic<bool> sSupportMotor;
};

}  // namespace lumacast
}  // namespace android
