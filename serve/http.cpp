// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A request is judged when its head has come, before its content is read. One that waits for its answer is suspended,
// and costs nothing meanwhile. The C library closes connections that are silent; those that trickle, or hold a frame
// and do not take it, are cut here, the oldest first, when there are many.
#include "serve/http.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <set>
#include <sys/socket.h>

#include <microhttpd.h>

namespace
{

using namespace std::chrono_literals;

constexpr unsigned kMostConnections = 256;
constexpr size_t kManyConnections = 192; // from here on the oldest that has not shown the token makes room
constexpr size_t kMostFrames = 24;       // on their way to clients, 300 kB each for however many clients
constexpr size_t kMemory = 16 << 10;     // of a connection, for the head of a request
constexpr unsigned kSilentSeconds = 15;
constexpr auto kFirstRequest = 5s;

// Frames come from this server or not at all, and nothing of them stays in a browser's cache.
constexpr struct {
    const char *name, *value;
} kHeaders[] = {
    {"Content-Security-Policy", "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' blob:; "
                                "connect-src 'self'; base-uri 'none'; "
                                "form-action 'none'; frame-ancestors 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"Referrer-Policy", "no-referrer"},
    {"Cache-Control", "no-store"},
};

std::string lowerCase(std::string text)
{
    for (char& c : text)
        c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return text;
}

sockaddr_storage addressOf(const std::string& text, uint16_t port)
{
    sockaddr_storage address{};
    auto& four = reinterpret_cast<sockaddr_in&>(address);
    auto& six = reinterpret_cast<sockaddr_in6&>(address);
    if (inet_pton(AF_INET, text.c_str(), &four.sin_addr) == 1) {
        four.sin_family = AF_INET;
        four.sin_port = htons(port);
    } else if (inet_pton(AF_INET6, text.c_str(), &six.sin6_addr) == 1) {
        six.sin6_family = AF_INET6;
        six.sin6_port = htons(port);
    } else {
        throw Failure(kUsage, "'" + text + "' is not an IPv4 or IPv6 address");
    }
    return address;
}

Answer theServerEnds()
{
    return refusedAnswer(503, "the server ends", kFailed);
}

MHD_Result result(bool good)
{
    return good ? MHD_YES : MHD_NO;
}

} // namespace

// A request from its head to the end of its answer.
struct Http::Exchange {
    Http& http;
    MHD_Connection* const connection;
    Connection& from;
    HttpRequest request{};
    RequestHead head{};
    std::optional<Answer> answer{};
    bool isHandled = false, isSuspended = false;
};

struct Http::Callbacks {
    static MHD_Result header(void* cls, MHD_ValueKind, const char* name, const char* value)
    {
        std::string& into = static_cast<RequestHead*>(cls)->headers[lowerCase(name)];
        into += (into.empty() ? "" : ",") + std::string(value != nullptr ? value : "");
        return MHD_YES;
    }

    static MHD_Result parameter(void* cls, MHD_ValueKind, const char* name, const char* value)
    {
        static_cast<HttpRequest*>(cls)->query.insert_or_assign(name, value != nullptr ? value : "");
        return MHD_YES;
    }

    static Connection& connectionOf(MHD_Connection* connection)
    {
        const MHD_ConnectionInfo* const info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
        return *static_cast<Connection*>(info->socket_context);
    }

    static MHD_Result handle(void* cls, MHD_Connection* connection, const char* path, const char* method, const char*,
                             const char* data, size_t* size, void** context)
    {
        Http& http = *static_cast<Http*>(cls);
        if (*context == nullptr) {
            const uint64_t id = ++http.m_lastId;
            Exchange& exchange =
                http.m_exchanges.emplace(id, Exchange{http, connection, connectionOf(connection)}).first->second;
            exchange.request.id = id;
            *context = &exchange;
            return result(http.begin(exchange, method, path));
        }
        Exchange& exchange = *static_cast<Exchange*>(*context);
        if (*size > 0) {
            exchange.request.body.append(data, *size);
            *size = 0;
            return result(exchange.request.body.size() <= kMostBody);
        }
        return result(http.proceed(exchange));
    }

