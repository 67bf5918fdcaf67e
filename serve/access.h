// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Who may do what. One judgement, made of a request's head alone, before anything else is done with the request.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

inline constexpr size_t kMostBody = 4096; // bytes of a POST

// The head of a request. Names of headers are in lower case; one that came twice has both values, with a comma between.
struct RequestHead {
    std::string method, path;
    std::map<std::string, std::string> headers;
    std::optional<std::string> token; // in the query
};

struct AccessRules {
    std::string token;
    std::vector<std::string> names; // in lower case and without a port: by which clients may call this server
};

// 200: go on. 303: the token in the address is right; the browser keeps it as this cookie and asks again without it.
struct Judgement {
    unsigned status;
    std::string text; // the sentence of a refusal, or the cookie
};

Judgement judge(const RequestHead& head, const AccessRules& rules);

// The names of a machine's loopback.
std::vector<std::string> loopbackNames();

// As it stands in a URL and in the header Host. Browsers write an IPv6 address in one form, in whatever form it is
// given.
std::string nameOf(const std::string& host);

// Without the port, in lower case; empty when the text is no name with or without a port.
std::string nameInHost(std::string_view host);
