/*
 * libvndksupport: loading same-process HAL ("sphal") libraries from the vendor partition.
 *
 * On a device the libraries load into the linker namespace "sphal". The host has no linker
 * namespaces; its sphal namespace is a search path (see <hostvndksupport/SphalNamespace.h>):
 * by default the process's normal library search path, so android_load_sphal_library behaves
 * as dlopen.
 *
 * Fault point (see <hostcontrol/FaultInjection.h>): vndksupport.android_load_sphal_library.
 * When armed, android_load_sphal_library returns null without loading anything.
 */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// Whether the process is a vendor process: never on the host, whose processes are apps.
int android_is_in_vendor_process(void);

// dlopen in the sphal namespace; null, with a warning logged, when the library is not there.
void* android_load_sphal_library(const char* name, int flag);

// Closes a handle from android_load_sphal_library; dlclose's result.
int android_unload_sphal_library(void* handle);

#ifdef __cplusplus
}
#endif
