// SPDX-License-Identifier: MIT
// The layout of the records that a host shares with the library. A change here breaks every host
// that was built before it.

#include <kelo/kelo.h>

#include <cstddef>
#include <type_traits>

namespace
{

// Widths hold on every word size; offsets are given for hosts with 32 and with 64 bit pointers.
constexpr bool wide = sizeof(void*) == 8;
constexpr std::size_t either(std::size_t narrow, std::size_t broad)
{
    return wide ? broad : narrow;
}

static_assert(sizeof(int) == 4 && sizeof(unsigned int) == 4);

static_assert(std::is_standard_layout_v<gsm_mobile> && std::is_trivially_copyable_v<gsm_mobile>);
static_assert(offsetof(gsm_mobile, parity) == 32);
static_assert(offsetof(gsm_mobile, fd) == 36);
static_assert(offsetof(gsm_mobile, at_dev) == 40);
static_assert(offsetof(gsm_mobile, last_event) == 72);
static_assert(offsetof(gsm_mobile, cur_at) == either(84, 88));
static_assert(offsetof(gsm_mobile, model) == either(88, 96));
static_assert(offsetof(gsm_mobile, gps_on) == either(88, 96) + 272);
static_assert(offsetof(gsm_mobile, number) == either(88, 96) + 272 + 8 + 128 + 4 + 64 + 4 + 64);
static_assert(offsetof(gsm_mobile, reg_n) ==
              offsetof(gsm_mobile, number) + 32 + 32 + 16 + 16 + 16 + 4);
static_assert(offsetof(gsm_mobile, oper) == offsetof(gsm_mobile, reg_n) + 8 + 16 + 16);
static_assert(offsetof(gsm_mobile, apn) == offsetof(gsm_mobile, oper) + 64 + 16 + 16 + 64 + 16);
static_assert(offsetof(gsm_mobile, sms_tag) == offsetof(gsm_mobile, apn) + 3 * 128 + 4 + 64 + 4);
static_assert(offsetof(gsm_mobile, is5g) == offsetof(gsm_mobile, sms_tag) + 64 + 4 + 64 + 1024 + 4);
static_assert(offsetof(gsm_mobile, qeng_net_stem) == offsetof(gsm_mobile, mcc) + 12 * sizeof(int));

static_assert(offsetof(at_info, flags) == either(20, 32));
static_assert(offsetof(at_info, seq) == either(28, 48));
static_assert(offsetof(at_info, cmd_template) == either(48, 80));
static_assert(offsetof(at_info, node) == either(60, 104));
static_assert(sizeof(at_info) == either(68, 120));

static_assert(offsetof(at_config_item, cmd) == 24);
static_assert(offsetof(at_config_item, node) == either(28, 32));

using event_record = struct gsm_event;
static_assert(offsetof(event_record, callingnum) == 4);
static_assert(offsetof(event_record, mode) == 132);
static_assert(offsetof(event_record, sender) == 136 + 512);
static_assert(offsetof(event_record, length) == 136 + 512 + 64 + 64 + 32 + 16);
static_assert(offsetof(event_record, coding) == offsetof(event_record, length) + 4 + 1024);

static_assert(sizeof(long_sms_info) == 16);
static_assert(offsetof(sms_outbox_item, node) == either(20, 40));

static_assert(offsetof(cellular_setting, user) == 36);
static_assert(offsetof(cellular_setting, pin) == 36 + 256 + 32);
static_assert(offsetof(cellular_setting, auth) == 36 + 256 + 32 + 64);
static_assert(offsetof(cellular_setting, ping_target) == 388 + 4 * sizeof(int));
static_assert(sizeof(cellular_setting) == 436 && alignof(cellular_setting) == alignof(int));

static_assert(offsetof(cellular_status, net_type) == 32 + 3 * sizeof(int));
static_assert(offsetof(cellular_status, iccid) == 48 + 2 * 32);
static_assert(sizeof(cellular_status) == 144);

static_assert(offsetof(cell_sim_cfg, apn) == either(4, 8));
static_assert(offsetof(cell_sim_cfg, pin) == either(20, 40));
static_assert(sizeof(cell_sim_cfg) == either(28, 56));

static_assert(offsetof(mqtt_config, host) == 2 * sizeof(int));
static_assert(offsetof(mqtt_config, user) == 8 + 64 + 16 + 64);
static_assert(offsetof(mqtt_config, topic) == 152 + 2 * 256);
static_assert(offsetof(mqtt_config, keepalive) == 664 + 4 * 64);
static_assert(offsetof(mqtt_config, mqtt_done_callback) == either(924, 928));

} // namespace
