// SPDX-License-Identifier: MIT
// One line of modem output through one response handler, on a record that earlier lines have
// filled. The first byte chooses the handler, the second the family, the state of the flow and
// whether a cell line is to come; the rest is the line. The last of 32 families stands for a line
// whose last byte never seems to end.

#include "at/at.h"
#include "handlers/handlers.h"
#include "handlers/questions.h"
#include "modules/modules.h"
#include "services/services.h"
#include "support/text.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>

using namespace kelo;

namespace
{

constexpr at_handler handlers[] = {
    general_handler,      creg_handler,     csq_handler,       cops_handler,      nwinfo_handler,
    servingcell_handler,  cgmm_handler,     cgmi_handler,      cgmr_handler,      cgsn_handler,
    cimi_handler,         gps_handler,      qccid_handler,     cnum_handler,      csca_handler,
    cpin_handler,         selslot_handler,  cfun_full_handler, cfun_mini_handler, ok_handler,
    band_handler,         scanmode_handler, netseq_handler,    mbn_list_handler,  ati_handler,
    qmbncfg_list_handler, qmtconn_handler,  apn_handler,       question_line,
};

template <std::size_t... sizes> void expect_terminated(const char (&... fields)[sizes])
{
    if (!((std::memchr(fields, '\0', sizes) != nullptr) && ...))
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // The handlers' own messages go nowhere, and the one that runs a shell line finds no program.
    setenv("PATH", "/nowhere", 1);
    return std::freopen("/dev/null", "w", stdout) == nullptr ? -1 : 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    if (size < 2)
        return 0;
    const unsigned state = data[1];
    is_quectel = static_cast<int>(state % 32);
    cell_ccinfo_recv = (state & 32) != 0 ? 2 : 0;
    is_pin_ready = (state & 64) != 0 ? 1 : 0;
    word_set(flow_walked, (state & 128) != 0 ? 1 : 0);

    const std::size_t length = strnlen(reinterpret_cast<const char*>(data) + 2, size - 2);
    std::string text(reinterpret_cast<const char*>(data) + 2, length);
    if (state % 32 == 31 && length != 0)
        text.append(100'000, text.back());
    const auto line = std::make_unique<char[]>(text.size() + 1); // of just its size
    std::memcpy(line.get(), text.c_str(), text.size() + 1);
    gsm_mobile& r = g_mobile;
    text_set(r.at_dev, "dev"); // what no line of the modem may change
    text_set(r.apn, "apn");
    const event* const raised = handlers[data[0] % std::size(handlers)](&r, line.get());
    if (raised != nullptr && raised != &gsm_event)
        std::abort();
    if (std::strcmp(r.at_dev, "dev") != 0 || std::strcmp(r.apn, "apn") != 0 || r.fd != -1)
        std::abort();
    expect_terminated(r.model, r.mfrs, r.revision, r.sn, r.imsi, r.iccid, r.gps_loc, r.version_code,
                      r.qmbn_code, r.number, r.smscenter, r.act, r.plmn, r.band, r.lac, r.oper,
                      r.band_gsm, r.band_lte, r.band_tds, gsm_event.callingnum);
    return 0;
}
