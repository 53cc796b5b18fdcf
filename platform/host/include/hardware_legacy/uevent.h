#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// The platform's uevent library: one NETLINK_KOBJECT_UEVENT socket per process.
int uevent_init();
int uevent_get_fd();
// Blocks until a message arrives; copies at most buffer_length bytes, unterminated, and
// returns the number copied.
int uevent_next_event(char* buffer, int buffer_length);

#ifdef __cplusplus
}
#endif
