/* SPDX-License-Identifier: MIT */
/* kelo/link.h: the data link, as the dialer thread sees it.
 *
 * The dialer thread starts the dialer program (quectel-CM), finds out by ping whether wwan0 carries
 * traffic, and redials, resets the radio and restarts the modem task when it does not. It runs from
 * the library's start until conn_mode_flag or global_quagga_stop is non-zero.
 */
#ifndef KELO_LINK_H
#define KELO_LINK_H

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* 1 while the link is verified: wwan0 was up and a ping came back (with ping_enable 0, wwan0 was
 * up). Written by the dialer thread alone. A lost link is noticed by the supervision, which pings
 * about once a minute and gives up after three pings of 5, 10 and 20 seconds. The thread leaves the
 * word as it is when it ends. */
extern int cell_network_up;

/* 1 while the link is verified and the SIM is ready (cell_network_up and is_pin_ready both
 * non-zero), else 0. Any thread; at once. */
int get_cell_network_up(void);

/* Whether an interface holds an IPv4 or an IPv6 address, as ifconfig (busybox, net-tools 1 or 2)
 * reports it; link-local IPv6 addresses count, and so does the address of an interface that is
 * down. `interface` is its name: 1 to 15 letters, digits and . _ : - @, with no - in front. Returns
 * 1 or 0; 0 also for a name that is NULL or anything else, when there is no such interface, and
 * when ifconfig does not answer within five seconds. Runs a program on the caller's thread. */
int ip_net_is_up(const char* interface);
int ipv6_is_up(const char* interface); /* IPv6, see ip_net_is_up */

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
