package kora.lumacast;

/**
 * The pop-up camera motor service, registered as "cameramotorservice". Name the board
 * model with set_client_type first; until then every method answers a fixed default.
 */
interface IKCameraMotor {
    void set_client_type(@utf8InCpp String type);
    int motor_down();
    int motor_up();
    int get_motor_status();
    int get_rise_time();
    boolean get_switch_status();
    boolean is_support_motor();
    void set_status(boolean status);
    boolean get_status();
    @utf8InCpp String get_mcu_version();
    int mcu_upgrade(@utf8InCpp String path);
}
