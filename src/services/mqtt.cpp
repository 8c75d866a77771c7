// SPDX-License-Identifier: MIT
// MQTT inside the modem: one update brings the modem's client up to a confirmed subscription.
//
// An attempt configures the client and opens the connection, without waiting for answers; the
// modem's reports then carry it on, report by report. Both run on the mobile task. Two locks:
//
// attempt_mutex  held over a whole attempt, its sleeps included, and over a stop: a stop waits for
//                the attempt under way and no longer. It is the outermost lock of the library and
//                is taken in these two places alone, never under another one. A callback of the
//                host never meets it held by its own thread: callbacks come out of the reading of
//                lines, and the task that reads lines is not in an attempt then.
// config_lock    the settings, whether an update is pending, and what the last attempt was made
//                with; held for moments, a leaf. An attempt works on a copy, so that new settings
//                may come in at any time without waiting for it.
#include "services/services.h"

#include "at/answers.h"
#include "at/at.h"
#include "support/diag.h"
#include "support/scan.h"
#include "support/seldom.h"
#include "support/sleeps.h"
#include "support/text.h"
#include "support/waits.h"
#include <kelo/mqtt.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kelo
{

namespace
{

// Set by the host, called on the mobile task.
mqtt_urc_handler mqtt_urc_callback = nullptr;

pthread_mutex_t attempt_mutex = PTHREAD_MUTEX_INITIALIZER;
lock config_lock;

// What the host handed in last. update_pending: the update has not ended.
KELO_SELDOM mqtt_config settings = {};

// What the last attempt was made with. update_pending: its reports may still come.
KELO_SELDOM mqtt_config attempted = {};

// From the start of an attempt until its open is seen to have reached the modem, by its echo: what
// is read ahead of that is of an earlier connection, and no longer stands. A modem that echoes
// nothing answers the attempt's first command at least, ahead of the result of its open.
struct {
    bool reopening, echoes, answers;
} sign = {};

// ---- The pace of attempts: the mobile task's alone, but for the switch

// Idle ticks to the next attempt.
int mqtt_retry_ticks = 0;
constexpr int ticks_between_attempts = 5;

int backing_off = 0; // by the host's wish

constexpr int answer_ticks = 80; // an open is answered within 75 s
constexpr int fleet_ticks = 10;  // over which devices that lost one broker come back to it
constexpr int first_wait = 10;   // doubled with each further failure
constexpr int longest_wait = 640;
constexpr std::int64_t steady_ms = 60000; // a subscription that stood for less failed as well

int attempts = 0;  // in a row, the one that led to a subscription among them
bool anew = false; // the row has ended; unless it is one of subscriptions that do not last
std::int64_t stood_since = 0;

// 20 % more or less than the wait that is due.
int wait_of_failure()
{
    const int wait = static_cast<int>(doubled(first_wait, longest_wait, attempts - 1));
    return wait - wait / 5 + random_up_to(wait * 2 / 5);
}

// The modem took a step: the next attempt must not tear this one down in the middle.
void attempt_goes_on()
{
    mqtt_retry_ticks = word_get(backing_off) == 0 ? ticks_between_attempts
                                                  : answer_ticks + random_up_to(answer_ticks / 5);
}

void attempt_begins()
{
    attempts++;
    attempt_goes_on();
    if (word_get(backing_off) != 0)
        mqtt_retry_ticks = std::max(mqtt_retry_ticks, wait_of_failure());
}

void attempt_failed()
{
    if (word_get(backing_off) != 0)
        mqtt_retry_ticks = wait_of_failure();
}

void row_ends(std::int64_t since)
{
    anew = attempts > 0;
    stood_since = since;
}

// Ahead of the first attempt of a row.
void begin_row()
{
    const bool steady = monotonic_ms() - stood_since >= steady_ms;
    anew = false;
    if (steady)
        attempts = 0;
    if (word_get(backing_off) != 0)
        mqtt_retry_ticks = steady ? random_up_to(fleet_ticks) : wait_of_failure();
}

constexpr long second_us = 1000000;
constexpr long tenth_us = 100000;

// Not a lock_scope, which keeps what is said back until the end.
class attempt_scope
{
  public:
    attempt_scope()
    {
        port_trace_pause(true); // a callback that asks for the stop would wait for itself
        if (!locks_abandoned())
            pthread_mutex_lock(&attempt_mutex);
    }
    ~attempt_scope()
    {
        if (!locks_abandoned())
            pthread_mutex_unlock(&attempt_mutex);
        port_trace_pause(false);
    }
    attempt_scope(const attempt_scope&) = delete;
    attempt_scope& operator=(const attempt_scope&) = delete;
};

// ---- The host's settings

enum : unsigned { in_command = 1, needed = 2, digits = 4 };

struct text_field {
    const char* name;
    std::size_t offset;
    std::size_t size;
    unsigned rules;
};
#define FIELD(name) #name, offsetof(mqtt_config, name), sizeof(mqtt_config::name)
constexpr text_field text_fields[] = {
    {FIELD(host), in_command | needed},
    {FIELD(port), in_command | needed | digits},
    {FIELD(client_id), in_command},
    {FIELD(user), in_command},
    {FIELD(password), in_command},
    {FIELD(topic), in_command | needed},
    {FIELD(ca_file), 0},
    {FIELD(cert_file), 0},
    {FIELD(key_file), 0},
};
#undef FIELD

bool refuse(const char* what, const char* why)
{
    diag_plain("kelo_set_cellular_wake: refused, %s %s\n", what, why);
    return false;
}

bool accepts(const mqtt_config& wanted, const text_field& field)
{
    const char* const text = reinterpret_cast<const char*>(&wanted) + field.offset;
    if (std::memchr(text, '\0', field.size) == nullptr)
        return refuse(field.name, "is not terminated");
    if ((field.rules & in_command) != 0 && !accepts_text(field.name, text))
        return false;
    if ((field.rules & needed) != 0 && *text == '\0')
        return refuse(field.name, "is empty");
    if ((field.rules & digits) != 0 && text[std::strspn(text, "0123456789")] != '\0')
        return refuse(field.name, "is not a number");
    return true;
}

// With nothing behind the texts, so that two can be compared.
mqtt_config cleaned(const mqtt_config& from)
{
    mqtt_config clean = {};
    clean.update_pending = 1;
    clean.tls_mode = from.tls_mode;
    for (const text_field& field : text_fields)
        text_copy(reinterpret_cast<char*>(&clean) + field.offset, field.size,
                  reinterpret_cast<const char*>(&from) + field.offset);
    clean.keepalive = from.keepalive;
    clean.mqtt_done_callback = from.mqtt_done_callback;
    return clean;
}

// Whether both lead the modem to the same subscription.
bool same_subscription(const mqtt_config& one, const mqtt_config& other)
{
    constexpr std::size_t first = offsetof(mqtt_config, tls_mode);
    constexpr std::size_t behind = offsetof(mqtt_config, keepalive) + sizeof(int);
    return std::memcmp(reinterpret_cast<const char*>(&one) + first,
                       reinterpret_cast<const char*>(&other) + first, behind - first) == 0;
}

int libgsm_set_mqtt_info(const mqtt_config* wanted)
{
    if (wanted == nullptr) {
        refuse("no settings", "were given");
        return -1;
    }
    for (const text_field& field : text_fields)
        if (!accepts(*wanted, field))
            return -1;
    const mqtt_config clean = cleaned(*wanted);
    const lock_scope<config_lock> hold;
    settings = clean;
    return 0;
}

int libgsm_check_mqtt_update()
{
    const lock_scope<config_lock> hold;
    return settings.update_pending;
}

int libgsm_set_mqtt_urc_callback(mqtt_urc_handler callback)
{
    word_set(mqtt_urc_callback, callback);
    return 0;
}

// ---- An attempt

// Sends a command and gives the modem `us` to take it; nothing waits for the answer. Behind a stop
// of the library what is left of an attempt stays unsaid.
[[gnu::format(printf, 2, 3)]] void command(long us, const char* format, ...)
{
    if (word_get(global_quagga_stop) != 0)
        return;
    char text[640]; // the longest, with all fields full, has 600
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    libgsm_send_at(text);
    microseconds_sleep(us);
}

struct tls_file {
    char (mqtt_config::*path)[64];
    const char* modem_name;
    const char* setting;
};
constexpr tls_file tls_files[] = {
    {&mqtt_config::ca_file, "RAM:cacert.pem", "cacert"},
    {&mqtt_config::cert_file, "RAM:client.pem", "clientcert"},
    {&mqtt_config::key_file, "RAM:user_key.pem", "clientkey"},
};

bool refuse_file(const char* path, const char* why)
{
    diag_at(plain, "libgsm_set_cellular_wake", "'%s' is not uploaded, it %s!\n", path, why);
    return false;
}

// The file's bytes as they are, a NUL included, and the line end that every command has; `length`
// is without it. Null for a file that is passed over.
text_pointer read_for_upload(const char* path, std::size_t& length)
{
    struct stat about = {};
    if (stat(path, &about) == 0 && !S_ISREG(about.st_mode)) {
        refuse_file(path, "is not a regular file");
        return nullptr;
    }
    char* text = nullptr;
    const int read = about.st_size > KELO_MQTT_FILE_LIMIT ? KELO_MQTT_FILE_LIMIT + 1
                                                          : ReadFile2String(path, &text);
    const text_pointer content(text);
    if (read > KELO_MQTT_FILE_LIMIT)
        refuse_file(path, "is larger than 64 KiB");
    if (read <= 0 || read > KELO_MQTT_FILE_LIMIT)
        return nullptr;
    length = static_cast<std::size_t>(read);
    text_pointer bytes = text_room(length + 2);
    if (bytes != nullptr) {
        std::memcpy(bytes.get(), text, length);
        std::memcpy(bytes.get() + length, "\r\n", 2);
    }
    return bytes;
}

// The modem counts the bytes that it announced for: were some left out, it would take the next
// commands for content. What the port does not take at once follows; and no key stands in a
// diagnostic line.
void write_content(const char* name, const char* bytes, std::size_t length)
{
    gsm_mobile* const rec = modem_record();
    if (rec == nullptr || word_get(global_quagga_stop) != 0)
        return;
    std::size_t done = 0;
    for (int pieces = 20; done < length + 2 && pieces > 0; pieces--) {
        if (done > 0)
            microseconds_sleep(tenth_us);
        const long written = port_write(rec, bytes + done, length + 2 - done, 3, __func__, name);
        if (written <= 0)
            break;
        done += static_cast<std::size_t>(written);
    }
    if (done < length)
        diag_at(plain, "libgsm_set_cellular_wake", "%zu of %zu bytes of '%s' were written!\n", done,
                length, name);
}

void upload(const mqtt_config& with, const tls_file& file)
{
    std::size_t length = 0;
    const text_pointer bytes = read_for_upload(with.*file.path, length);
    if (bytes == nullptr)
        return;
    command(tenth_us, "AT+QFDEL=\"%s\"", file.modem_name);
    command(tenth_us, "AT+QFUPL=\"%s\",%zu,100", file.modem_name, length);
    write_content(file.modem_name, bytes.get(), length);
    microseconds_sleep(tenth_us);
}

void make_attempt(const mqtt_config& with)
{
    command(second_us, "AT+QMTDISC=0");
    command(second_us, "AT+QMTCLOSE=0");
    command(tenth_us, "AT+QMTCFG=\"ssl\",0,%d,1", with.tls_mode != KELO_TLS_NONE ? 1 : 0);
    if (with.tls_mode == KELO_TLS_FILES) {
        for (const tls_file& file : tls_files)
            upload(with, file);
        for (const tls_file& file : tls_files)
            command(tenth_us, "AT+QSSLCFG=\"%s\",1,\"%s\"", file.setting, file.modem_name);
        command(tenth_us, "AT+QSSLCFG=\"seclevel\",1,2");
        command(tenth_us, "AT+QSSLCFG=\"sslversion\",1,4");
        command(tenth_us, "AT+QSSLCFG=\"ciphersuite\",1,0xFFFF");
        command(tenth_us, "AT+QSSLCFG=\"ignorelocaltime\",1,1");
    }
    command(tenth_us, "AT+QMTCFG=\"keepalive\",0,%d", with.keepalive);
    if (libgsm_get_verizon_flag() != 0)
        command(second_us, "AT+QMTCFG=\"pdpcid\",0,3");
    command(second_us, "AT+QMTOPEN=0,\"%s\",%s", with.host, with.port);
}

bool ready_for_attempt()
{
    const int pin = word_get(is_pin_ready);
    const unsigned int up = cellular_get_status(CELL_STATUS_READY);
    if (word_get(isLowPower) != 0 || (pin != 0 && up != 0))
        return true;
    diag_debug("------> is not ready to update mqtt(pin=%d, up=%d)!\n", pin, static_cast<int>(up));
    return false;
}

// Whether the next attempt has settings that none failed with yet.
bool other_settings()
{
    const lock_scope<config_lock> hold;
    return !same_subscription(attempted, settings);
}

// What the attempt is made with, as it stands at this moment.
mqtt_config begin_attempt()
{
    const lock_scope<config_lock> hold;
    attempted = settings;
    sign = {.reopening = true, .echoes = false, .answers = false};
    return attempted;
}

} // namespace

int libgsm_set_cellular_wake()
{
    const attempt_scope whole;
    if (libgsm_check_mqtt_update() == 0)
        return -1;
    if (!ready_for_attempt()) {
        row_ends(-steady_ms);
        return -1;
    }
    if (word_get(backing_off) != 0 && other_settings()) {
        attempts = 0;
        mqtt_retry_ticks = std::min(mqtt_retry_ticks, ticks_between_attempts);
    }
    if (anew)
        begin_row();
    if (mqtt_retry_ticks-- > 0)
        return 0;
    attempt_begins();
    make_attempt(begin_attempt());
    return 0;
}

int libgsm_stop_mqtt_update()
{
    const attempt_scope whole;
    const lock_scope<config_lock> hold;
    diag_plain("[Cell]---> Stop mqtt = %d \n", settings.update_pending);
    settings.update_pending = 0;
    return 0;
}

namespace
{

// ---- The chain of reports

// Looks for the sign of the open; config_lock is held.
void look_for_open(const char* line)
{
    sign.echoes |= text_has(line, "AT+QMT");
    sign.answers |= text_has(line, "OK") || text_has(line, "ERROR");
    const bool result = !sign.echoes && sign.answers && text_has(line, "+QMTOPEN");
    if (result || text_has(line, "AT+QMTOPEN"))
        sign.reopening = false;
}

// The settings that a report is to be read with, or false: no update is pending, or the report is
// about an attempt that was made with others or was given up since.
bool chain_settings(const char* line, mqtt_config& with)
{
    const lock_scope<config_lock> hold;
    if (sign.reopening)
        look_for_open(line);
    if (!text_has(line, "QMT"))
        return false;
    const bool ours = attempted.update_pending == 0 || same_subscription(attempted, settings);
    if (settings.update_pending == 0 || sign.reopening || !ours)
        return false;
    with = settings;
    return true;
}

// False when a stop or other settings came first.
bool end_update(const mqtt_config& with, mqtt_done_handler& done)
{
    const lock_scope<config_lock> hold;
    if (settings.update_pending == 0 || !same_subscription(with, settings))
        return false;
    settings.update_pending = 0;
    attempted.update_pending = 0;
    done = settings.mqtt_done_callback;
    return true;
}

void subscription_stands(const mqtt_config& with)
{
    mqtt_done_handler done = nullptr;
    if (!end_update(with, done))
        return;
    row_ends(monotonic_ms());
    if (done != nullptr)
        done(1);
    else
        diag_at(plain, "libgsm_check_mqtt_sub", "no mqtt_done_callback is set!\n");
    diag_plain("------> update mqtt success");
}

// "+QMTCONN: 0,0,4" begins as a success does: the message was acknowledged, with a refusal.
bool is_refusal(const char* behind_result)
{
    int code = 0;
    return scan(behind_result, ",", dec(code)) && code != 0;
}

// What else is said of client 0 is the end of the attempt, but for a packet that is sent again.
bool is_failure(const char* line)
{
    return text_has(line, "+QMTOPEN: 0,") || text_has(line, "+QMTSTAT: 0,") ||
           text_has(line, "+QMTCONN: 0,2") ||
           (text_has(line, "+QMTSUB: 0,1,") && !text_has(line, "+QMTSUB: 0,1,1"));
}

} // namespace

int libgsm_check_mqtt_sub(const char* line)
{
    static constexpr char connected[] = "+QMTCONN: 0,0";
    mqtt_config with;
    // An incoming message and the echo of a command may hold any text, a report's too.
    if (line == nullptr || text_has(line, "+QMTRECV") || !chain_settings(line, with) ||
        text_has(line, "AT+QMT"))
        return 0;
    if (text_has(line, "+QMTSUB: 0,1,0,0")) {
        subscription_stands(with);
    } else if (text_has(line, "+QMTOPEN: 0,0")) {
        diag_plain("------> mqtt open success");
        attempt_goes_on();
        command(second_us, "AT+QMTCONN=0,\"%s\",\"%s\",\"%s\"", with.client_id, with.user,
                with.password);
    } else if (const char* const found = text_find(line, connected)) {
        const char* const behind = found + sizeof connected - 1;
        if (is_refusal(behind)) {
            diag_plain("------> mqtt connect refused, %s", found);
            attempt_failed();
            return 0;
        }
        diag_plain("------> mqtt connect success");
        attempt_goes_on();
        command(second_us, "AT+QMTSUB=0,1,\"%s\",0", with.topic);
    } else if (is_failure(line)) {
        attempt_failed();
    }
    return 0;
}

int libgsm_mqtt_urc_error(const char* text)
{
    const mqtt_urc_handler callback = word_get(mqtt_urc_callback);
    if (callback != nullptr)
        callback(text);
    return 0;
}

// The modem's echo of the query arms the test; only a report of a connected client 0 ahead of the
// final "OK" disarms it.
event* qmtconn_handler(gsm_mobile* rec, char* line)
{
    if (text_has(line, "AT+QMTCONN?"))
        word_set(mqtt_conn_lost, 1);
    const bool connecting = text_has(line, "+QMTCONN: 0,0");
    const bool connected = !connecting && text_has(line, "+QMTCONN: 0,3");
    if (connected)
        word_set(mqtt_conn_lost, 0);
    if (connecting || connected) {
        lock_scope<record_lock> guard;
        finish_command(rec);
    }
    if (text_has(line, "OK") && word_get(mqtt_conn_lost) != 0)
        libgsm_mqtt_urc_error("Mqtt is lost");
    return nullptr;
}

} // namespace kelo

