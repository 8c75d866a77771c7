// SPDX-License-Identifier: MIT
#include "host/serve/http.h"

#include "host/serve/page.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <event2/buffer.h>
#include <event2/bufferevent.h>
#include <event2/event.h>
#include <event2/http.h>
#include <event2/listener.h>
#include <iterator>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <optional>
#include <strings.h>
#include <utility>

namespace kelo_host
{

namespace
{

using namespace std::chrono_literals;

constexpr size_t most_clients = 32;
constexpr long most_followers = 8;
constexpr size_t most_unread = 128 * 1024; // of what a client that follows has not taken
constexpr int send_buffer = 64 * 1024;     // the kernel's share beside that
constexpr unsigned gone_ms = 30000;        // a client that takes nothing for so long is no more
constexpr auto request_within = 10s;       // and the same again to take the answer
constexpr int between_figures = 5;         // seconds; they show a client that this host is there
constexpr int header_size = 8192, most_body = 1024; // read only to be refused
constexpr size_t most_input = 16384;
constexpr size_t most_path = 256;
constexpr int backlog = 16;

constexpr const char* text_type = "text/plain; charset=utf-8";
constexpr const char* json_type = "application/json";

// Scripts and styles of its own, and nothing from or for anybody else.
constexpr const char* policy =
    "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; img-src data:; "
    "base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

// --- addresses ---

// An IPv4 address in the form that IPv6 has for it, so that there is one kind to compare.
in6_addr mapped(const in_addr& address)
{
    in6_addr whole = {};
    whole.s6_addr[10] = whole.s6_addr[11] = 0xff;
    std::memcpy(whole.s6_addr + 12, &address, sizeof address);
    return whole;
}

in6_addr address_of(const sockaddr_storage& socket)
{
    if (socket.ss_family == AF_INET)
        return mapped(reinterpret_cast<const sockaddr_in&>(socket).sin_addr);
    return reinterpret_cast<const sockaddr_in6&>(socket).sin6_addr;
}

bool operator==(const in6_addr& one, const in6_addr& other)
{
    return std::memcmp(&one, &other, sizeof one) == 0;
}

std::optional<unsigned short> port_of(std::string_view text)
{
    unsigned short port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    return error == std::errc{} && end == text.data() + text.size() ? std::optional(port)
                                                                    : std::nullopt;
}

struct host_and_port {
    std::string host; // without the brackets of an IPv6 address
    bool bracketed = false;
    std::optional<std::string_view> port;
};

std::optional<host_and_port> cut(std::string_view text)
{
    host_and_port parts;
    size_t end = std::min(text.find(':'), text.size());
    if (text.starts_with('[')) {
        end = text.find(']');
        if (end == text.npos)
            return std::nullopt;
        parts.bracketed = true;
        parts.host = text.substr(1, end++ - 1);
    } else {
        parts.host = text.substr(0, end);
    }
    if (end == text.size())
        return parts;
    if (text[end] != ':')
        return std::nullopt;
    parts.port = text.substr(end + 1);
    return parts;
}

std::optional<in6_addr> numeric(const host_and_port& parts)
{
    in_addr four = {};
    in6_addr six = {};
    if (parts.bracketed)
        return inet_pton(AF_INET6, parts.host.c_str(), &six) == 1 ? std::optional(six)
                                                                  : std::nullopt;
    return inet_pton(AF_INET, parts.host.c_str(), &four) == 1 ? std::optional(mapped(four))
                                                              : std::nullopt;
}

// --- requests and answers ---

const char* header_of(evhttp_request* request, const char* name)
{
    const char* const value = evhttp_find_header(evhttp_request_get_input_headers(request), name);
    return value != nullptr ? value : "";
}

void add_header(evhttp_request* request, const char* name, const char* value)
{
    evhttp_add_header(evhttp_request_get_output_headers(request), name, value);
}

// One request a connection: none is held open for a next one that may not come.
void add_headers(evhttp_request* request, const char* type)
{
    add_header(request, "Content-Type", type);
    add_header(request, "Connection", "close");
    add_header(request, "Cache-Control", "no-store");
    add_header(request, "Content-Security-Policy", policy);
    add_header(request, "Cross-Origin-Resource-Policy", "same-origin");
    add_header(request, "Referrer-Policy", "no-referrer");
    add_header(request, "X-Content-Type-Options", "nosniff");
}

void reply(evhttp_request* request, int status, const char* type, std::string_view body)
{
    add_headers(request, type);
    evbuffer* const bytes = evbuffer_new();
    if (evhttp_request_get_command(request) == EVHTTP_REQ_HEAD)
        add_header(request, "Content-Length", std::to_string(body.size()).c_str());
    else
        evbuffer_add(bytes, body.data(), body.size());
    evhttp_send_reply(request, status, status == 421 ? "Misdirected Request" : nullptr, bytes);
    evbuffer_free(bytes);
}

void refuse(evhttp_request* request, int status, const char* why)
{
    reply(request, status, text_type, std::string(why) + "\n");
}

// A browser tells the site that asks, unless it is the page of this very host. Who follows a link
// to this host is welcome: the other site does not see the answer.
bool is_of_other_site(evhttp_request* request)
{
    const std::string_view site = header_of(request, "Sec-Fetch-Site");
    const std::string_view origin = header_of(request, "Origin"), host = header_of(request, "Host");
    const bool navigates = std::strcmp(header_of(request, "Sec-Fetch-Mode"), "navigate") == 0;
    return (site == "cross-site" && !navigates) ||
           (!origin.empty() && origin != "http://" + std::string(host));
}

std::string_view path_of(evhttp_request* request)
{
    const evhttp_uri* const uri = evhttp_request_get_evhttp_uri(request);
    const char* const path = uri != nullptr ? evhttp_uri_get_path(uri) : nullptr;
    return path != nullptr && evhttp_uri_get_host(uri) == nullptr ? path : "";
}

std::string event_text(const std::string& object)
{
    return "data: " + object + "\n\n";
}

} // namespace

std::string parse_http_address(std::string_view text, http_address& address)
{
    constexpr const char* form = "takes ADDRESS:PORT, or PORT for one of 127.0.0.1";
    auto parts = cut(text);
    if (!parts)
        return form;
    if (!parts->port && !parts->bracketed) // a bare port
        parts = host_and_port{"", false, text};
    if (!parts->bracketed && (parts->host.empty() || parts->host == "localhost"))
        parts->host = "127.0.0.1";
    const auto port = port_of(parts->port.value_or(""));
    const auto found = numeric(*parts);
    if (!port || !found)
        return form;
    if (parts->bracketed) {
        sockaddr_in6 six = {};
        six.sin6_family = AF_INET6;
        six.sin6_port = htons(*port);
        six.sin6_addr = *found;
        std::memcpy(&address.socket, &six, sizeof six);
        address.length = sizeof six;
        return "";
    }
    sockaddr_in four = {};
    four.sin_family = AF_INET;
    four.sin_port = htons(*port);
    std::memcpy(&four.sin_addr, found->s6_addr + 12, sizeof four.sin_addr);
    std::memcpy(&address.socket, &four, sizeof four);
    address.length = sizeof four;
    return "";
}

bool names_host(std::string_view header, const sockaddr_storage& address)
{
    const auto parts = cut(header);
    if (!parts || (parts->port && !port_of(*parts->port)))
        return false;
    if (!parts->bracketed && strcasecmp(parts->host.c_str(), "localhost") == 0)
        return true;
    const auto named = numeric(*parts);
    return named && (*named == address_of(address) || *named == in6addr_loopback ||
                     *named == mapped({htonl(INADDR_LOOPBACK)}));
}

http_server::http_server(event_base* base, http_source source)
    : base_(base), source_(std::move(source))
{
}

http_server::~http_server()
{
    listener_ = nullptr;
    if (http_ != nullptr)
        evhttp_free(http_); // with the listener, and all clients
    for (event* const one : {seconds_, newcomers_})
        if (one != nullptr)
            event_free(one);
}

std::string http_server::open(const http_address& address)
{
    listener_ = evconnlistener_new_bind(
        base_, nullptr, nullptr, LEV_OPT_CLOSE_ON_FREE | LEV_OPT_CLOSE_ON_EXEC | LEV_OPT_REUSEABLE,
        backlog, reinterpret_cast<const sockaddr*>(&address.socket),
        static_cast<int>(address.length));
    if (listener_ == nullptr)
        return std::string("cannot listen: ") + std::strerror(errno);
    const int fd = evconnlistener_get_fd(listener_);
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &send_buffer, sizeof send_buffer); // clients have it, too
    setsockopt(fd, IPPROTO_TCP, TCP_USER_TIMEOUT, &gone_ms, sizeof gone_ms);

