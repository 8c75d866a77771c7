// SPDX-License-Identifier: MIT
// Response handlers: one function per kind of answer, one file per subject. Each turns one line of
// modem output into record fields and at most one event; what takes more than a look to read is
// read by parse.h.
//
// Threads: all of them run on the mobile task, inside libgsm_check_event. A handler holds
// record_lock while it writes the fields of its line. What it has to run or to call besides (a
// shell line, a command to the port, a callback of the host, the flow lists) it does after it has
// let go. Words that leave: cell_pdpdeact, cell_ccinfo_recv, g_NetStaFlag, verizon_flag.
//
// The contract, for all: to hold a text means a case-sensitive search anywhere in the line. Record
// and line are there: the exchange sees to it, and the two handlers that are exported do
// themselves.
#pragma once

#include "core/core.h"

namespace kelo
{

// general.cpp
event* general_handler(gsm_mobile* rec, char* line);
event* report_handler(gsm_mobile* rec, char* line); // the same, and ends no command

// registration.cpp; cops_handler and nwinfo_handler are exported, see kelo/gsm.h
event* creg_handler(gsm_mobile* rec, char* line);
event* csq_handler(gsm_mobile* rec, char* line);
// The answer to AT+COPS? among those of another command: into the record, and no more.
void note_operator(gsm_mobile* rec, const char* line);

// serving_cell.cpp
// The caller of these four holds record_lock.
void parse_qeng_info(gsm_mobile* rec, const char* line);
void parse_rfsts_info(gsm_mobile* rec, const char* line);
void parse_ccinfo(gsm_mobile* rec, const char* line);
bool take_cell_line(gsm_mobile* rec, const char* line); // false: none is due
event* expect_cell_lines(gsm_mobile* rec, char* line);  // a header with "service cell:"
event* servingcell_handler(gsm_mobile* rec, char* line);

// identity.cpp
event* cgmi_handler(gsm_mobile* rec, char* line);
event* cgsn_handler(gsm_mobile* rec, char* line);
event* cimi_handler(gsm_mobile* rec, char* line);
event* qccid_handler(gsm_mobile* rec, char* line);
event* cnum_handler(gsm_mobile* rec, char* line);
event* csca_handler(gsm_mobile* rec, char* line);

// sim.cpp
event* cpin_handler(gsm_mobile* rec, char* line);
event* cfun_full_handler(gsm_mobile* rec, char* line);
event* cfun_mini_handler(gsm_mobile* rec, char* line);
event* selslot_handler(gsm_mobile* rec, char* line);
event* ok_handler(gsm_mobile* rec, char* line);

// readback.cpp
event* scanmode_handler(gsm_mobile* rec, char* line);
event* band_handler(gsm_mobile* rec, char* line);
event* netseq_handler(gsm_mobile* rec, char* line);
event* mbn_list_handler(gsm_mobile* rec, char* line);
event* qmbncfg_list_handler(gsm_mobile* rec, char* line);
event* ati_handler(gsm_mobile* rec, char* line);
int libgsm_update_version_code(const char* text);
int libgsm_update_qmbncfg_code(const char* text);

// apn.cpp
event* apn_handler(gsm_mobile* rec, char* line);

} // namespace kelo
