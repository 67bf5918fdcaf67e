// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Fuzzes the judgement on requests. The input is text: the method, the path, and a line for each header. What must hold
// for a request that may pass is found out in another way than the judgement does it.
#include <strings.h>

#include "input.h"
#include "serve/access.h"

namespace
{

const AccessRules kRules{"0123456789abcdef", {"localhost", "127.0.0.1", "[::1]"}};

std::string_view line(std::string_view& text)
{
    const std::string_view first = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(first.size() + 1, text.size()));
    return first;
}

RequestHead headFrom(std::string_view text)
{
    RequestHead head;
    head.method = line(text);
    head.path = line(text);
    while (!text.empty()) {
        const std::string_view one = line(text);
        const size_t colon = std::min(one.find(": "), one.size());
        const std::string name(one.substr(0, colon)), value(one.substr(std::min(colon + 2, one.size())));
        if (name == "?token")
            head.token = value;
        else
            head.headers[name] = value;
    }
    return head;
}

std::string valueOf(const RequestHead& head, const char* name)
{
    const auto found = head.headers.find(name);
    return found != head.headers.end() ? found->second : "";
}

bool isOurs(const std::string& host)
{
    for (const std::string& name : kRules.names) {
        if (strncasecmp(host.c_str(), name.c_str(), name.size()) != 0)
            continue;
        const std::string port = host.substr(name.size());
        if (port.empty() || (port[0] == ':' && port.find_first_not_of("0123456789", 1) == std::string::npos))
            return true;
    }
    return false;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const RequestHead head = headFrom({reinterpret_cast<const char*>(data), size});
    const Judgement judgement = judge(head, kRules);
    if (judgement.status != 200 && judgement.status != 303) {
        require(judgement.status >= 401 && judgement.status <= 421, "a refusal has a code of its own");
        require(!judgement.text.empty(), "a refusal says why");
        return 0;
    }
    const std::string origin = valueOf(head, "origin");
    require(isOurs(valueOf(head, "host")), "the request is for this server");
    require(origin.empty() || isOurs(origin.substr(std::min(origin.find("//") + 2, origin.size()))),
            "its page is ours");
    require(head.token == kRules.token || valueOf(head, "authorization") == "Bearer " + kRules.token ||
                valueOf(head, "cookie").find('=' + kRules.token) != std::string::npos,
            "its sender knows the token");
    if (head.method == "POST") {
        require(judgement.status == 200 && valueOf(head, "x-vqd") == "1", "what changes something has our header");
        require(strtoul(valueOf(head, "content-length").c_str(), nullptr, 10) <= kMostBody, "its content is short");
    }
    return 0;
}
