// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The orthogonal table file: any text, for any principal point.
#include <filesystem>
#include <fstream>

#include "fresh_library.h"
#include "input.h"

namespace fs = std::filesystem;

namespace
{

// The library looks for the file in the current directory, which is changed only for the load.
struct Folder {
    Folder() { require(mkdtemp(path.data()) != nullptr, "there is a folder for the table file"); }
    ~Folder() { fs::remove_all(path); }

    void write(std::span<const uint8_t> text, int repeat) const
    {
        std::ofstream out(file(), std::ios::binary);
        for (int i = 0; i < repeat; ++i)
            out.write(reinterpret_cast<const char*>(text.data()), static_cast<std::streamsize>(text.size()));
        require(out.flush().good(), "the table file can be written");
    }

    // The table that the library makes of the file, with a camera whose factors all have this code.
    std::vector<double> load(sim::Camera& camera, uint16_t code) const
    {
        std::vector<uint8_t>& region = camera.regions[0x7000];
        region.resize(4096);
        for (size_t i = 0; i < region.size(); ++i)
            region[i] = static_cast<uint8_t>(i % 2 == 0 ? code >> 8 : code & 0xFF);
        const fs::path home = fs::current_path();
        fs::current_path(path);
        LoadOrthogonalTable(0);
        fs::current_path(home);
        return {std::begin(m_dOrthogonalData), std::end(m_dOrthogonalData)};
    }

    std::string path = fs::temp_directory_path() / "orthogonal-XXXXXX";
    std::string file() const { return path + "/Orthogonal_Table.dat"; }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static Folder folder;
    Input input(data, size);
    FreshLibrary library;
    sim::Camera& camera = library.plug("VQD-RS110");
    library.list();
    const bool finite = input.below(4) != 0;
    float* centre = m_fIntrinsicParam[0] + 2;
    for (int i = 0; i < 2; ++i)
        centre[i] = finite ? static_cast<float>(input.take<int16_t>()) : input.take<float>();
    const int repeat = input.take();
    const auto text = input.takeSome(input.left());
    folder.write(text, repeat);

    // Both factors are implausible, so the library reads the file. An entry that differs between the two loads comes
    // from the camera, and an entry that does not comes from the file.
    const std::vector<double> over = folder.load(camera, 65534), table = folder.load(camera, 65535);
    require(fs::file_size(folder.file()) == text.size() * static_cast<size_t>(repeat), "the file stays as it is");
    bool fromFile = repeat > 0;
    for (size_t i = 0; i < table.size(); ++i) {
        fromFile = fromFile && memcmp(&over[i], &table[i], sizeof table[i]) == 0;
        require(fromFile || (over[i] == 6.5534 && table[i] == 6.5535), "the file's values come first, without gaps");
    }
    return 0;
}
