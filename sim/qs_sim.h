/* Control interface of the analyser simulator (libqs_usbsim).
 *
 * The simulator stands in for libusb-1.0: a program linked with it, or run
 * with it preloaded, sees the simulated analysers as USB devices. These calls
 * set up what is plugged in and what the antenna receives.
 *
 * Without any call here, the environment describes the scene at the first
 * USB call: QS_SIM_DEVICES="maple2:12345678,larch:10000001" (larch, maple,
 * maple1, maple2, or pid<N> for another product of the same vendor) and
 * QS_SIM_TONES="1e9:-30,2.4e9:-50" (Hz:dBm, on every device).
 */
#ifndef QS_SIM_H
#define QS_SIM_H

#ifdef __cplusplus
extern "C" {
#endif

#define QSSIM_PID_LARCH 1
#define QSSIM_PID_MAPLE_REV1 2
#define QSSIM_PID_MAPLE_REV2 5

/* Removes all devices and forgets the environment's scene. */
void qssim_reset(void);

/* Plugs in a device and returns its id (0, 1, ...), or -1 when the serial
 * number is already in use. Product ids other than 1, 2 and 5 make a foreign
 * device of the same vendor. The USB serial string is the number printed
 * with eight digits. */
int qssim_add_device(int productId, unsigned serial);

/* Unplugs a device, also in the middle of a transfer: what is in flight
 * ends as "no device", and later calls on its handles fail the same way. */
void qssim_remove_device(int id);

/* The scene at the antenna of one device. */
void qssim_set_tone(int id, double freqHz, double levelDbm);
void qssim_clear_signals(int id);
void qssim_set_noise(int id, double dbmPerHz);

/* Makes libusb_open of the device fail with an access error, as when the
 * USB node exists but its permissions shut the user out (non-zero) or not. */
void qssim_set_access_denied(int id, int denied);

/* Makes libusb_init fail while non-zero. */
void qssim_set_init_failure(int fail);

/* What the device received on its command endpoint: the number of 1024-byte
 * command blocks so far, and a copy of block `index` (0 is the first) into
 * out, which has room for 1024 bytes. Returns 0, or -1 for no such block. */
int qssim_command_count(int id);
int qssim_get_command(int id, int index, unsigned char* out);

#ifdef __cplusplus
}
#endif

#endif /* QS_SIM_H */
