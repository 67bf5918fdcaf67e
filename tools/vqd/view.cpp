// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// vqd view: the depth image in the terminal, two pixels a character.
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/ioctl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include "host/formatted.h"

#include "cameras.h"
#include "commands.h"
#include "interrupt.h"
#include "options.h"
#include "output.h"
#include "pictures.h"

namespace
{

struct Options {
    int frames = 0; // 0: until a signal
    bool once = false;
};

struct Size {
    int columns, rows;
    bool operator==(const Size&) const = default;
};

int numberIn(const char* variable, int otherwise)
{
    const char* text = getenv(variable);
    const int number = text != nullptr ? atoi(text) : 0;
    return number > 0 ? std::min(number, 10'000) : otherwise;
}

// The size of the terminal. Where there is none, the variables that shells keep tell it.
Size terminalSize(int terminal)
{
    winsize size{};
    if (ioctl(terminal, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 && size.ws_row > 0)
        return {size.ws_col, size.ws_row};
    return {numberIn("COLUMNS", 80), numberIn("LINES", 24)};
}

// A picture of columns x (2 rows) pixels, as large as fits above a line of text, but not enlarged.
struct Fit {
    int width, height;

    explicit Fit(Size size)
    {
        const int below = 2 * std::max(size.rows - 2, 1);
        constexpr double kWidth = VQD_WIDTH, kHeight = VQD_HEIGHT;
        const double scale = std::min({1.0, size.columns / kWidth, below / kHeight});
        width = std::max(static_cast<int>(kWidth * scale), 1);
        height = std::max(static_cast<int>(kHeight * scale) / 2 * 2, 2);
    }
};

// Takes the middle pixel of each block, or, where that is invalid, the nearest valid one. An average would show
// something between two surfaces, where there is nothing.
std::vector<uint16_t> shrink(const DepthFrame& frame, const Fit& fit)
{
    std::vector<uint16_t> small;
    for (int y = 0; y < fit.height; ++y)
        for (int x = 0; x < fit.width; ++x) {
            const int left = x * VQD_WIDTH / fit.width, right = (x + 1) * VQD_WIDTH / fit.width;
            const int top = y * VQD_HEIGHT / fit.height, bottom = (y + 1) * VQD_HEIGHT / fit.height;
            const auto depth = [&](int column, int row) { return frame.depth[VQD_WIDTH * row + column]; };
            uint16_t value = depth((left + right) / 2, (top + bottom) / 2);
            if (value == 0)
                for (int row = top; row < bottom; ++row)
                    for (int column = left; column < right; ++column)
                        if (const uint16_t other = depth(column, row); other != 0 && (value == 0 || other < value))
                            value = other;
            small.push_back(value);
        }
    return small;
}

// Draws rows of half blocks: the upper pixel is the character's colour, the lower one its background. A colour is only
// sent when it changes.
std::string drawing(const Bytes& colours, const Fit& fit)
{
    std::string text;
    for (int y = 0; y < fit.height; y += 2) {
        const uint8_t* upper = colours.data() + 3 * static_cast<ptrdiff_t>(y) * fit.width;
        const uint8_t* lower = upper + 3 * static_cast<ptrdiff_t>(fit.width);
        const uint8_t *ink = nullptr, *paper = nullptr;
        const auto change = [&](int plane, const uint8_t*& present, const uint8_t* wanted) {
            if (present == nullptr || !std::equal(wanted, wanted + 3, present)) {
                text += formatted("\33[%d;2;%u;%u;%um", plane, wanted[0], wanted[1], wanted[2]);
            }
            present = wanted;
        };
        for (int x = 0; x < fit.width; ++x, upper += 3, lower += 3) {
            change(38, ink, upper);
            change(48, paper, lower);
            text += "\u2580";
        }
        text += "\33[0m\33[K\n";
    }
    return text;
}

std::string caption(const DepthFrame& frame, const ListedCamera& camera, const std::string& more, int columns)
{
    const std::string text = formatted("%s  centre %u mm  %.1f degrees%s", camera.szSerialNumber,
                                       unsigned{frame.depth[VQD_PIXELS / 2 + VQD_WIDTH / 2]},
                                       vqdGetTemperature(camera.nIndex), more.c_str());
    return text.substr(0, static_cast<size_t>(columns));
}

int g_terminal = -1; // also for a signal handler on the way out

void send(const char* text)
{
    [[maybe_unused]] const ssize_t sent = write(g_terminal, text, strlen(text));
}

// The terminal's second screen, without a cursor. The first is given back on every way out, even after a second signal.
class Screen
{
public:
    explicit Screen(int terminal)
    {
        g_terminal = terminal;
        onForcedEnd(leave);
        send("\33[?1049h\33[?25l");
    }
    ~Screen()
    {
        onForcedEnd(nullptr);
        leave();
    }
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

private:
    static void leave() { send("\33[0m\33[?25h\33[?1049l"); }
};

std::string picture(const DepthFrame& frame, const ListedCamera& camera, Size size, const std::string& more)
{
    const Fit fit(size);
    return drawing(depthColours(shrink(frame, fit)), fit) + caption(frame, camera, more, size.columns);
}

void showAll(Stream& stream, DepthFrame& frame, Output& output, const ListedCamera& camera, int frames)
{
    using Clock = std::chrono::steady_clock;
    Size drawn{};
    double rate = 0;
    for (int i = 0; frames == 0 || i < frames; ++i) {
        const Clock::time_point start = Clock::now();
        stream.read(frame);
        const Size size = terminalSize(g_terminal);
        const std::string more = formatted("  %.1f frames a second  Ctrl-C ends", rate);
        // When the size has changed, the screen is cleared of the previous picture.
        output.print("%s\33[H%s\33[K", size == drawn ? "" : "\33[2J", picture(frame, camera, size, more).c_str());
        output.finish();
        drawn = size;
        const double now = 1 / std::chrono::duration<double>(Clock::now() - start).count();
        if (i > 0)                                         // the first frame has waited
            rate = i == 1 ? now : rate + (now - rate) / 8; // smoothed, or nobody could read it
    }
}

int view(const Options& options)
{
    if (!options.once && !isatty(STDOUT_FILENO))
        throw Failure(kUsage, "standard output is not a terminal; vqd view --once prints one frame");
    const Size size = terminalSize(STDOUT_FILENO);
    const int terminal =
        fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1); // standard output goes elsewhere soon
    Output output;
    LibraryLines lines; // not into the picture
    const Cameras cameras;
    const ListedCamera& camera = cameras.choose();
    cameras.loadWithProfile(camera);
    const auto frame = std::make_unique<DepthFrame>();
    Stream stream(camera);
    if (options.once) {
        stream.read(*frame);
        output.print("%s\n", picture(*frame, camera, size, "").c_str());
        output.finish();
        return kDone;
    }
    const Screen screen(terminal);
    try {
        showAll(stream, *frame, output, camera, options.frames);
    } catch (const Failure& failure) {
        if (failure.code != kInterrupted) // the usual way to end
            throw;
    }
    return kDone;
}

} // namespace

void addView(CLI::App& app, Run& run)
{
    CLI::App* command = app.add_subcommand("view", "Shows the depth image in the terminal, until Ctrl-C");
    const auto options = std::make_shared<Options>();
    command->add_option("-n,--frames", options->frames, "Number of frames after which it ends")
        ->check(CLI::Range(1, 100'000'000));
    command->add_flag("--once", options->once, "Print one frame and end; this also works without a terminal");
    addCommon(*command, kCamera | kProfile);
    command->footer("Near is red, far is violet, invalid is black. The terminal must support 24-bit colours.\n"
                    "Example: ssh -t robot vqd view");
    command->callback([&run, options] { run = [options] { return view(*options); }; });
}
