#pragma once

// The platform's libhardware_legacy uevent API, which Debian does not package: the same
// declarations as hardware/libhardware_legacy/include/hardware_legacy/uevent.h.

#ifdef __cplusplus
extern "C" {
#endif

int uevent_init();
int uevent_get_fd();
int uevent_next_event(char* buffer, int buffer_length);
int uevent_add_native_handler(void (*handler)(void* data, const char* msg, int msg_len),
                              void* handler_data);
int uevent_remove_native_handler(void (*handler)(void* data, const char* msg, int msg_len));

#ifdef __cplusplus
}
#endif
