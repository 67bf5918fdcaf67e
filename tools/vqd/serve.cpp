// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd serve: the cameras of this machine in the browser.
#include <memory>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include "host/documents.h"
#include "recording/recorder.h"
#include "serve/server.h"

#include "command_line.h"
#include "commands.h"
#include "messages.h"
#include "options.h"
#include "output.h"

namespace
{

struct Options {
    std::string config, host = "127.0.0.1", recordings, pages;
    uint16_t port = 8760;
    std::vector<std::string> names;
    bool looks = false, publishes = false;
};

bool isLoopback(const std::string& host)
{
    return host == "::1" || host.starts_with("127.");
}

void requireReachable(const Options& options)
{
    if ((options.host == "0.0.0.0" || options.host == "::") && options.names.empty())
        throw Failure(kUsage,
                      "--host " + options.host +
                          " listens at all addresses, so --allow-host must say by which name or address clients call");
}

// What starts this program as a service waits for this.
void tellService()
{
    const char* const path = getenv("NOTIFY_SOCKET");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path == nullptr || strlen(path) >= sizeof address.sun_path)
        return;
    memcpy(address.sun_path, path, strlen(path));
    if (*path == '@')
        address.sun_path[0] = '\0';
    const Descriptor notify(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    constexpr std::string_view kReady = "READY=1";
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + strlen(path));
    (void)!sendto(notify, kReady.data(), kReady.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address),
                  length);
}

int look()
{
    Output output;
    output.print(lookAround());
    output.finish();
    return kDone;
}

Server::Options serverOptions(const Options& options)
{
    Server::Options server;
    server.version = VQD_VERSION;
    server.host = options.host;
    server.port = options.port;
    server.names = options.names;
    server.pages = options.pages;
    std::string& recordings = server.configuration.recordings;
    if (!options.recordings.empty())
        recordings = std::filesystem::absolute(options.recordings).string();
    if (!options.config.empty())
        server.configuration = configurationFrom(textOfDocument(options.config), options.config, recordings);
    if (options.publishes)
        server.configuration.publish.wanted = true;
    if (publishesAny(server.configuration))
        (void)publisherProgram(); // rather than a server that cannot do what it was asked for
    if (!recordings.empty()) {
        if (const char* const missing = recordingMissing())
            throw Failure(kUsage, missing);
        requireWritableDirectory(recordings);
        server.workerOptions = {"--recordings", recordings, "--keep-free", std::to_string(leastFree(recordings))};
    }
    if (common.noProfile)
        server.workerOptions.emplace_back("--no-profile");
    server.say = [](const std::string& sentence) { note("%s", sentence.c_str()); };
    return server;
}

int serve(const Options& options)
{
    if (options.looks)
        return look();
    requireReachable(options);
    Server server(serverOptions(options));
    if (!isLoopback(options.host))
        warn("what goes to and from %s is not encrypted, the token included; over ssh -L it would be",
             options.host.c_str());
    // A journal is read by more people than may use the cameras.
    if (isatty(STDERR_FILENO) == 1)
        note("open %s/?token=%s", server.address().c_str(), server.token().c_str());
    else
        note("%s, with the token in %s", server.address().c_str(), server.tokenFile().c_str());
    tellService();
    server.run();
    return kDone;
}

} // namespace

void addServe(CLI::App& app, Run& run)
{
    CLI::App* command = app.add_subcommand("serve", "Shows the cameras in the browser, and gives frames over HTTP");
    const auto options = std::make_shared<Options>();
    command->add_option("--config", options->config, "Names, settings and choice of cameras")
        ->type_name("FILE")
        ->check(notEmpty);
    command->add_option("--port", options->port, "Where to listen; 0 for any that is free")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    command->add_option("--host", options->host, "The address at which to listen")
        ->type_name("ADDRESS")
        ->capture_default_str();
    addRepeatable(*command, "--allow-host", options->names, "NAME",
                  "Another name by which browsers may call this server");
    command->add_option("--recordings", options->recordings, "The folder in which recordings are made")
        ->type_name("FOLDER")
        ->check(notEmpty);
    command->add_flag("--ros", options->publishes, "Publishes the cameras as ROS 2 topics, as vqd publish does");
    command->add_option("--pages", options->pages)->group("")->check(CLI::ExistingDirectory); // for work on the page
    command->add_flag("--look", options->looks)->group(""); // how the server finds cameras
    addCommon(*command, kProfile);
    command->footer(
        "Each camera gets a worker, as from vqd worker; one that runs already is used. Ctrl-C or SIGTERM ends all.\n"
        "Example: vqd serve\n"
        "Example: vqd serve --config cameras.json --recordings ~/recordings");
    command->callback([&run, options] { run = [options] { return serve(*options); }; });
}
