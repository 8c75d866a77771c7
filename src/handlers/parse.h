// SPDX-License-Identifier: MIT
// What the lines of a modem say of network and cell, as plain values: no lock, no record. What a
// line does not say, or says unreadably, has no value; an empty text is none.
#pragma once

#include <kelo/gsm.h>

#include <cstdint>
#include <optional>

namespace kelo
{

// ---- parse_registration.cpp

// A line of "+CREG", "+CGREG" or "+CEREG".
struct registration {
    std::optional<int> n, stat, tech, rac;
    char lac[sizeof gsm_mobile::lac] = "";
    std::optional<std::uint64_t> cell_id;
    bool follows = false; // a change of the cell is followed up
};
std::optional<registration> read_registration(const char* line);

// ---- parse_technology.cpp

// The answer to the query of the operator.
struct network_operator {
    enum { none, named, unreadable } kind = unreadable;
    char name[128] = "";
};
std::optional<network_operator> read_operator(const char* line);

// A report of the access technology; one that is partial says nothing of operator and band.
struct technology {
    char act[sizeof gsm_mobile::act] = "";
    char plmn[sizeof gsm_mobile::plmn] = "";
    char band[sizeof gsm_mobile::band] = "";
    std::optional<int> channel;
    bool partial = false;
};
std::optional<technology> read_technology(const char* line);

// A read of the scan mode: whether the line is one, and the mode.
bool read_scan_mode(const char* line, std::optional<int>& mode);

// ---- parse_cell.cpp

// The figures of a serving cell.
struct serving_cell {
    const char* act = nullptr;
    std::optional<int> is5g, mcc, mnc, pcid, earfcn, ul_bandwidth, dl_bandwidth;
    std::optional<int> rsrp, rsrq, sinr, cqi;
    char lac[sizeof gsm_mobile::lac] = "";
    std::optional<std::uint64_t> cell_id;
};
std::optional<serving_cell> read_qeng(const char* line);  // none: a broken line
std::optional<serving_cell> read_rfsts(const char* line); // none: no cell of LTE
serving_cell read_cell_line(const char* line);            // one without a prefix
int classify_net_stem(const char* line);                  // of a "+QENG:" line, for qeng_net_stem

} // namespace kelo
