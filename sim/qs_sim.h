/* Control interface of the analyser simulator (libqs_usbsim).
 *
 * The simulator stands in for libusb-1.0: a program linked with it, or run
 * with it preloaded, sees the simulated analysers as USB devices. These calls
 * set up what is plugged in and what the antenna receives.
 *
 * Without any call here, the environment describes the scene at the first
 * USB call: QS_SIM_DEVICES="maple2:12345678,larch:10000001" (larch, maple,
 * maple1, maple2, or pid<N> for another product of the same vendor; a
 * device may add ":denied" (see qssim_set_access_denied), ":erased" or
 * ":uncalibrated" (see qssim_set_flash_image), or ":unplug=S" to be pulled
 * out S seconds after the scene is set up) and
 * QS_SIM_TONES="1e9:-30,2.4e9:-50" (Hz:dBm, on every device) and
 * QS_SIM_TRIGGERS="0.01,0.25" (external triggers that many seconds into
 * every stream run of each device; see qssim_add_trigger) and
 * QS_SIM_GENERATORS="tg1:12345,rowan:23456" (tracking generators, each
 * cabled to the first device through a through; ":bandpass=F1-F2/N" or
 * ":lowpass=F1/N" puts a Butterworth filter of N poles in between).
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

/* The firmware. Each device answers its commands as the instrument does:
 * counted blocks for a sweep or capture, blocks without end for a stream
 * until the stop command and then one last block whose headers echo the stop,
 * one packet per channel for a flash page. Sample payloads are what the
 * device's receiver makes of the scene (tones, noise) at each LO step,
 * deterministic for a given scene and sample position; a Larch's capture
 * (self-calibration) command sweeps its internal tone across the IF, and its
 * receiver adds spurs of -70 dBm at 40, 2240, 3080, 4600, 5320 and 5600 MHz
 * in steps whose second oscillator has its row's own setting. A
 * Maple's converter reaches full scale at -48 to -42 dBm (rising with
 * frequency) at its highest gain and +8 to +17 dBm at its lowest; louder
 * tones clip and step ADCOverflowCount. */

/* When a device's data is ready. Each device makes its data on a thread of
 * its own, into a FIFO of four blocks per channel that the host's reads
 * empty:
 *   QSSIM_PACE_FREE (0)      as fast as the simulator can, waiting while the
 *                            FIFO is full: nothing is ever lost;
 *   QSSIM_PACE_REALTIME (1, or any value but 0 and 2)
 *                            one block per 3.7376 ms from the command on, and
 *                            a host that falls more than four blocks behind
 *                            loses whole blocks, which steps
 *                            GPIFOverflowCount;
 *   QSSIM_PACE_STREAMS (2)   the default: streams in real time, sweeps and
 *                            captures free.
 * A simulator that cannot keep the real-time rate on a loaded machine slows
 * the device's clock instead of losing data: only a host that leaves the
 * FIFO full loses blocks. */
#define QSSIM_PACE_FREE 0
#define QSSIM_PACE_REALTIME 1
#define QSSIM_PACE_STREAMS 2
void qssim_set_pacing(int id, int realtime);

/* Every device's clock, and so its real-time pacing, runs `factor` times
 * slower than the instrument's (1 or more; 1 at start, or
 * QS_SIM_SLOWDOWN from the environment): for builds whose processing
 * cannot follow 80 MS/s, such as a thread sanitizer's, so that streams still
 * arrive whole. */
void qssim_set_slowdown(double factor);

/* The seed of the receivers' noise, for every device now and later. Each
 * run (sweep, stream) of a device draws fresh noise from it, so that sweeps
 * differ as on an instrument; a fixed seed repeats a whole session. Unset,
 * it differs in every process (or comes from QS_SIM_SEED). */
void qssim_set_seed(unsigned seed);

/* The next transfer on a data endpoint (0x81 or 0x82) gets no data and ends
 * by its time-out; the data it would have had stays in the device. */
void qssim_stall_transfer(int id, int endpoint);

/* The next flash page read delivers only `bytes` bytes on endpoint 0x82. */
void qssim_short_flash_page(int id, int bytes);

/* From the next block on, channel 2 loses one packet: the channels are out
 * of step (TotalPktCount 3 apart) until the next command. */
void qssim_slip_channel2(int id);

/* From the next block on, GPIFOverflowCount (a device buffer overrun) or
 * ADCOverflowCount (a converter overflow) is one higher. */
void qssim_step_gpif_overflow(int id);
void qssim_step_adc_overflow(int id);

/* An external trigger event at a sample position, counted in the time order
 * of the samples from the first sample of the data run in progress, or of
 * the next one if none is (positions of 7 and above). A run spends the
 * events it passed. Returns 0, or -1 if refused. */
int qssim_add_trigger(int id, long long samplePosition);

/* The internal temperature that the monitor readings report. */
void qssim_set_temperature(int id, double celsius);

/* Sample packets the firmware has sent on a data endpoint since plug-in,
 * and the reads on it that ended by their time-out. */
long long qssim_packets_served(int id, int endpoint);
long long qssim_read_timeouts(int id, int endpoint);

/* Direct access to the device's flash (49 pages of 65536 bytes, erased to
 * 0xFF), for loading an image or checking a write. Returns 0, or -1 when
 * the range does not fit. */
int qssim_flash_read(int id, unsigned offset, unsigned char* out, unsigned len);
int qssim_flash_write(int id, unsigned offset, const unsigned char* data, unsigned len);

