// SPDX-License-Identifier: MIT
// Read-only pages of this host over HTTP, on its one loop: for people a page, for machines metrics
// and JSON. Off until it is asked for.
//
// What it holds for others is bounded, in number, size and time, and it answers only where the Host
// header names this host by one of its addresses: so no page of another site reads it by a name
// that leads here.
#pragma once

#include "host/serve/metrics.h"

#include <chrono>
#include <functional>
#include <list>
#include <string>
#include <string_view>
#include <sys/socket.h>

struct bufferevent;
struct event;
struct event_base;
struct evconnlistener;
struct evhttp;
struct evhttp_connection;
struct evhttp_request;

namespace kelo_host
{

struct http_address {
    sockaddr_storage socket{};
    socklen_t length = 0; // 0: none
};

// "192.0.2.1:8080", "[::1]:8080"; ":8080" and "8080" are those of 127.0.0.1. Port 0 finds a free
// one. Fills `address`, or returns what is wrong.
std::string parse_http_address(std::string_view text, http_address& address);

// Whether a Host header, with or without a port, is this address, or a name or an address of the
// machine for itself.
bool names_host(std::string_view header, const sockaddr_storage& address);

// What the answers are made of, asked on the loop's thread. Objects are told as they are given.
struct http_source {
    std::function<json_value()> status;   // the present, stamped
    std::function<json_value()> figures;  // the same
    std::function<std::string()> history; // an object's text
    std::function<std::string(metrics_format)> metrics;
};

class http_server
{
  public:
    http_server(event_base* base, http_source source);
    ~http_server();
    http_server(const http_server&) = delete;
    http_server& operator=(const http_server&) = delete;

    // Returns what stands against it, or nothing.
    std::string open(const http_address& address);
    std::string url() const; // with the port that was found

    // To the clients of /events.
    bool has_followers() const;
    void tell(const json_value& happening);

  private:
    using clock = std::chrono::steady_clock;

    // One client, from its connection to its end.
    struct client {
        http_server* server;
        bufferevent* pipe;
        clock::time_point until;          // it is closed then, unless it follows events
        evhttp_request* events = nullptr; // what it follows them by
        bool closed = false;              // it is gone with its next event
    };

    static bufferevent* on_client(event_base* base, void* server);
    static void on_newcomers(int, short, void* server);
    static void on_client_gone(evhttp_connection* connection, void* client);
    static void on_request(evhttp_request* request, void* server);
    static void on_second(int, short, void* server);
    static void on_accept_fault(evconnlistener* listener, void* server);

    void answer(evhttp_request* request);
    void answer_metrics(evhttp_request* request);
    void answer_health(evhttp_request* request);
    void follow(evhttp_request* request, client& one);
    void send(client& one, const std::string& text);
    void close(client& one);
    void listen_if_free();
    client* client_of(evhttp_request* request);
    long followers() const;

    event_base* const base_;
    const http_source source_;
    evhttp* http_ = nullptr;
    evconnlistener* listener_ = nullptr;
    event* seconds_ = nullptr;
    event* newcomers_ = nullptr;
    int passed_seconds_ = 0;
    std::list<client> clients_;
};

} // namespace kelo_host