using namespace kelo;

int kelo_set_cellular_wake(const struct mqtt_config* config)
{
    return libgsm_set_mqtt_info(config);
}

int kelo_check_mqtt_update(void)
{
    return libgsm_check_mqtt_update();
}

int kelo_set_urc_callback(mqtt_urc_handler callback)
{
    return libgsm_set_mqtt_urc_callback(callback);
}

int kelo_set_mqtt_backoff(int on)
{
    word_set(backing_off, on);
    return 0;
}

int kelo_is_mqtt_received(void)
{
    return cellular_is_mqtt_received();
}

int kelo_clean_mqtt_received(void)
{
    return cellular_set_mqtt_received(0);
}

int ReadFile2String(const char* path, char** out)
{
    if (out != nullptr)
        *out = nullptr;
    if (path == nullptr)
        return 1;
    // A pipe or a line without anybody at its other end must not hold the caller.
    const int fd = out == nullptr ? -1 : open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd < 0)
        return -1;
    const off_t length = lseek(fd, 0, SEEK_END);
    const bool measured = length >= 0 && length < INT_MAX && lseek(fd, 0, SEEK_SET) == 0;
    const std::size_t size = measured ? static_cast<std::size_t>(length) : 0;
    text_pointer content = measured ? text_room(size) : nullptr;
    std::size_t done = 0;
    while (content != nullptr && done < size) {
        const ssize_t count = read(fd, content.get() + done, size - done);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        done += static_cast<std::size_t>(count);
    }
    close(fd);
    if (content == nullptr || done < size)
        return -1;
    *out = content.release();
    return static_cast<int>(size);
}
