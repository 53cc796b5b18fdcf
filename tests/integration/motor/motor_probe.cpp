// A stand-in for the daemon's motor side: drives the driver the board string selects, one
// command per stdin line, one answer per stdout line. Linked without devsim; the tests
// preload it, as they do for the daemon.

#include <stdio.h>
#include <stdlib.h>

#include <iostream>
#include <string>

#include "motor/IMotor.h"

using android::lumacast::IMotor;

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: motor_probe BOARD\n");
        return 2;
    }
    IMotor* motor = IMotor::getInstance(argv[1]);
    if (motor == nullptr) {
        fprintf(stderr, "motor_probe: no model for %s\n", argv[1]);
        return 2;
    }
    std::string line;
    while (std::getline(std::cin, line) && line != "quit") {
        if (line == "up") {
            std::cout << motor->motor_up();
        } else if (line == "down") {
            std::cout << motor->motor_down();
        } else if (line == "status") {
            std::cout << motor->get_motor_status();
        } else if (line == "rise") {
            std::cout << motor->get_rotate_time();
        } else if (line == "switch") {
            std::cout << motor->get_switch_status();
        } else if (line == "version") {
            std::cout << motor->get_mcu_version();
        } else if (line.rfind("upgrade ", 0) == 0) {
            std::cout << motor->motor_mcu_upgrade(line.substr(8));
        } else if (line == "env") {
            std::cout << (getenv("DEVSIM_CONTROL") ? "set" : "unset");
        } else {
            std::cout << "?";
        }
        std::cout << std::endl;
    }
    IMotor::releaseInstance(motor);
    return 0;
}
