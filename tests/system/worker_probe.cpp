// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A reader of a worker's socket for tests in shell, well-behaved or not.
//   worker_probe SOCKET frames COUNT [PAUSE_MS]   a line for each frame: sequence, flags; it pauses between two
//   worker_probe SOCKET packed                    takes a frame in both forms, and compares them
//   worker_probe SOCKET ask JSON...               a line for each reply, in this order
//   worker_probe SOCKET until EVENT               a line for each message until this event has come
//   worker_probe SOCKET send HEX [ZEROS]          sends these bytes and so many zeros, then a line for each reply until
//                                                 the connection ends
//   worker_probe SOCKET stall                     asks for a frame, and reads nothing until it is killed
// Ends with 1 when nothing comes for a long time, and with 3 when the connection ends too early.
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

#include "host/failure.h"
#include "worker/messages.h"
#include "worker/packing.h"

namespace
{

constexpr int kLongMs = 30'000;
constexpr int kCutShort = 3;

struct Ended : Failure {
    Ended() : Failure(static_cast<ExitCode>(kCutShort), "the connection has ended") {}
};

class Connection
{
public:
    explicit Connection(const char* path) : m_socket(socket(AF_UNIX, SOCK_STREAM, 0))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        strncpy(address.sun_path, path, sizeof address.sun_path - 1);
        if (connect(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
            throw Failure(kFailed, std::string(path) + ": " + strerror(errno));
    }

    void send(const void* bytes, size_t size) const
    {
        if (::send(m_socket, bytes, size, MSG_NOSIGNAL) != static_cast<ssize_t>(size))
            throw Ended();
    }
    void send(uint16_t kind, std::string_view body, uint32_t number) const
    {
        const Message message = messageOf(kind, body, number);
        send(&message.prefix, sizeof message.prefix);
        send(body.data(), body.size());
    }
    void pull(uint64_t after, uint32_t number, uint32_t flags = 0) const
    {
        const vqd_wire_pull pull{after, flags, 0};
        send(VQD_WIRE_PULL, {reinterpret_cast<const char*>(&pull), sizeof pull}, number);
    }

    // The answer to a pull or a request, whatever comes before it.
    Received answer(uint16_t kind, uint32_t number)
    {
        for (;;)
            if (const Received message = next(); message.prefix.kind == kind && message.prefix.request == number)
                return message;
    }

    Received next()
    {
        for (;;) {
            if (const std::optional<Received> message = m_reader.next())
                return *message;
            pollfd ready{m_socket, POLLIN, 0};
            if (poll(&ready, 1, kLongMs) <= 0)
                throw Failure(kFailed, "nothing comes");
            const std::span<uint8_t> space = m_reader.space();
            const ssize_t came = recv(m_socket, space.data(), space.size(), 0);
            if (came <= 0)
                throw Ended();
            m_reader.came(static_cast<size_t>(came));
        }
    }

private:
    const int m_socket; // until the end of the process
    MessageReader m_reader{VQD_WIRE_MOST_MESSAGE};
};

void print(const Received& message)
{
    printf("%.*s\n", static_cast<int>(message.body.size()), message.text().data());
    fflush(stdout);
}

void frames(Connection& connection, int count, int pauseMs)
{
    uint64_t last = 0;
    for (uint32_t number = 1; number <= static_cast<uint32_t>(count); ++number) {
        connection.pull(last, number);
        const ReceivedFrame frame = frameIn(connection.answer(VQD_WIRE_FRAME, number).body);
        if (frame.header.sequence <= last)
            throw Failure(kVerification, "this is not the frame that was asked for");
        last = frame.header.sequence;
        printf("%llu %u\n", static_cast<unsigned long long>(last), frame.header.flags);
        std::this_thread::sleep_for(std::chrono::milliseconds(pauseMs));
    }
}

void ask(Connection& connection, std::span<char*> requests)
{
    for (uint32_t number = 1; number <= requests.size(); ++number) {
        connection.send(VQD_WIRE_REQUEST, requests[number - 1], number);
        print(connection.answer(VQD_WIRE_REPLY, number));
    }
}

// Until no other frame came between the two.
void comparePacked(Connection& connection)
{
    const auto planes = std::make_unique<std::array<uint16_t, size_t{2} * 320 * 240>>();
    Packing packing;
    for (uint32_t number = 1;; number += 2) {
        connection.pull(0, number);
        const ReceivedFrame plain = frameIn(connection.answer(VQD_WIRE_FRAME, number).body);
        const uint64_t sequence = plain.header.sequence;
        const Bytes bytes(plain.planes.begin(), plain.planes.end());
        connection.pull(0, number + 1, VQD_WIRE_PACKED);
        const ReceivedFrame packed = frameIn(connection.answer(VQD_WIRE_FRAME, number + 1).body);
        if (packed.header.sequence != sequence)
            continue;
        packing.unpack(packed.planes,
                       {std::span(*planes).first(planes->size() / 2), std::span(*planes).last(planes->size() / 2)});
        if ((packed.header.flags & VQD_WIRE_PACKED) == 0 || packed.planes.size() >= bytes.size() ||
            memcmp(planes->data(), bytes.data(), bytes.size()) != 0)
            throw Failure(kVerification, "the packed frame is another one");
        return;
    }
}

void until(Connection& connection, const std::string& event)
{
    for (;;) {
        const Received message = connection.next();
        print(message);
        if (message.prefix.kind == VQD_WIRE_EVENT &&
            message.text().find("\"event\":\"" + event + '"') != std::string_view::npos)
            return;
    }
}

void sendRaw(Connection& connection, const std::string& digits, size_t zeros)
{
    Bytes bytes;
    for (size_t i = 0; i + 1 < digits.size(); i += 2)
        bytes.push_back(static_cast<uint8_t>(std::stoi(digits.substr(i, 2), nullptr, 16)));
    try {
        connection.send(bytes.data(), bytes.size());
        for (const Bytes none(1 << 16); zeros >= none.size(); zeros -= none.size())
            connection.send(none.data(), none.size());
    } catch (const Ended&) { // what was said before that can still be read
    }
    try {
        for (;;)
            if (const Received message = connection.next(); message.prefix.kind == VQD_WIRE_REPLY)
                print(message);
    } catch (const Ended&) {
    }
}

int run(std::span<char*> words)
{
    if (words.size() < 3)
        throw Failure(kUsage, "worker_probe SOCKET COMMAND...");
    Connection connection(words[1]);
    const std::string command = words[2];
    const auto number = [&](size_t i) { return words.size() > i ? strtoul(words[i], nullptr, 10) : 0; };
    if (command == "frames")
        frames(connection, static_cast<int>(number(3)), static_cast<int>(number(4)));
    else if (command == "packed")
        comparePacked(connection);
    else if (command == "ask")
        ask(connection, words.subspan(3));
    else if (command == "until")
        until(connection, words[3]);
    else if (command == "send")
        sendRaw(connection, words[3], number(4));
    else if (command == "stall") {
        connection.pull(0, 1);
        pause();
    }
    return kDone;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return run({argv, static_cast<size_t>(argc)});
    } catch (const Failure& failure) {
        fprintf(stderr, "%s\n", failure.what());
        return failure.code;
    }
}
