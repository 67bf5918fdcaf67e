// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A page of somebody else's can make a browser send requests here, also under a name that it has pointed at this
// machine. What it cannot do is choose Host, Origin and Sec-Fetch-Site, read our token, or send our header without
// being asked first.
#include "serve/access.h"

#include <algorithm>
#include <arpa/inet.h>

namespace
{

using Text = std::optional<std::string_view>;

Text header(const RequestHead& head, const char* name)
{
    const auto found = head.headers.find(name);
    return found != head.headers.end() ? Text(found->second) : Text();
}

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

std::string lowerCase(std::string_view text)
{
    std::string lower(text);
    for (char& c : lower)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return lower;
}

bool contains(const std::vector<std::string>& names, const std::string& name)
{
    return std::ranges::find(names, name) != names.end();
}

// Takes as long whatever the texts have in common, so that nobody finds the token out letter by letter.
bool isSame(std::string_view given, std::string_view token)
{
    unsigned differs = given.size() != token.size();
    for (size_t i = 0; i < token.size(); ++i)
        differs |= static_cast<unsigned char>((i < given.size() ? given[i] : 0) ^ token[i]);
    return differs == 0;
}

// Browsers keep the cookies of all ports together, so the port is in the name. It is the one that the browser sees.
std::string cookieName(std::string_view host)
{
    const size_t colon = host.rfind(':');
    const bool hasPort = colon != std::string_view::npos && host.find(']', colon) == std::string_view::npos;
    return "vqd-" + (hasPort ? std::string(host.substr(colon + 1)) : "80");
}

Text cookie(std::string_view cookies, const std::string& name)
{
    while (!cookies.empty()) {
        const std::string_view one = cookies.substr(0, cookies.find(';'));
        cookies.remove_prefix(std::min(one.size() + 1, cookies.size()));
        const size_t start = std::min(one.find_first_not_of(' '), one.size());
        const std::string_view pair = one.substr(start);
        if (pair.starts_with(name) && pair.substr(name.size()).starts_with('='))
            return pair.substr(name.size() + 1);
    }
    return std::nullopt;
}

bool hasToken(const RequestHead& head, const AccessRules& rules)
{
    constexpr std::string_view kBearer = "Bearer ";
    if (const Text given = header(head, "authorization"))
        return given->starts_with(kBearer) && isSame(given->substr(kBearer.size()), rules.token);
    const Text given = cookie(header(head, "cookie").value_or(""), cookieName(*header(head, "host")));
    return given && isSame(*given, rules.token);
}

bool comesFromElsewhere(const RequestHead& head)
{
    const Text origin = header(head, "origin"), site = header(head, "sec-fetch-site");
    const std::string host = lowerCase(*header(head, "host"));
    if (origin && lowerCase(*origin) != "http://" + host && lowerCase(*origin) != "https://" + host)
        return true;
    return site && *site != "same-origin" && *site != "none";
}

bool isJson(std::string_view type)
{
    return lowerCase(type.substr(0, type.find_first_of("; "))) == "application/json";
}

std::optional<Judgement> refusedPost(const RequestHead& head)
{
    if (header(head, "x-vqd") != "1")
        return Judgement{403, "a request that changes something has the header X-VQD: 1"};
    if (!isJson(header(head, "content-type").value_or("")))
        return Judgement{415, "the content of a request is application/json"};
    const Text length = header(head, "content-length");
    if (!length || length->empty() || !std::ranges::all_of(*length, isDigit) || header(head, "transfer-encoding"))
        return Judgement{411, "a request says in Content-Length how long its content is"};
    if (length->size() > 9 || std::stoul(std::string(*length)) > kMostBody)
        return Judgement{413, "the content of a request has at most " + std::to_string(kMostBody) + " bytes"};
    return std::nullopt;
}

} // namespace

std::vector<std::string> loopbackNames()
{
    return {"localhost", "127.0.0.1", "[::1]"};
}

std::string nameOf(const std::string& host)
{
    in6_addr address;
    char canonical[INET6_ADDRSTRLEN];
    if (inet_pton(AF_INET6, host.c_str(), &address) != 1)
        return host;
    return std::string("[") + inet_ntop(AF_INET6, &address, canonical, sizeof canonical) + ']';
}

std::string nameInHost(std::string_view host)
{
    const size_t end = host.starts_with('[') ? host.find(']') + 1 : std::min(host.find(':'), host.size());
    const std::string_view port = host.substr(end);
    const bool hasGoodPort = port.empty() || (port.starts_with(':') && port.size() > 1 && port.size() <= 6 &&
                                              std::ranges::all_of(port.substr(1), isDigit));
    return hasGoodPort ? lowerCase(host.substr(0, end)) : "";
}

Judgement judge(const RequestHead& head, const AccessRules& rules)
{
    if (head.method != "GET" && head.method != "HEAD" && head.method != "POST")
        return {405, "only GET, HEAD and POST are understood"};
    const std::string name = nameInHost(header(head, "host").value_or(""));
    if (name.empty() || !contains(rules.names, name))
        return {421, "this server is not called so; --allow-host gives it another name"};
    if (comesFromElsewhere(head))
        return {403, "a page of another site has sent this request"};
    if (head.token && head.path == "/" && head.method != "POST" && isSame(*head.token, rules.token))
        return {303, cookieName(*header(head, "host")) + '=' + rules.token + "; Path=/; HttpOnly; SameSite=Strict"};
    if (head.token || !hasToken(head, rules))
        return {401,
                "the token is missing or wrong; vqd serve prints the address with it, or names the file that has it"};
    if (head.method == "POST")
        if (const std::optional<Judgement> refused = refusedPost(head))
            return *refused;
    return {200, ""};
}