    http_ = evhttp_new(base_);
    seconds_ = event_new(base_, -1, EV_PERSIST, on_second, this);
    newcomers_ = event_new(base_, -1, 0, on_newcomers, this);
    if (http_ == nullptr || seconds_ == nullptr || newcomers_ == nullptr ||
        evhttp_bind_listener(http_, listener_) == nullptr)
        return "no memory";
    evconnlistener_set_error_cb(listener_, on_accept_fault);
    evhttp_set_bevcb(http_, on_client, this);
    evhttp_set_gencb(http_, on_request, this);
    evhttp_set_allowed_methods(http_, 0xffff); // all are answered here
    evhttp_set_max_headers_size(http_, header_size);
    evhttp_set_max_body_size(http_, most_body);
    const timeval second = {1, 0};
    event_add(seconds_, &second);
    return "";
}

std::string http_server::url() const
{
    sockaddr_storage socket = {};
    socklen_t length = sizeof socket;
    getsockname(evconnlistener_get_fd(listener_), reinterpret_cast<sockaddr*>(&socket), &length);
    char text[INET6_ADDRSTRLEN] = "";
    const bool six = socket.ss_family == AF_INET6;
    const void* const address =
        six ? static_cast<const void*>(&reinterpret_cast<const sockaddr_in6&>(socket).sin6_addr)
            : &reinterpret_cast<const sockaddr_in&>(socket).sin_addr;
    inet_ntop(socket.ss_family, address, text, sizeof text);
    const unsigned short port = ntohs(reinterpret_cast<const sockaddr_in&>(socket).sin_port);
    return "http://" + (six ? "[" + std::string(text) + "]" : text) + ":" + std::to_string(port) +
           "/";
}

