// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Which requests may pass. A row is a good request with one thing changed.
#include <gtest/gtest.h>

#include "serve/access.h"

namespace
{

const AccessRules kRules{"0123456789abcdef", {"localhost", "127.0.0.1", "[::1]", "robot.example"}};

RequestHead get()
{
    return {"GET", "/api/v1/state", {{"host", "localhost:8760"}, {"authorization", "Bearer 0123456789abcdef"}}, {}};
}

RequestHead post()
{
    RequestHead head = get();
    head.method = "POST";
    head.headers.merge(std::map<std::string, std::string>{
        {"x-vqd", "1"}, {"content-type", "application/json"}, {"content-length", "20"}});
    return head;
}

struct Change {
    const char* what;
    unsigned status;
    const char* header;
    const char* value; // null: without the header
};

void expectEach(const RequestHead& good, std::initializer_list<Change> changes)
{
    EXPECT_EQ(judge(good, kRules).status, 200U);
    for (const Change& change : changes) {
        RequestHead head = good;
        if (change.value != nullptr)
            head.headers[change.header] = change.value;
        else
            head.headers.erase(change.header);
        EXPECT_EQ(judge(head, kRules).status, change.status) << change.what;
    }
}

} // namespace

TEST(Access, HostMustBeOneOfTheNamesWhole)
{
    expectEach(get(), {{"another port, as over ssh -L", 200, "host", "localhost:9000"},
                       {"no port", 200, "host", "127.0.0.1"},
                       {"IPv6", 200, "host", "[::1]:8760"},
                       {"in upper case", 200, "host", "LocalHost:8760"},
                       {"allowed by the user", 200, "host", "robot.example"},
                       {"missing", 421, "host", nullptr},
                       {"empty", 421, "host", ""},
                       {"rebound", 421, "host", "evil.example:8760"},
                       {"a name that only starts so", 421, "host", "localhost.evil.example"},
                       {"a name that only ends so", 421, "host", "evil-localhost"},
                       {"a port that is none", 421, "host", "localhost:x"},
                       {"a bracket without its other", 421, "host", "[::1"},
                       {"more after the bracket", 421, "host", "[::1]evil"},
                       {"two", 421, "host", "localhost:8760,evil.example"}});
    EXPECT_EQ(nameOf("2001:DB8:0:0::1"), "[2001:db8::1]"); // as a browser writes it, whatever --allow-host has
    EXPECT_EQ(nameOf("robot.example"), "robot.example");
}

TEST(Access, OtherSitesPagesAreRefused)
{
    expectEach(get(), {{"our page", 200, "origin", "http://localhost:8760"},
                       {"our page behind a TLS proxy", 200, "origin", "https://localhost:8760"},
                       {"another page", 403, "origin", "http://evil.example"},
                       {"another port", 403, "origin", "http://localhost:80"},
                       {"a file", 403, "origin", "null"},
                       {"ours by the browser", 200, "sec-fetch-site", "same-origin"},
                       {"typed", 200, "sec-fetch-site", "none"},
                       {"another port's page", 403, "sec-fetch-site", "same-site"},
                       {"another site's", 403, "sec-fetch-site", "cross-site"}});
}

TEST(Access, TheTokenIsNeeded)
{
    expectEach(get(), {{"missing", 401, "authorization", nullptr},
                       {"another", 401, "authorization", "Bearer 0123456789abcdeF"},
                       {"its start", 401, "authorization", "Bearer 0123456789abcde"},
                       {"more than it", 401, "authorization", "Bearer 0123456789abcdef0"},
                       {"empty", 401, "authorization", "Bearer "},
                       {"another scheme", 401, "authorization", "Basic 0123456789abcdef"}});
    RequestHead cookie = get();
    cookie.headers.erase("authorization");
    cookie.headers["cookie"] = "a=b; vqd-8760=0123456789abcdef; c=d";
    expectEach(cookie, {{"of another port", 401, "cookie", "vqd-9000=0123456789abcdef"},
                        {"another", 401, "cookie", "vqd-8760=0123456789abcdee"},
                        {"inside another cookie", 401, "cookie", "a=vqd-8760=0123456789abcdef"},
                        {"no value", 401, "cookie", "vqd-8760"},
                        {"only separators", 401, "cookie", ";;; ;"}});
}

TEST(Access, TheAddressWithTheTokenSetsTheCookieOfItsPort)
{
    RequestHead head{"GET", "/", {{"host", "localhost:9000"}}, "0123456789abcdef"};
    const Judgement good = judge(head, kRules);
    EXPECT_EQ(good.status, 303U);
    EXPECT_EQ(good.text, "vqd-9000=0123456789abcdef; Path=/; HttpOnly; SameSite=Strict");
    for (const char* token : {"", "0123456789abcdee"}) {
        head.token = token;
        EXPECT_EQ(judge(head, kRules).status, 401U) << token;
    }
    head.token = "0123456789abcdef";
    head.path = "/api/v1/state"; // an address with a token should not be one that scripts and logs keep
    EXPECT_EQ(judge(head, kRules).status, 401U);
}

TEST(Access, APostNeedsOurHeaderAndAShortJson)
{
    expectEach(post(), {{"without our header, as a form sends it", 403, "x-vqd", nullptr},
                        {"with another value", 403, "x-vqd", "2"},
                        {"a form", 415, "content-type", "text/plain"},
                        {"no type", 415, "content-type", nullptr},
                        {"with a character set", 200, "content-type", "application/json; charset=utf-8"},
                        {"a type that starts so", 415, "content-type", "application/jsonx"},
                        {"no length", 411, "content-length", nullptr},
                        {"two lengths", 411, "content-length", "20,20"},
                        {"a negative length", 411, "content-length", "-1"},
                        {"chunks", 411, "transfer-encoding", "chunked"},
                        {"just short enough", 200, "content-length", "4096"},
                        {"too long", 413, "content-length", "4097"},
                        {"longer than any number", 413, "content-length", "99999999999999999999999999"},
                        {"and the token", 401, "authorization", nullptr}});
    RequestHead other = get();
    for (const char* method : {"PUT", "DELETE", "OPTIONS", "TRACE", "get", ""}) {
        other.method = method;
        EXPECT_EQ(judge(other, kRules).status, 405U) << method;
    }
}
