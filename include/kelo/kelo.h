/* kelo/kelo.h: everything that a host of libkelo.so includes.
 *
 * The library owns one USB cellular modem. A host sets the words that it cares for, starts the
 * library, and polls:
 *
 *     cellular_gsm_init(0);      once per process
 *     cellular_start(0);         opens the modem; its dialogue runs on a thread of the library
 *     ... poll cellular_get_cur_status(), kelo_copy_mobile(), the received flags ...
 *     cellular_stop();
 */
#ifndef KELO_KELO_H
#define KELO_KELO_H

#include <kelo/at.h>
#include <kelo/gps.h>
#include <kelo/gsm.h>
#include <kelo/host.h>
#include <kelo/list.h>
#include <kelo/mqtt.h>
#include <kelo/settings.h>
#include <kelo/sms.h>

#endif
