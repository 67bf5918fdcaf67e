// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The orthogonal table file: any text, for any principal point.
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

#include "input.h"
#include "session.h"

namespace
{

constexpr double kImplausible = 6.5535; // the camera's table, so that the file is asked for

// A folder of its own for the file, which has a fixed name in the current directory. The program itself stays where it
// is but for the load.
class Folder
{
public:
    Folder()
    {
        std::string name = std::filesystem::temp_directory_path() / "orthogonal-XXXXXX";
        require(mkdtemp(name.data()) != nullptr, "there is a folder for the table file");
        m_path = name;
        m_home = open(".", O_DIRECTORY | O_RDONLY | O_CLOEXEC);
    }
    ~Folder()
    {
        close(m_home);
        std::filesystem::remove_all(m_path);
    }

    void load(std::span<const uint8_t> text, int repeat) const
    {
        require(chdir(m_path.c_str()) == 0, "the folder is there");
        FILE* file = fopen("Orthogonal_Table.dat", "wb");
        require(file != nullptr, "the table file can be written");
        for (int i = 0; i < repeat; ++i)
            fwrite(text.data(), 1, text.size(), file);
        fclose(file);
        LoadOrthogonalTable(0);
        require(std::filesystem::file_size("Orthogonal_Table.dat") == text.size() * static_cast<size_t>(repeat),
                "the file stays as it is");
        require(fchdir(m_home) == 0, "the program goes back");
    }

private:
    std::filesystem::path m_path;
    int m_home = -1;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const Folder folder;
    Input input(data, size);
    Session session;
    sim::Camera& camera = session.plug("VQD-RS110");
    session.list();
    camera.regions[0x7000].assign(4096, 0xFF);
    const bool finite = input.below(4) != 0;
    float* centre = m_fIntrinsicParam[0] + 2;
    for (int i = 0; i < 2; ++i)
        centre[i] = finite ? static_cast<float>(input.take<int16_t>()) : input.take<float>();
    const int repeat = input.take();
    folder.load(input.takeSome(input.left()), repeat);

    // The file's values come first and without gaps; behind them the camera's factors stay.
    int kept = 0;
    while (kept < VQD_PIXELS && m_dOrthogonalData[VQD_PIXELS - 1 - kept] == kImplausible)
        ++kept;
    require(kept == VQD_PIXELS || repeat > 0, "an empty file brings no value");
    return 0;
}