// --- clients ---

// The last place is for who comes next: the one that was there longest makes room, or else others
// wait in the backlog until one does. So those who say nothing keep out nobody who asks at once.
bufferevent* http_server::on_client(event_base* base, void* server)
{
    auto* const self = static_cast<http_server*>(server);
    bufferevent* const pipe = bufferevent_socket_new(base, -1, 0);
    if (pipe == nullptr)
        return nullptr;
    // What a client says while it is answered stays unread.
    bufferevent_setwatermark(pipe, EV_READ, 0, most_input);
    self->clients_.push_back(
        {.server = self, .pipe = pipe, .until = clock::now() + request_within});
    if (self->clients_.size() >= most_clients) {
        evconnlistener_disable(self->listener_);
        const auto oldest =
            std::find_if(self->clients_.begin(), std::prev(self->clients_.end()),
                         [](const client& one) { return one.events == nullptr && !one.closed; });
        if (oldest != std::prev(self->clients_.end()))
            self->close(*oldest);
    }
    event_active(self->newcomers_, EV_TIMEOUT, 1);
    return pipe;
}

// evhttp shows a connection to nobody ahead of its first request, which may never come; but it has
// set its callbacks by now, and the connection is what it gives them.
void http_server::on_newcomers(int, short, void* server)
{
    for (client& one : static_cast<http_server*>(server)->clients_) {
        void* connection = nullptr;
        bufferevent_getcb(one.pipe, nullptr, nullptr, nullptr, &connection);
        evhttp_connection_set_closecb(static_cast<evhttp_connection*>(connection), on_client_gone,
                                      &one);
    }
}

void http_server::on_client_gone(evhttp_connection*, void* gone)
{
    auto* const one = static_cast<client*>(gone);
    http_server* const self = one->server;
    // A request that has lost its connection is this host's to free.
    if (one->events != nullptr && evhttp_request_get_connection(one->events) == nullptr)
        evhttp_request_free(one->events);
    self->clients_.remove_if([&](const client& other) { return &other == one; });
    self->listen_if_free();
}

void http_server::listen_if_free()
{
    if (listener_ != nullptr && clients_.size() < most_clients)
        evconnlistener_enable(listener_);
}

// No descriptors, or no memory: a second later there may be.
void http_server::on_accept_fault(evconnlistener* listener, void*)
{
    evconnlistener_disable(listener);
}

// evhttp finds the connection ended, and frees all that belongs to it.
void http_server::close(client& one)
{
    one.closed = true;
    shutdown(bufferevent_getfd(one.pipe), SHUT_RDWR);
}

void http_server::on_second(int, short, void* server)
{
    auto* const self = static_cast<http_server*>(server);
    const auto now = clock::now();
    for (client& one : self->clients_)
        if (one.events == nullptr && !one.closed && now >= one.until)
            self->close(one);
    self->listen_if_free();
    if (++self->passed_seconds_ % between_figures == 0 && self->has_followers())
        self->tell(self->source_.figures());
}

