// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Unix sockets: one that listens under a name of the file system, and a connection to such a name.
#pragma once

#include <filesystem>
#include <optional>

// A descriptor that is closed in the end.
class Descriptor
{
public:
    explicit Descriptor(int number = -1) : m_number(number) {}
    ~Descriptor();
    Descriptor(Descriptor&& other) noexcept;
    Descriptor& operator=(Descriptor&& other) noexcept;

    operator int() const { return m_number; }

private:
    int m_number;
};

// A connection that does not block; nothing when nobody listens there.
std::optional<Descriptor> connectTo(const std::filesystem::path& path);

// Removes the name of a socket on which nobody listens any more. A socket has a name shortly before it listens, and is
// left alone then.
void removeIfStale(const std::filesystem::path& path);

class ListeningSocket
{
public:
    // Listens under this name, for this user and, if this user may give it to it, the group that may use the cameras. A
    // socket on which nobody listens any more is replaced. Fails when somebody does, and for anything that is no
    // socket.
    explicit ListeningSocket(const std::filesystem::path& path);
    ~ListeningSocket(); // the name goes, too
    ListeningSocket(const ListeningSocket&) = delete;
    ListeningSocket& operator=(const ListeningSocket&) = delete;

    int descriptor() const { return m_descriptor; }

private:
    const std::filesystem::path m_path;
    Descriptor m_descriptor;
};
