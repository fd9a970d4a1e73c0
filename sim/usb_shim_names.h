// The libusb-1.0 calls that the simulator implements; every other libusb
// export is a stub that aborts with its name (usb_stubs.cpp).
#pragma once

#define QSSIM_IMPLEMENTED_LIBUSB_CALLS(X)   \
    X(libusb_init)                          \
    X(libusb_exit)                          \
    X(libusb_error_name)                    \
    X(libusb_get_device_list)               \
    X(libusb_free_device_list)              \
    X(libusb_ref_device)                    \
    X(libusb_unref_device)                  \
    X(libusb_get_device_descriptor)         \
    X(libusb_get_bus_number)                \
    X(libusb_get_device_address)            \
    X(libusb_open)                          \
    X(libusb_close)                         \
    X(libusb_get_device)                    \
    X(libusb_get_string_descriptor_ascii)   \
    X(libusb_kernel_driver_active)          \
    X(libusb_detach_kernel_driver)          \
    X(libusb_claim_interface)               \
    X(libusb_release_interface)             \
    X(libusb_clear_halt)                    \
    X(libusb_bulk_transfer)                 \
    X(libusb_alloc_transfer)                \
    X(libusb_free_transfer)                 \
    X(libusb_submit_transfer)               \
    X(libusb_cancel_transfer)               \
    X(libusb_handle_events)                 \
    X(libusb_handle_events_completed)       \
    X(libusb_handle_events_timeout)         \
    X(libusb_handle_events_timeout_completed) \
    X(libusb_control_transfer)              \
    X(libusb_get_configuration)             \
    X(libusb_set_configuration)             \
    X(libusb_set_auto_detach_kernel_driver) \
    X(libusb_get_config_descriptor)         \
    X(libusb_free_config_descriptor)
