// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The client of workers against a hostile other end: any bytes, and messages that are almost right. Whatever comes,
// each call returns a result that it may return, and what it points to can be read.
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

extern "C" {
#include "worker/client/client.h"
}
#include "worker/client/json_member.h"

#include "input.h"

namespace
{

constexpr int kClients = 2;

struct Pair {
    vqd_client* client = nullptr;
    int peer = -1;

    Pair()
    {
        int ends[2];
        require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) == 0, "there are sockets");
        client = vqdc_client_new("/nowhere/at all");
        vqdc_adopt(client, ends[0]);
        peer = ends[1];
    }
    ~Pair()
    {
        vqd_client_close(client);
        if (peer >= 0)
            close(peer);
    }
    Pair(const Pair&) = delete;
    Pair& operator=(const Pair&) = delete;

    void put(std::span<const uint8_t> bytes) const
    {
        if (peer >= 0)
            (void)!send(peer, bytes.data(), bytes.size(), MSG_NOSIGNAL); // what does not fit is cut
    }

    // A message of any kind, which answers what was asked last, or does not.
    void message(Input& input) const
    {
        static constexpr uint32_t kSizes[] = {0, 1, 95, 96, 100, 96 + 4 * 6};
        const uint16_t kind = static_cast<uint16_t>(input.below(9));
        const uint32_t request = input.below(8) != 0 ? client->last_request : input.take<uint32_t>();
        std::vector<uint8_t> body(input.below(4) != 0 ? kSizes[input.below(6)] : input.take<uint16_t>());
        if (kind == VQD_WIRE_FRAME && body.size() >= sizeof(vqd_wire_frame) && input.below(8) != 0) {
            vqd_wire_frame header{};
            header.session = static_cast<uint64_t>(1 + input.below(2));
            header.sequence = static_cast<uint64_t>(input.below(16));
            header.monotonic_time_ns = input.below(4) != 0 ? int64_t{1} << 60 : input.take<int64_t>();
            header.width = static_cast<uint16_t>(input.below(4));
            header.height =
                static_cast<uint16_t>((body.size() - sizeof header) / 4 / std::max<size_t>(header.width, 1));
            header.plane_bytes = 4u * header.width * header.height;
            memcpy(body.data(), &header, sizeof header);
        } else {
            const auto some = input.takeSome(body.size());
            std::copy(some.begin(), some.end(), body.begin());
        }
        vqd_wire_prefix prefix{{'V', 'Q', 'D', 'W'}, 1, kind, static_cast<uint32_t>(body.size()), request};
        put({reinterpret_cast<const uint8_t*>(&prefix), sizeof prefix});
        put(body);
    }
};

uint64_t g_read; // so that nothing of what is read is left out

void read(const vqd_client_frame& frame)
{
    require(memchr(frame.serial, '\0', sizeof frame.serial) != nullptr, "the serial number ends");
    for (uint64_t i = 0; i < uint64_t{frame.width} * frame.height; ++i)
        g_read += frame.amplitude[i] + frame.depth[i];
}

void read(const char* text)
{
    g_read += text != nullptr ? strlen(text) : 0;
}

void call(Input& input, const Pair& pair, vqd_client_error& error)
{
    vqd_client_frame frame;
    int result = 0;
    switch (input.below(5)) {
    case 0:
        result = vqd_client_next(pair.client, 0, &frame, &error);
        break;
    case 1:
        result = vqd_client_latest(pair.client, 0, &frame, &error);
        break;
    case 2:
        result = vqd_client_request(pair.client, "{}", 0, nullptr, &error); // its reply comes too late
        break;
    case 3:
        result = vqd_client_update(pair.client, &error);
        require(result == VQD_CLIENT_OK || vqd_client_descriptor(pair.client) < 0, "a failure ends the connection");
        return;
    default:
        read(vqd_client_event(pair.client, nullptr));
        read(vqd_client_state(pair.client));
        read(vqd_client_parameters(pair.client));
        return;
    }
    require(result <= VQD_CLIENT_OK && result >= VQD_CLIENT_SYSTEM, "results have names");
    require(result == VQD_CLIENT_OK || (error.result == result && *error.text != '\0'), "failures have sentences");
    if (result == VQD_CLIENT_OK)
        read(frame);
}

// What a reply may hold.
void readJson(Input& input)
{
    const std::string text = input.text();
    const vqdc_json_value value = vqdc_json_member(text.c_str(), input.below(2) ? "error" : "");
    require(value.text == nullptr || value.text + value.length <= text.c_str() + text.size(), "a value is in its text");
    char into[40];
    const size_t size = 1 + static_cast<size_t>(input.below(40));
    require(strlen(vqdc_json_string(value, into, size)) < size, "a string fits");
    g_read += static_cast<uint64_t>(vqdc_json_int(value, 0));
}

void callSets(vqd_client_sets* sets, vqd_client_error& error)
{
    vqd_client_frame frames[kClients];
    int64_t skew = -1;
    if (vqd_client_sets_next(sets, 0, frames, &skew, &error) != VQD_CLIENT_OK)
        return;
    require(skew >= 0, "a skew is a time");
    for (const vqd_client_frame& frame : frames)
        read(frame);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Input input(data, size);
    Pair pairs[kClients];
    vqd_client* const clients[kClients] = {pairs[0].client, pairs[1].client};
    vqd_client_error error{};
    vqd_client_sets* const sets = input.below(2) ? vqd_client_sets_open(clients, kClients, &error) : nullptr;
    if (input.below(8) != 0)
        for (const Pair& pair : pairs)
            pair.put({reinterpret_cast<const uint8_t*>("VQDW\1\0\1\0\2\0\0\0\0\0\0\0{}"), 18});
    for (int steps = 0; steps < 100 && input.left() > 0; ++steps) {
        Pair& pair = pairs[input.below(kClients)];
        switch (input.below(8)) {
        case 0:
            pair.put(input.takeSome(input.take<uint8_t>()));
            break;
        case 1:
        case 2:
        case 3:
            pair.message(input);
            break;
        case 4:
            if (sets != nullptr)
                callSets(sets, error);
            break;
        case 5:
            if (input.below(8) == 0 && pair.peer >= 0) {
                close(pair.peer);
                pair.peer = -1;
            }
            break;
        case 6:
            if (input.below(4) == 0)
                readJson(input);
            break;
        default:
            call(input, pair, error);
        }
    }
    vqd_client_sets_close(sets);
    return 0;
}
