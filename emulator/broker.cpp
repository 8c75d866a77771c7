// SPDX-License-Identifier: MIT
#include "emulator/broker.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <mosquitto.h>
#include <mutex>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace kelo_emulator
{

struct broker_client::shared_state {
    struct broker_request {
        int id;
        std::string topic;
        int qos;
    };
    std::mutex mutex;
    std::condition_variable ended_now;
    std::vector<broker_request> requests;
    std::vector<broker_event> events;
    bool wanted = true, ended = false;

    // The connection's thread alone.
    std::map<int, int> ids; // of SUBSCRIBE packets: the modem's
    bool connected = false, answered = false;

    void add(broker_event event)
    {
        const std::lock_guard lock(mutex);
        events.push_back(std::move(event));
    }
};

namespace
{

// The uploaded files at paths, for as long as the client reads them.
class scratch_folder
{
  public:
    scratch_folder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "kelo-tls-XXXXXX").string();
        if (mkdtemp(name.data())) // for its owner alone
            path_ = name;
    }
    ~scratch_folder()
    {
        std::error_code ignored;
        if (!path_.empty())
            std::filesystem::remove_all(path_, ignored);
    }
    scratch_folder(const scratch_folder&) = delete;
    scratch_folder& operator=(const scratch_folder&) = delete;

    // Null for no content.
    const char* put(const char* name, const std::string& content)
    {
        if (path_.empty() || content.empty())
            return nullptr;
        paths_[name] = path_ + "/" + name;
        std::ofstream(paths_[name]) << content;
        return paths_[name].c_str();
    }

  private:
    std::string path_;
    std::map<std::string, std::string> paths_;
};

bool set_tls(mosquitto* client, const broker_target& target, scratch_folder& folder)
{
    const char* const ca = target.verify > 0 ? folder.put("ca", target.ca) : nullptr;
    const char* const cert = target.verify > 1 ? folder.put("cert", target.cert) : nullptr;
    const char* const key = target.verify > 1 ? folder.put("key", target.key) : nullptr;
    constexpr int verify_none = 0, verify_peer = 1;
    const int set = ca ? mosquitto_tls_set(client, ca, nullptr, cert, key, nullptr)
                       : mosquitto_int_option(client, MOSQ_OPT_TLS_USE_OS_CERTS, 1);
    return set == MOSQ_ERR_SUCCESS &&
           mosquitto_tls_opts_set(client, ca ? verify_peer : verify_none, nullptr, nullptr) ==
               MOSQ_ERR_SUCCESS &&
           mosquitto_tls_insecure_set(client, true) == MOSQ_ERR_SUCCESS; // names are not compared
}

} // namespace

void broker_client::run(const std::shared_ptr<shared_state>& shared, const broker_target& target)
{
    constexpr int step_ms = 20;
    static const int library = mosquitto_lib_init();
    (void)library;
    mosquitto* const client = mosquitto_new(
        target.client_id.empty() ? nullptr : target.client_id.c_str(), true, shared.get());
    if (client && !target.user.empty())
        mosquitto_username_pw_set(client, target.user.c_str(), target.password.c_str());
    mosquitto_connect_callback_set(client, [](mosquitto*, void* self, int code) {
        auto* const s = static_cast<shared_state*>(self);
        s->connected = code == 0;
        s->answered = true;
        s->add({broker_event::answered, code, 0, "", ""});
    });
    mosquitto_subscribe_callback_set(
        client, [](mosquitto*, void* self, int id, int count, const int* granted) {
            auto* const s = static_cast<shared_state*>(self);
            s->add({broker_event::subscribed, count > 0 ? granted[0] : 128, s->ids[id], "", ""});
        });
    mosquitto_message_callback_set(
        client, [](mosquitto*, void* self, const mosquitto_message* message) {
            static_cast<shared_state*>(self)->add(
                {broker_event::message, 0, message->mid, message->topic,
                 std::string(static_cast<const char*>(message->payload),
                             static_cast<std::size_t>(message->payloadlen))});
        });
    bool going = client != nullptr;
    if (going) {
        scratch_folder folder;
        const int keepalive = target.keepalive == 0 ? 0 : std::max(target.keepalive, 5);
        going = (!target.tls || set_tls(client, target, folder)) &&
                mosquitto_connect(client, target.host.c_str(), target.port, keepalive) ==
                    MOSQ_ERR_SUCCESS;
    }
    bool wanted = true;
    while (going && wanted) {
        std::vector<shared_state::broker_request> requests;
        {
            const std::lock_guard lock(shared->mutex);
            requests.swap(shared->requests);
            wanted = shared->wanted;
        }
        for (const shared_state::broker_request& request : requests) {
            int id = 0;
            if (mosquitto_subscribe(client, &id, request.topic.c_str(), request.qos) ==
                MOSQ_ERR_SUCCESS)
                shared->ids[id] = request.id;
            else
                shared->add({broker_event::subscribed, 128, request.id, "", ""});
        }
        going = mosquitto_loop(client, step_ms, 1) == MOSQ_ERR_SUCCESS;
    }
    if (going) {
        mosquitto_disconnect(client);
        mosquitto_loop(client, step_ms, 1);
    } else if (shared->connected) {
        shared->add({broker_event::lost, 0, 0, "", ""});
    } else if (!shared->answered) {
        shared->add({broker_event::failed, 0, 0, "", ""});
    }
    if (client)
        mosquitto_destroy(client);
    const std::lock_guard lock(shared->mutex);
    shared->ended = true;
    shared->ended_now.notify_all();
}

broker_client::broker_client(const broker_target& target)
    : shared_(std::make_shared<shared_state>())
{
    thread_ = std::thread([shared = shared_, target] { run(shared, target); });
}

broker_client::~broker_client()
{
    std::unique_lock lock(shared_->mutex);
    shared_->wanted = false;
    // One that still waits for its broker is left to itself.
    const bool ended =
        shared_->ended_now.wait_for(lock, std::chrono::seconds(1), [&] { return shared_->ended; });
    lock.unlock();
    if (ended)
        thread_.join();
    else
        thread_.detach();
}

void broker_client::subscribe(int id, const std::string& topic, int qos)
{
    const std::lock_guard lock(shared_->mutex);
    shared_->requests.push_back({id, topic, qos});
}

std::vector<broker_event> broker_client::take()
{
    std::vector<broker_event> events;
    const std::lock_guard lock(shared_->mutex);
    events.swap(shared_->events);
    return events;
}

bool broker_client::listens(const std::string& host, int port)
{
    addrinfo hints = {};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found) != 0)
        return false;
    bool answered = false;
    for (const addrinfo* at = found; at && !answered; at = at->ai_next) {
        const int fd =
            socket(at->ai_family, at->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, at->ai_protocol);
        if (fd < 0)
            continue;
        answered = connect(fd, at->ai_addr, at->ai_addrlen) == 0;
        pollfd done = {fd, POLLOUT, 0};
        int error = 0;
        socklen_t size = sizeof error;
        if (!answered && poll(&done, 1, 1000) > 0)
            answered = getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
        close(fd);
    }
    freeaddrinfo(found);
    return answered;
}

} // namespace kelo_emulator
