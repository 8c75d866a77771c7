// SPDX-License-Identifier: MIT
// The exchange with the modem: the lists of commands and the choice of the next one, writing,
// timing and reading, and the profile files that the texts of some commands come from.
//
// Threads: the mobile task walks the lists and is the only reader of the port. Any thread may write
// a command (exec_at_command, libgsm_send_at).
// Nodes live for ever once they are on a list. What another thread may change of one (its flags,
// custom_cmd, custom_seq, timeout) and the lists themselves are guarded by flow_lock; cmd,
// countdown and retries_left belong to the mobile task.
// Words that leave: flow_walked.
#pragma once

#include "core/core.h"
#include "support/owned.h"
#include <kelo/at.h>

#include <cstddef>

namespace kelo
{

using at_list = list_head; // of at_info nodes

// ---- Lists (lists.cpp)

extern at_list start_sim1_list;
extern at_list reload_sim1_list;
extern at_list start_sim2_list;
extern at_list reload_sim2_list;
extern at_list sms_text_list;
extern at_list sms_pdu_list;
extern at_list sms_added_list; // of a module whose own flow sends none

// The list of a start or reload flow of SIM 1 or 2; null for any other pair.
at_list* at_list_of(int flow, int sim);

extern at_list* cur_at_list; // the list being walked, null after a change to no flow
extern int at_seq_cursor;    // lowest seq that may still be picked in this pass

at_info* at_info_create(int id, const char* name, const char* cmd, int timeout, int code,
                        unsigned int flags, at_handler handler, int seq, at_pre_treat pre_treat,
                        int retries, const char* cmd_template);
void at_info_free(at_info* at);
inline at_info* at_of(list_head* node)
{
    return list_entry(node, at_info, node);
}

// The seq that counts: that of a custom item when it has one.
inline int at_effective_seq(const at_info* at)
{
    return at->custom_seq != 0 ? at->custom_seq : at->seq;
}

void at_list_append(at_list* list, at_info* at); // caller holds flow_lock
void at_list_free(at_list* list);

// The next command of the list, marked as sent; null at the end. Caller holds flow_lock.
at_info* at_list_next(at_list* list);

// Marks every command of the current list as sent, so that the flow ends behind the running one.
// Takes flow_lock.
void at_flow_skip_rest();

// Sets flags of one node, or of the command last taken from a list. They take flow_lock.
void at_set_flags(at_info* at, unsigned int flags);
unsigned int at_get_flags(at_info* at);
void at_flag_current(gsm_mobile* rec, unsigned int flags);

// ---- Who hears of the exchange

// What is found in a read ahead of its lines.
struct read_view {
    char* report = nullptr;    // where a report begins that takes the whole read; null for none
    std::size_t keep_back = 0; // bytes at its end that go with the next read
};

// What the rooms above make of it; filled once, at init, by exchange_use. All run on the mobile
// task.
struct exchange_hooks {
    // A line that came while no command ran.
    event* (*idle_line)(gsm_mobile* rec, char* line) = [](gsm_mobile*, char*) -> event* {
        return nullptr;
    };
    // A line that carries the text of somebody else; no other function sees it.
    event* (*foreign_line)(gsm_mobile* rec, char* line) = [](gsm_mobile*, char*) -> event* {
        return nullptr;
    };
    // Each other line, ahead of the handler of the command that runs, if one does.
    void (*each_line)(gsm_mobile* rec, const at_info* running,
                      char* line) = [](gsm_mobile*, const at_info*, char*) {};
    // The bytes of a read, which may hold NUL and have room for one behind them; leaves a text,
    // without what no handler is to see.
    read_view (*each_read)(char* bytes, std::size_t length) = [](char* bytes, std::size_t length) {
        bytes[length] = '\0';
        return read_view{};
    };
    // A read that holds such a report.
    event* (*report)(gsm_mobile* rec, char* text,
                     char* report) = [](gsm_mobile*, char*, char*) -> event* { return nullptr; };
    // Ahead of a command; `custom`: with a text of the host's. False passes one that is not over.
    bool (*before_command)(gsm_mobile* rec, const at_info* at,
                           bool custom) = [](gsm_mobile*, const at_info*, bool) { return true; };
    // What goes out instead of a row's own text; null: that.
    const char* (*instead)(const char* command) = [](const char*) -> const
        char* { return nullptr; };
    // A second without a word of the modem, or its like; `idle`: no command runs.
    void (*tick)(bool idle) = [](bool) {};
};
void exchange_use(const exchange_hooks& hooks);

// Whether the line carries a text of whoever may publish to the topic, or of the network's
// services: such a text must not speak for the modem.
bool is_foreign(const char* line);

// Where in a read the needle stands outside the foreign lines, or null.
char* find_spoken(char* text, const char* needle);

// ---- Exchange (exchange.cpp)

// Writes text, CR, LF in one write, three attempts at most, a second apart. 0 after the attempts;
// -1 for no record, a closed port, no text, no memory. Takes port_lock for each attempt. While the
// body of a message is due, a thread waits for it, half a minute at most; what the mobile task
// writes is put off, since it has to read the prompt.
int exec_at_command(gsm_mobile* rec, const char* text);
void exchange_write_deferred(gsm_mobile* rec); // on the mobile task, with no body due

// Makes the text of a command. One that does not fit is cut and said: the modem will not understand
// it.
[[gnu::format(printf, 3, 4)]] void at_command_write(char* command, std::size_t size,
                                                    const char* format, ...);

// Writes bytes as they are in the same way, with up to `attempts` attempts; `name` is what the
// retry lines call the function. Gives the result of the last write, or -2 for a port that was
// closed.
long port_write(gsm_mobile* rec, const char* bytes, std::size_t length, int attempts,
                const char* name, const char* shown);

// Reads the port dry, but for the limit of one response, behind what was kept back of the read
// before. The buffer always has room for a NUL behind `length`.
struct response {
    text_pointer text;
    std::size_t length = 0;
    bool heard = false;  // more than was kept back
    bool drained = true; // false: the limit came first, and more waits
};
inline constexpr std::size_t response_limit = 64 * 1024;
int read_at_result(gsm_mobile* rec, response& result);

// What a pre-treatment gives for a command that is to be passed over; anything else lets it go.
inline constexpr int at_not_wanted = 1;

// Picks the next command and sends it. Null when a row was passed over, and when the list has
// nothing more; `list_ended` tells them apart.
at_info* libgsm_send_atcommand(gsm_mobile* rec, bool& list_ended);

// Reads and handles what the port has. Gives the last event of the batch, or null. `drained` false:
// more waits than one response may hold. `answering`: a line was of the running command's answer.
struct read_outcome {
    event* raised = nullptr;
    bool drained = true;
    bool answering = false;
};
read_outcome libgsm_check_event(gsm_mobile* rec, at_info* cur);

int libgsm_schedule_run(gsm_mobile* rec, at_info* cur);

// ---- Commands of the host's and their answers (ask.cpp), for the mobile task

void ask_task_begins();
void ask_task_ends(); // whatever has no end yet ends with the port
void ask_look_at_clock(std::int64_t now_ms);

// The next command, null for none now; the text is the caller's until it is over.
const char* ask_next(int& timeout_s);
void ask_over(); // its time is: an answer that is still due did not come

// A whole line of the modem's own: true for one that ends the command that runs.
bool ask_hear(const char* line);
void ask_line_is_lost(); // one that was too long

// A line, or a piece of one, that may be a prompt; a second of silence. What draws a prompt or data
// all the same is told to leave that.
void ask_watch_prompt(gsm_mobile* rec, const char* line);
void ask_tick(gsm_mobile* rec);

// ---- Profile files (profiles.cpp)

// The keys that are about the file itself; all others are commands.
inline constexpr char module_key_name[] = "MODULE";
inline constexpr char model_key_name[] = "MODEL";
inline constexpr char like_key_name[] = "LIKE";

struct cfg_item {
    const char* name;
    const char* value;
};

struct cfg_file {
    char* path;
    char* module; // null without a MODULE line
    char* items; // name and value of one behind the other, each terminated: a device keeps hundreds
    std::size_t items_size;
    list_head node;

    // Of a module that the file brings by itself: values of its items, null for none
    // (modules/by_file.cpp).
    const char* model;
    const char* like;
};

extern list_head cfg_file_list;

int search_cfg_file(const char* folder);
int search_cfg_folders(); // the operator's own, where there is one, ahead of the one that is told
int cfg_file_add(const char* folder, const char* name);
int parse_cfg_file(cfg_file* cfg);
cfg_file* cfg_file_find(const char* model);

// The item at `at`, from 0 on, which moves behind it; false behind the last.
bool cfg_next_item(const cfg_file* cfg, std::size_t& at, cfg_item& item);
const char* cfg_value(const cfg_file* cfg, const char* key); // of the first such item; or null

void trim_tail(char* text, std::size_t length);
void trim_copy(char* destination, const char* source);

} // namespace kelo