    static void completed(void* cls, MHD_Connection*, void** context, MHD_RequestTerminationCode)
    {
        if (*context == nullptr)
            return;
        const Exchange& exchange = *static_cast<const Exchange*>(*context);
        exchange.from.frame = nullptr;
        static_cast<Http*>(cls)->m_exchanges.erase(exchange.request.id);
        *context = nullptr;
    }

    static void connection(void* cls, MHD_Connection* connection, void** context, MHD_ConnectionNotificationCode code)
    {
        Http& http = *static_cast<Http*>(cls);
        if (code == MHD_CONNECTION_NOTIFY_STARTED) {
            const int descriptor = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd;
            *context = &http.m_connections.emplace_back(Connection{descriptor, Clock::now()});
        } else {
            const auto* const ended = static_cast<const Connection*>(*context);
            http.m_connections.remove_if([&](const Connection& one) { return &one == ended; });
        }
    }

    static void freeAnswer(void* answer) { delete static_cast<Answer*>(answer); }
};

Http::Http(const std::string& address, uint16_t port, AccessRules rules, Handler handler)
    : m_rules(std::move(rules)), m_handler(std::move(handler))
{
    const sockaddr_storage where = addressOf(address, port);
    const unsigned flags = MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME | (where.ss_family == AF_INET6 ? MHD_USE_IPv6 : 0);
    errno = 0;
    m_daemon = MHD_start_daemon(flags, port, nullptr, nullptr, Callbacks::handle, this,               //
                                MHD_OPTION_SOCK_ADDR, &where,                                         //
                                MHD_OPTION_CONNECTION_LIMIT, kMostConnections,                        //
                                MHD_OPTION_CONNECTION_MEMORY_LIMIT, kMemory,                          //
                                MHD_OPTION_CONNECTION_TIMEOUT, static_cast<unsigned>(kSilentSeconds), //
                                MHD_OPTION_NOTIFY_CONNECTION, Callbacks::connection, this,            //
                                MHD_OPTION_NOTIFY_COMPLETED, Callbacks::completed, this, MHD_OPTION_END);
    if (m_daemon == nullptr)
        throw Failure(kFailed,
                      address + " port " + std::to_string(port) + ": " + (errno != 0 ? strerror(errno) : "no server"));
    m_port = MHD_get_daemon_info(m_daemon, MHD_DAEMON_INFO_BIND_PORT)->port;
}

// The C library gives up the process when it is stopped while a connection is suspended. So those that wait are
// answered, and a request that is read only now is refused before the handler, whose owner is going, could let it wait.
Http::~Http()
{
    m_ends = true;
    for (auto& [id, exchange] : m_exchanges)
        if (exchange.isSuspended)
            answer(id, theServerEnds());
    MHD_run(m_daemon);
    MHD_stop_daemon(m_daemon);
}

void Http::answer(uint64_t id, Answer answer)
{
    const auto found = m_exchanges.find(id);
    if (found == m_exchanges.end())
        return;
    Exchange& exchange = found->second;
    exchange.answer = std::move(answer);
    if (std::exchange(exchange.isSuspended, false)) // else the handler answers just now
        MHD_resume_connection(exchange.connection);
}

pollfd Http::waiting() const
{
    return {MHD_get_daemon_info(m_daemon, MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd, POLLIN, 0};
}

std::chrono::milliseconds Http::mostWait() const
{
    constexpr MHD_UNSIGNED_LONG_LONG kMost = 1000;
    MHD_UNSIGNED_LONG_LONG wait = kMost;
    if (MHD_get_timeout(m_daemon, &wait) != MHD_YES)
        wait = kMost;
    return std::chrono::milliseconds(std::min(wait, kMost));
}

void Http::serve()
{
    MHD_run(m_daemon);
    limitConnections();
    limitFrames();
}

// A connection that is shut down is closed by the C library as one whose client has gone.
void Http::limitConnections()
{
    size_t surplus = m_connections.size() - std::min(m_connections.size(), kManyConnections);
    const auto limit = Clock::now() - kFirstRequest;
    for (const Connection& connection : m_connections) {
        if (connection.isTrusted || (surplus == 0 && connection.began > limit))
            continue;
        shutdown(connection.descriptor, SHUT_RDWR);
        surplus -= std::min<size_t>(surplus, 1);
    }
}

// Clients that keep up share the newest frames; each that stalls holds one of its own.
void Http::limitFrames()
{
    std::vector<const Connection*> sending;
    for (const Connection& connection : m_connections)
        if (connection.frame != nullptr)
            sending.push_back(&connection);
    if (sending.size() <= kMostFrames)
        return;
    std::ranges::sort(sending, std::greater(), &Connection::sendsSince);
    std::set<const void*> newest;
    for (const Connection* connection : sending) {
        if (newest.size() < kMostFrames)
            newest.insert(connection->frame);
        else if (!newest.contains(connection->frame))
            shutdown(connection->descriptor, SHUT_RDWR);
    }
}

bool Http::begin(Exchange& exchange, const char* method, const char* path)
{
    HttpRequest& request = exchange.request;
    MHD_get_connection_values(exchange.connection, MHD_HEADER_KIND, Callbacks::header, &exchange.head);
    MHD_get_connection_values(exchange.connection, MHD_GET_ARGUMENT_KIND, Callbacks::parameter, &request);
    request.method = exchange.head.method = method;
    request.path = exchange.head.path = path;
    request.takesZstd = exchange.head.headers["accept-encoding"].find("zstd") != std::string::npos;
    if (const auto token = request.query.find("token"); token != request.query.end())
        exchange.head.token = token->second;
    const Judgement judgement = judge(exchange.head, m_rules);
    exchange.from.isTrusted = judgement.status == 200 || judgement.status == 303;
    if (judgement.status == 200)
        return true;
    exchange.isHandled = true;
    if (judgement.status == 303)
        return send(exchange, {.status = 303, .type = "text/plain", .location = "/", .cookie = judgement.text});
    return send(exchange, refusedAnswer(judgement.status, judgement.text));
}

bool Http::proceed(Exchange& exchange)
{
    if (!std::exchange(exchange.isHandled, true)) {
        if (std::optional<Answer> now = m_ends ? theServerEnds() : m_handler(exchange.request))
            exchange.answer = std::move(now);
        if (!exchange.answer) {
            exchange.isSuspended = true;
            MHD_suspend_connection(exchange.connection);
            return true;
        }
    }
    return exchange.answer && send(exchange, *std::exchange(exchange.answer, std::nullopt));
}

bool Http::send(Exchange& exchange, Answer answer)
{
    if (answer.hasFrame()) {
        exchange.from.frame = answer.body.get();
        exchange.from.sendsSince = Clock::now();
    }
    auto* const kept = new Answer(std::move(answer));
    const MHD_IoVec parts[] = {{kept->text.data(), kept->text.size()},
                               {kept->body ? kept->body->data() : nullptr, kept->body ? kept->body->size() : 0}};
    MHD_Response* const response =
        MHD_create_response_from_iovec(parts, kept->body ? 2 : 1, Callbacks::freeAnswer, kept);
    if (response == nullptr) {
        delete kept;
        return false;
    }
    for (const auto& [name, value] : kHeaders)
        MHD_add_response_header(response, name, value);
    const std::pair<const char*, const char*> more[] = {{"Content-Type", kept->type},
                                                        {"Content-Encoding", kept->encoding},
                                                        {"Location", kept->location},
                                                        {"Set-Cookie", kept->cookie.c_str()},
                                                        {"Connection", exchange.from.isTrusted ? nullptr : "close"}};
    for (const auto& [name, value] : more)
        if (value != nullptr && *value != '\0')
            MHD_add_response_header(response, name, value);
    const MHD_Result queued = MHD_queue_response(exchange.connection, kept->status, response);
    MHD_destroy_response(response);
    return queued == MHD_YES;
}