http_server::client* http_server::client_of(evhttp_request* request)
{
    bufferevent* const pipe =
        evhttp_connection_get_bufferevent(evhttp_request_get_connection(request));
    const auto at = std::find_if(clients_.begin(), clients_.end(),
                                 [&](const client& one) { return one.pipe == pipe; });
    return at == clients_.end() ? nullptr : &*at;
}

// --- requests ---

void http_server::on_request(evhttp_request* request, void* server)
{
    static_cast<http_server*>(server)->answer(request);
}

void http_server::answer(evhttp_request* request)
{
    client* const one = client_of(request);
    if (one == nullptr)
        return refuse(request, 503, "no memory");
    one->until = clock::now() + request_within;

    sockaddr_storage here = {};
    socklen_t length = sizeof here;
    getsockname(bufferevent_getfd(one->pipe), reinterpret_cast<sockaddr*>(&here), &length);
    if (!names_host(header_of(request, "Host"), here))
        return refuse(request, 421, "ask by the address of this host");
    if (is_of_other_site(request))
        return refuse(request, 403, "not for pages of other sites");
    const int method = evhttp_request_get_command(request); // not of the type: unknown is 32768
    if (method != EVHTTP_REQ_GET && method != EVHTTP_REQ_HEAD) {
        add_header(request, "Allow", "GET, HEAD");
        return refuse(request, 405, "there is nothing to change here");
    }

    const std::string_view path = path_of(request);
    if (path.size() > most_path)
        return refuse(request, 414, "no path is as long as that");
    if (path == "/metrics")
        return answer_metrics(request);
    if (path == "/status")
        return reply(request, 200, json_type, to_text(source_.status()) + "\n");
    if (path == "/healthz")
        return answer_health(request);
    if (path == "/events")
        return follow(request, *one);
    if (const page_file* const file = page_file_at(path))
        return reply(request, 200, file->type, file->bytes);
    refuse(request, 404, "there are /, /status, /events, /metrics and /healthz");
}

void http_server::answer_metrics(evhttp_request* request)
{
    add_header(request, "Vary", "Accept");
    if (std::strstr(header_of(request, "Accept"), "application/openmetrics-text") != nullptr)
        return reply(request, 200, "application/openmetrics-text; version=1.0.0; charset=utf-8",
                     source_.metrics(metrics_format::openmetrics));
    reply(request, 200, "text/plain; version=0.0.4; charset=utf-8",
          source_.metrics(metrics_format::text));
}

// Whether this program is well, not the network: nobody should start it again for that.
void http_server::answer_health(evhttp_request* request)
{
    const std::string reason = source_.status().at("reason");
    if (reason == "stopped")
        return refuse(request, 503, reason.c_str());
    reply(request, 200, text_type, "ok\nreason: " + reason + "\n");
}

// --- those who follow ---

long http_server::followers() const
{
    return std::count_if(clients_.begin(), clients_.end(),
                         [](const client& one) { return one.events != nullptr; });
}

bool http_server::has_followers() const
{
    return followers() > 0;
}

void http_server::follow(evhttp_request* request, client& one)
{
    if (evhttp_request_get_command(request) == EVHTTP_REQ_HEAD)
        return reply(request, 200, "text/event-stream", "");
    if (followers() >= most_followers) {
        add_header(request, "Retry-After", "10");
        return refuse(request, 503, "as many follow as may: 8");
    }
    add_headers(request, "text/event-stream");
    one.events = request;
    evhttp_send_reply_start(request, 200, "OK");
    // Asks come anew so soon, in milliseconds.
    send(one,
         "retry: 2000\n" + event_text(to_text(source_.status())) + event_text(source_.history()));
}

void http_server::send(client& one, const std::string& text)
{
    if (evbuffer_get_length(bufferevent_get_output(one.pipe)) > most_unread)
        return close(one);
    evbuffer* const bytes = evbuffer_new();
    evbuffer_add(bytes, text.data(), text.size());
    evhttp_send_reply_chunk(one.events, bytes);
    evbuffer_free(bytes);
}

void http_server::tell(const json_value& happening)
{
    if (!has_followers())
        return;
    const std::string text = event_text(to_text(happening));
    for (client& one : clients_)
        if (one.events != nullptr && !one.closed)
            send(one, text);
}

} // namespace kelo_host
