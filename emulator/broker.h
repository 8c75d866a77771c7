// SPDX-License-Identifier: MIT
// A connection of the modem's MQTT client to a real broker.
//
// Each connection has a thread of its own; what it hears waits in a queue until it is taken.
// Owner's calls come from the emulator's thread and do not wait for the network.
#pragma once

#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace kelo_emulator
{

struct broker_target {
    std::string host;
    int port = 0;
    std::string client_id, user, password;
    int keepalive = 0; // seconds
    bool tls = false;
    int verify = 0; // 0 no check, 1 the broker's certificate, 2 a client certificate, too
    std::string ca, cert, key; // contents, PEM
};

struct broker_event {
    enum event_kind {
        answered,   // code: of CONNACK, 0 accepted
        failed,     // no CONNACK came
        subscribed, // id: of the request; code: granted QoS, or 128
        message,    // id, topic, payload
        lost
    } kind;
    int code = 0;
    int id = 0;
    std::string topic, payload;
};

class broker_client
{
  public:
    // Whether something listens there; takes a second at most.
    static bool listens(const std::string& host, int port);

    explicit broker_client(const broker_target& target); // connects
    ~broker_client();                                    // disconnects
    broker_client(const broker_client&) = delete;
    broker_client& operator=(const broker_client&) = delete;

    void subscribe(int id, const std::string& topic, int qos);
    std::vector<broker_event> take();

  private:
    struct shared_state;
    static void run(const std::shared_ptr<shared_state>& shared, const broker_target& target);
    std::shared_ptr<shared_state> shared_;
    std::thread thread_;
};

} // namespace kelo_emulator
