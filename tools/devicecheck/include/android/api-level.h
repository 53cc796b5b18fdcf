#pragma once

// Bionic's API level header (GoogleTest reads it when __ANDROID__ is set): the device runs
// API 31.

#define __ANDROID_API_FUTURE__ 10000
#ifndef __ANDROID_API__
#define __ANDROID_API__ 31
#endif
#define __ANDROID_API_R__ 30
#define __ANDROID_API_S__ 31

#ifdef __cplusplus
extern "C" {
#endif
int android_get_application_target_sdk_version();
int android_get_device_api_level();
#ifdef __cplusplus
}
#endif
