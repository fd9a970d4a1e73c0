// Every libusb-1.0 export the simulator does not implement: calling one
// aborts with its name, so nothing falls through to a real libusb unseen.
// The list is that of libusb 1.0.26 less usb_shim_names.h.
#include <cstdio>
#include <cstdlib>

namespace {
[[noreturn]] void Unimplemented(const char* name) {
    std::fprintf(stderr, "qs_usbsim: %s is not simulated\n", name);
    std::abort();
}
}  // namespace

#define QSSIM_STUB(name) \
    extern "C" __attribute__((visibility("default"))) void name() { Unimplemented(#name); }

QSSIM_STUB(libusb_alloc_streams)
QSSIM_STUB(libusb_attach_kernel_driver)
QSSIM_STUB(libusb_dev_mem_alloc)
QSSIM_STUB(libusb_dev_mem_free)
QSSIM_STUB(libusb_event_handler_active)
QSSIM_STUB(libusb_event_handling_ok)
QSSIM_STUB(libusb_free_bos_descriptor)
QSSIM_STUB(libusb_free_container_id_descriptor)
QSSIM_STUB(libusb_free_pollfds)
QSSIM_STUB(libusb_free_ss_endpoint_companion_descriptor)
QSSIM_STUB(libusb_free_ss_usb_device_capability_descriptor)
QSSIM_STUB(libusb_free_streams)
QSSIM_STUB(libusb_free_usb_2_0_extension_descriptor)
QSSIM_STUB(libusb_get_active_config_descriptor)
QSSIM_STUB(libusb_get_bos_descriptor)
QSSIM_STUB(libusb_get_config_descriptor_by_value)
QSSIM_STUB(libusb_get_container_id_descriptor)
QSSIM_STUB(libusb_get_device_speed)
QSSIM_STUB(libusb_get_max_iso_packet_size)
QSSIM_STUB(libusb_get_max_packet_size)
QSSIM_STUB(libusb_get_next_timeout)
QSSIM_STUB(libusb_get_parent)
QSSIM_STUB(libusb_get_pollfds)
QSSIM_STUB(libusb_get_port_number)
QSSIM_STUB(libusb_get_port_numbers)
QSSIM_STUB(libusb_get_port_path)
QSSIM_STUB(libusb_get_ss_endpoint_companion_descriptor)
QSSIM_STUB(libusb_get_ss_usb_device_capability_descriptor)
QSSIM_STUB(libusb_get_usb_2_0_extension_descriptor)
QSSIM_STUB(libusb_get_version)
QSSIM_STUB(libusb_handle_events_locked)
QSSIM_STUB(libusb_has_capability)
QSSIM_STUB(libusb_hotplug_deregister_callback)
QSSIM_STUB(libusb_hotplug_get_user_data)
QSSIM_STUB(libusb_hotplug_register_callback)
QSSIM_STUB(libusb_interrupt_event_handler)
QSSIM_STUB(libusb_interrupt_transfer)
QSSIM_STUB(libusb_lock_event_waiters)
QSSIM_STUB(libusb_lock_events)
QSSIM_STUB(libusb_open_device_with_vid_pid)
QSSIM_STUB(libusb_pollfds_handle_timeouts)
QSSIM_STUB(libusb_reset_device)
QSSIM_STUB(libusb_set_debug)
QSSIM_STUB(libusb_set_interface_alt_setting)
QSSIM_STUB(libusb_set_log_cb)
QSSIM_STUB(libusb_set_option)
QSSIM_STUB(libusb_set_pollfd_notifiers)
QSSIM_STUB(libusb_setlocale)
QSSIM_STUB(libusb_strerror)
QSSIM_STUB(libusb_transfer_get_stream_id)
QSSIM_STUB(libusb_transfer_set_stream_id)
QSSIM_STUB(libusb_try_lock_events)
QSSIM_STUB(libusb_unlock_event_waiters)
QSSIM_STUB(libusb_unlock_events)
QSSIM_STUB(libusb_wait_for_event)
QSSIM_STUB(libusb_wrap_sys_device)
