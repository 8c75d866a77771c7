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

struct BrokerTarget {
    std::string host;
    int port = 0;
    std::string client_id, user, password;
    int keepalive = 0; // seconds
    bool tls = false;
    int verify = 0; // 0 no check, 1 the broker's certificate, 2 a client certificate, too
    std::string ca, cert, key; // contents, PEM
};

struct BrokerEvent {
    enum Kind {
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

class Broker
{
  public:
    // Whether something listens there; takes a second at most.
    static bool listens(const std::string& host, int port);

    explicit Broker(const BrokerTarget& target); // connects
    ~Broker();                                   // disconnects
    Broker(const Broker&) = delete;
    Broker& operator=(const Broker&) = delete;

    void subscribe(int id, const std::string& topic, int qos);
    std::vector<BrokerEvent> take();

  private:
    struct Shared;
    static void run(const std::shared_ptr<Shared>& shared, const BrokerTarget& target);
    std::shared_ptr<Shared> shared_;
    std::thread thread_;
};

} // namespace kelo_emulator