/* The factory calibration image. Every Maple and Larch is plugged in with a
 * complete image at read page 8 of its flash (byte 0x80000), made from the
 * same gain model as its receiver: the header carries the device's serial
 * number and firmware version 6, and a host that applies the tables reads
 * back the level of a tone at the antenna. qssim_set_flash_image rewrites
 * the image's pages with one of these kinds (other pages keep their bytes):
 *   QSSIM_FLASH_CALIBRATED    the complete image (the default);
 *   QSSIM_FLASH_ERASED        nothing: the image's pages all 0xFF;
 *   QSSIM_FLASH_BLANK_TABLES  a valid header, every table 0xFF;
 *   QSSIM_FLASH_BLANK_HEADER  the tables, under an erased header.
 * Returns 0, or -1 for no such device or kind. */
#define QSSIM_FLASH_CALIBRATED 0
#define QSSIM_FLASH_ERASED 1
#define QSSIM_FLASH_BLANK_TABLES 2
#define QSSIM_FLASH_BLANK_HEADER 3
int qssim_set_flash_image(int id, int kind);

/* Maple only: the image's timebase list holds `used` measured clock ratios
 * (0 to 256), the newest 1 - ppm x 1e-6 and the older ones evenly between
 * it and 1, and the device's clock truly runs at the newest ratio: every
 * oscillator and the sample clock are off by ppm. The image is rewritten as
 * a complete one. Returns 0, or -1 for a Larch, no device or a bad count. */
int qssim_set_timebase_slots(int id, int used, double ppm);

/* Larch only: the middle of the IF pass band that the self-calibration
 * measures lies hz from the nominal IF centre (0 at plug-in); the filter
 * keeps its shape. The factory image is rewritten to match, as if the device
 * had been calibrated so (its RF tables hold the path less the filter's mean
 * over the middle of the band). The device's -2 dB band reaches about
 * 10 MHz either side of its middle; a host that looks for both edges within
 * 8.75 to 11.25 MHz of the nominal centre finds them for |hz| up to about
 * 1 MHz. Returns 0, or -1 for a Maple, no device or a value that is not
 * finite. */
int qssim_set_larch_if_centre(int id, double hz);

/* Tracking generators. Each is an FTDI serial bridge (vendor 0x0403,
 * product 0x6001, description "CorvaneLinkTG", serial number printed with
 * eight digits) on the simulated bus, with a generator behind it that takes
 * the SLIP-framed commands F, A, R, S, T, G, L and E. Version 1 reaches
 * 4.4 GHz with a 31 dB attenuator in 1 dB steps; the Rowan 12.4 GHz with
 * 31.5 dB in 0.5 dB steps. Each unit's level is not flat and its
 * attenuator steps are not their names, its time base is a few ppm off, and
 * its EEPROM holds a factory calibration measured from that. The line must
 * be set to 25000 baud for the generator to hear anything; it answers at
 * once. Ids are their own, apart from the analysers'. */
#define QSSIM_TG_V1 1
#define QSSIM_TG_ROWAN 2
/* Plugs in a generator with a calibrated EEPROM; its id, or -1 when the
 * version is unknown or the serial number in use. */
int qssim_add_generator(int version, unsigned serial);
/* Unplugs it, also in the middle of a sweep. */
void qssim_remove_generator(int id);
/* Cables its output to the input of analyser analyserId, through its device
 * under test (a through until set); one generator per analyser, the last
 * one cabled wins. 0, or -1. */
int qssim_connect_generator(int genId, int analyserId);

/* The device under test between a generator and its analyser: a through,
 * or a Butterworth low-pass (cut-off f1) or band-pass (f1 to f2, the
 * -3 dB points) whose low-pass prototype has `order` poles, plus a flat
 * loss of lossDb. 0, or -1. */
#define QSSIM_DUT_THRU 0
#define QSSIM_DUT_LOWPASS 1
#define QSSIM_DUT_BANDPASS 2
int qssim_set_dut(int genId, int kind, double f1Hz, double f2Hz, int order, double lossDb);
/* The true gain of that device under test at freqHz, in dB. */
double qssim_dut_gain_db(int genId, double freqHz);

/* What the generator truly puts out at its port now (its own errors
 * included): 0, or -1 when it puts out nothing (no generator, unplugged,
 * 0 Hz). During a hardware sweep, the point it is at. */
int qssim_generator_output(int genId, double* freqHz, double* levelDbm);

/* The EEPROM behind the E command:
 *   QSSIM_TG_EEPROM_CALIBRATED  the factory calibration (the default);
 *   QSSIM_TG_EEPROM_BLANK       never calibrated (the first byte of the
 *                               calibration text is 0x80);
 *   QSSIM_TG_EEPROM_SILENT      no answer to reads.
 * 0, or -1. */
#define QSSIM_TG_EEPROM_CALIBRATED 0
#define QSSIM_TG_EEPROM_BLANK 1
#define QSSIM_TG_EEPROM_SILENT 2
int qssim_set_generator_eeprom(int genId, int kind);

/* The SLIP frames the generator received, in order: their count, and frame
 * `index`'s payload (decoded) or wire bytes (as sent, the closing END
 * included) copied into out, at most room bytes. The copy's length, or -1
 * for no such frame. */
int qssim_generator_frame_count(int genId);
int qssim_get_generator_frame(int genId, int index, unsigned char* out, int room);
int qssim_get_generator_wire(int genId, int index, unsigned char* out, int room);

#ifdef __cplusplus
}
#endif

#endif /* QS_SIM_H */
