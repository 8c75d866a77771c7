// SPDX-License-Identifier: MIT
// SIM and PIN: 3GPP TS 27.007, 8.3 (+CPIN), 7.4 (+CLCK), 7.5 (+CPWD), 8.65 (+CPINR); +QSIMSTAT,
// +QPINC and +QUIMSLOT are Quectel's.
#include "emulator/core.h"

namespace kelo_emulator
{

int modem_core::sim_error() const
{
    if (session.cfun == 0)
        return sim.state == sim_state::absent ? 10 : 13;
    switch (sim.state) {
    case sim_state::ready:
        return 0;
    case sim_state::pin:
        return 11;
    case sim_state::puk:
        return 12;
    case sim_state::absent:
        return 10;
    case sim_state::busy:
        return 14;
    case sim_state::failure:
        break;
    }
    return 13;
}

void modem_core::relock_sim()
{
    if (sim.state == sim_state::absent || sim.state == sim_state::failure)
        return;
    sim.state = sim.pin_tries == 0 ? sim_state::puk
                : sim.locked       ? sim_state::pin
                                   : sim_state::ready;
}

void modem_core::sim_up()
{
    if (sim.state == sim_state::ready)
        report_sequence("sim_ready");
    else if (sim.state == sim_state::pin || sim.state == sim_state::puk)
        report_sequence("sim_locked");
}

namespace
{

using capture_list = std::vector<std::string>;

void cpin_read(modem_core& core, const capture_list&, command_reply& reply)
{
    const int error = core.sim_error();
    if (error == 0)
        reply.lines = {"+CPIN: READY"};
    else if (error == 11)
        reply.lines = {"+CPIN: SIM PIN"};
    else if (error == 12)
        reply.lines = {"+CPIN: SIM PUK"};
    else if (core.session.cfun == 0 && error == 13)
        reply.lines = {"+CPIN: NOT READY"};
    else
        cme(reply, error);
}

void unlocked(modem_core& core, command_reply& reply)
{
    core.sim.state = sim_state::ready;
    core.sim.pin_tries = 3;
    core.sim.puk_tries = 10;
    reply.wait_ms = core.get_number("pin_ms", 100);
    reply.then = [&core] {
        core.report_sequence("sim_unlocked");
        core.update_registration();
    };
}

// One try of the PIN. False, with the error in the reply, when it was wrong.
bool pin_right(modem_core& core, const std::string& pin, command_reply& reply)
{
    if (pin == core.sim.pin) {
        core.sim.pin_tries = 3;
        return true;
    }
    if (core.sim.pin_tries > 0 && --core.sim.pin_tries == 0)
        core.sim.state = sim_state::puk;
    cme(reply, 16);
    return false;
}

void cpin_set(modem_core& core, const capture_list& captures, command_reply& reply)
{
    const std::vector<std::string> codes = arguments(captures[0]);
    const int error = core.sim_error();
    if (error == 11 && codes.size() == 1) {
        if (pin_right(core, codes[0], reply))
            unlocked(core, reply);
    } else if (error == 12) {
        if (codes.size() == 2 && codes[0] == core.sim.puk) {
            core.sim.pin = codes[1];
            unlocked(core, reply);
        } else {
            if (--core.sim.puk_tries == 0)
                core.sim.state = sim_state::failure; // blocked for good
            cme(reply, 16);
        }
    } else {
        cme(reply, error && error != 11 ? error : 3);
    }
}

void clck(modem_core& core, const capture_list& captures, command_reply& reply)
{
    const std::vector<std::string> values = arguments(captures[0]);
    const int error = core.sim_error();
    if (values.size() < 2 || values[0] != "SC") {
        cme(reply, values.size() < 2 ? 50 : 4);
    } else if (error && error != 11) {
        cme(reply, error);
    } else if (values[1] == "2") {
        reply.lines = {std::string("+CLCK: ") + (core.sim.locked ? "1" : "0")};
    } else if (values.size() < 3 || (values[1] != "0" && values[1] != "1")) {
        cme(reply, 50);
    } else if (pin_right(core, values[2], reply)) {
        core.sim.locked = values[1] == "1";
    }
}

void cpwd(modem_core& core, const capture_list& captures, command_reply& reply)
{
    const std::vector<std::string> values = arguments(captures[0]);
    if (values.size() != 3 || values[0] != "SC")
        cme(reply, 50);
    else if (const int error = core.sim_error())
        cme(reply, error);
    else if (pin_right(core, values[1], reply))
        core.sim.pin = values[2];
}

// Whether the card can tell its tries; a locked one can.
bool card_answers(modem_core& core, command_reply& reply)
{
    const int error = core.sim_error();
    if (error == 0 || error == 11 || error == 12)
        return true;
    cme(reply, error);
    return false;
}

void qpinc(modem_core& core, const capture_list& captures, command_reply& reply)
{
    const std::string wanted = captures.empty() ? "*" : unquote(captures[0]);
    if (!card_answers(core, reply))
        return;
    if (pattern_matches(wanted, "SC"))
        reply.lines.push_back("+QPINC: \"SC\"," + std::to_string(core.sim.pin_tries) + "," +
                              std::to_string(core.sim.puk_tries));
    if (pattern_matches(wanted, "P2"))
        reply.lines.push_back("+QPINC: \"P2\",3,10");
    if (reply.lines.empty())
        cme(reply, 50);
}

void cpinr(modem_core& core, const capture_list& captures, command_reply& reply)
{
    const std::string wanted = captures.empty() ? "*" : unquote(captures[0]);
    const std::pair<const char*, std::string> codes[] = {
        {"SIM PIN", std::to_string(core.sim.pin_tries) + ",3"},
        {"SIM PUK", std::to_string(core.sim.puk_tries) + ",10"},
        {"SIM PIN2", "3,3"},
        {"SIM PUK2", "10,10"},
    };
    if (!card_answers(core, reply))
        return;
    for (const auto& [code, tries] : codes)
        if (pattern_matches(wanted, code))
            reply.lines.push_back(std::string("+CPINR: ") + code + "," + tries);
    if (reply.lines.empty())
        cme(reply, 50);
}

void simstat_read(modem_core& core, const capture_list&, command_reply& reply)
{
    reply.lines = {std::string("+QSIMSTAT: ") + (core.session.simstat ? "1," : "0,") +
                   (core.sim.state == sim_state::absent ? "0" : "1")};
}

void simstat_set(modem_core& core, const capture_list& captures, command_reply& reply)
{
    if (captures[0] != "0" && captures[0] != "1")
        cme(reply, 50);
    else
        core.session.simstat = captures[0] == "1";
}

void qinistat(modem_core& core, const capture_list&, command_reply& reply)
{
    // 1 CPIN ready, 2 SMS done, 4 phone book done
    reply.lines = {std::string("+QINISTAT: ") + (core.sim_error() ? "0" : "7")};
}

void slot_read(modem_core& core, const capture_list&, command_reply& reply)
{
    reply.lines = {"+QUIMSLOT: " + core.get("slot", "1")};
}

// The card in the other slot answers from now on, and its reports come behind the OK.
void slot_set(modem_core& core, const capture_list& captures, command_reply& reply)
{
    std::map<std::string, std::string>& variables = core.dialogue.variables;
    if (captures[0] != "1" && captures[0] != "2")
        return cme(reply, 50);
    if (captures[0] == core.get("slot", "1"))
        return;
    variables["slot"] = captures[0];
    std::swap(core.sim, core.other_sim);
    for (const std::string name : {"imsi", "iccid", "own_number"})
        std::swap(variables[name], variables["other_" + name]);
    core.relock_sim();
    reply.then = [&core] {
        core.report_sequence("sim_off");
        core.after(500, [&core] {
            core.sim_up();
            core.update_registration();
        });
    };
}

constexpr builtin_row table[] = {
    {"sim", "AT+CPIN?", cpin_read},
    {"sim", "AT+CPIN=*", cpin_set},
    {"sim", "AT+CLCK=*", clck},
    {"sim", "AT+CPWD=*", cpwd},
    {"cpinr", "AT+CPINR", cpinr},
    {"cpinr", "AT+CPINR=*", cpinr},
    {"quectel-sim", "AT+QPINC?", qpinc},
    {"quectel-sim", "AT+QPINC=*", qpinc},
    {"quectel-sim", "AT+QSIMSTAT?", simstat_read},
    {"quectel-sim", "AT+QSIMSTAT=*", simstat_set},
    {"quectel-sim", "AT+QINISTAT", qinistat},
    {"slots", "AT+QUIMSLOT?", slot_read},
    {"slots", "AT+QUIMSLOT=*", slot_set},
};

} // namespace

builtin_table sim_builtins()
{
    return {table, std::size(table)};
}

} // namespace kelo_emulator
