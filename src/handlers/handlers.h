// Response handlers: one function per kind of answer, one file per subject. Each turns one line of
// modem output into record fields and at most one event.
//
// Threads: all of them run on the mobile task, inside libgsm_check_event. A handler holds
// record_lock while it writes the fields of its line. What it has to run or to call besides (a
// shell line, a command to the port, a callback of the host, the flow lists) it does after it has
// let go. Words that leave: cell_pdpdeact, cell_ccinfo_recv, g_NetStaFlag, verizon_flag.
//
// The contract, for all: a null record or line gives null and changes nothing; to hold a text means
// a case-sensitive search anywhere in the line; the line may be cut in pieces.
#pragma once

#include "core/core.h"

namespace kelo
{

// general.cpp
event* general_handler(gsm_mobile* rec, char* line);
void dhcpv6_handler(gsm_mobile* rec, char* line);

// registration.cpp; cops_handler and nwinfo_handler are exported, see kelo/gsm.h
event* creg_handler(gsm_mobile* rec, char* line);
event* csq_handler(gsm_mobile* rec, char* line);

// serving_cell.cpp
// The first three take record_lock. A "+QENG:" line is classified whole, ahead of the parse that
// cuts it.
void classify_net_stem(gsm_mobile* rec, const char* line);
void parse_qeng_info(gsm_mobile* rec, char* line);
void parse_ccinfo(gsm_mobile* rec, char* line);
void expect_cell_lines(const char* line); // a header with "service cell:"
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
