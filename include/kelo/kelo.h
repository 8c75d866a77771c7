/* SPDX-License-Identifier: MIT */
/* kelo/kelo.h: everything that a host of libkelo.so includes.
 *
 * The library owns one USB cellular modem. A host fills its settings, starts the library, and
 * polls:
 *
 *     kelo_init_cellular(&settings, 0);   returns at once; the modem comes up on threads of the
 * library
 *     ... poll kelo_get_connect_status(), kelo_get_cellular(), kelo_copy_mobile(), the flags ...
 *     kelo_deinit_cellular();
 *
 * Settings, bring-up and stop are in kelo/settings.h, the polls in kelo/status.h and kelo/gsm.h.
 */
#ifndef KELO_KELO_H
#define KELO_KELO_H

#include <kelo/at.h>
#include <kelo/command.h>
#include <kelo/event.h>
#include <kelo/gps.h>
#include <kelo/gsm.h>
#include <kelo/host.h>
#include <kelo/keeper.h>
#include <kelo/link.h>
#include <kelo/list.h>
#include <kelo/log.h>
#include <kelo/messages.h>
#include <kelo/mqtt.h>
#include <kelo/questions.h>
#include <kelo/settings.h>
#include <kelo/sms.h>
#include <kelo/status.h>
#include <kelo/trace.h>
#include <kelo/version.h>

#endif
