#pragma once

#include "motor/MotorCedar.h"

namespace android {
namespace lumacast {

// A Cedar board on bus 1 whose camera switch is a named pin of the vendor GPIO driver.
class MotorDamson : public MotorCedar {
  public:
    MotorDamson();

    int get_switch_status() override;
};

}  // namespace lumacast
}  // namespace android
