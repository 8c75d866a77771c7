/* SPDX-License-Identifier: MIT */
/* kelo/gps.h: the GPS engine inside the modem.
 *
 * A host switches the engine on (kelo_set_gps_on), asks for one position (kelo_start_gps_location)
 * and polls for it (kelo_get_gps_location). For a stream of positions it asks again after each. All
 * calls may be made from any thread.
 */
#ifndef KELO_GPS_H
#define KELO_GPS_H

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* Bytes that a position takes at most, with its terminator. */
#define KELO_GPS_LOCATION_SIZE 128

/* Switches the GPS engine on (AT+QGPS=1), at once on the caller's thread. Blocks up to two seconds
 * when the port refuses the write. Returns 0 after the write attempts; -1 without a record or an
 * open port. */
int kelo_set_gps_on(void);

/* Asks for one position. The mobile task queries the modem about once a second (AT+QGPSLOC=2) until
 * a position comes, without a limit; in a process the first three of these ticks send nothing. Does
 * not switch the engine on. Returns 0, or -1 without a record. */
int kelo_start_gps_location(void);

/* Ends the queries and switches the engine off (AT+QGPSEND), also when nothing was asked for. A
 * position that waits stays. Blocks as kelo_set_gps_on does. Returns 0, or -1 without a record. */
int kelo_stop_gps_location(void);

/* Fetches a position, once each: the columns behind "+QGPSLOC: " as the modem wrote them,
 * terminated. For AT+QGPSLOC=2 these are
 * <UTC>,<latitude>,<longitude>,<HDOP>,<altitude>,<fix>,<COG>,<spkm>,<spkn>, <date>,<nsat>, latitude
 * and longitude in signed decimal degrees (Quectel GNSS AT commands manual). buffer must hold
 * KELO_GPS_LOCATION_SIZE bytes. A position that comes before the one ahead of it was fetched takes
 * its place. Returns 1 when one was copied, else 0, also for a NULL buffer. */
int kelo_get_gps_location(char* buffer);

/* Creates the marker file /etc/gpsflag.txt, or empties it. The library does not read it. */
void gps_set_flag_file(void);

/* Deletes the marker file. */
void gps_clear_flag_file(void);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
