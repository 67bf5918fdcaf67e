// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A queue of frames, a thread that writes their files, and the table beside them.
#include "series.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "host/failure.h"
#include "host/formatted.h"

#include "options.h"

namespace
{

constexpr char kTable[] = "frames.csv";
constexpr size_t kMostWaiting = 64; // two seconds, 20 MB

[[noreturn]] void fail(const std::filesystem::path& path)
{
    throw Failure(kFailed, path.string() + ": " + strerror(errno));
}

// "depth-000001.png"
bool isOfSeries(const std::string& name)
{
    constexpr size_t kLeastDigits = 6;
    if (name == kTable)
        return true;
    for (const auto& [stem, extensions] : seriesNames()) {
        const size_t digits = stem.size() + 1, dot = name.find('.');
        if (name.starts_with(stem + "-") && dot != std::string::npos && dot >= digits + kLeastDigits &&
            std::all_of(name.begin() + static_cast<std::ptrdiff_t>(digits),
                        name.begin() + static_cast<std::ptrdiff_t>(dot), [](char c) { return c >= '0' && c <= '9'; }))
            return std::ranges::count(extensions, name.substr(dot + 1)) > 0;
    }
    return false;
}

std::vector<std::string> seriesIn(const std::filesystem::path& directory)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
        if (const std::string name = entry.path().filename(); isOfSeries(name))
            names.push_back(name);
    std::ranges::sort(names);
    return names;
}

// One call for all files costs less than waiting for each.
void bringToDisk(const std::filesystem::path& directory)
{
    const int descriptor = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool synced = descriptor >= 0 && syncfs(descriptor) == 0;
    const int error = errno;
    if (descriptor >= 0)
        close(descriptor);
    errno = error;
    if (!synced)
        fail(directory);
}

} // namespace

// A file of whole lines, even when the disk is full.
class Series::Table
{
public:
    explicit Table(const std::filesystem::path& path)
        : m_path(path), m_file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666))
    {
        if (m_file < 0)
            fail(m_path);
    }
    ~Table() { close(m_file); }
    Table(const Table&) = delete;
    Table& operator=(const Table&) = delete;

    void append(const std::string& line)
    {
        const ssize_t written = ::write(m_file, line.data(), line.size());
        if (written == static_cast<ssize_t>(line.size())) {
            m_size += written;
            return;
        }
        const int error = written < 0 ? errno : ENOSPC;
        [[maybe_unused]] const int cut = ftruncate(m_file, m_size);
        errno = error;
        fail(m_path);
    }

private:
    const std::filesystem::path m_path;
    const int m_file;
    off_t m_size = 0;
};

void requireNoSeries(const std::filesystem::path& directory)
{
    for (const std::string& name : seriesIn(directory))
        requireNewFile(directory / name, existing());
}

Series::Series(std::filesystem::path directory, SeriesFormat format)
    : m_directory(std::move(directory)), m_format(std::move(format)), m_older(seriesIn(m_directory)),
      m_thread([this] { run(); })
{
}

Series::~Series()
{
    end(true);
}

void Series::end(bool drop)
{
    {
        const std::lock_guard lock(m_mutex);
        m_ending = true;
        if (drop)
            m_jobs.clear();
    }
    m_changed.notify_all();
    if (m_thread.joinable())
        m_thread.join();
}

void Series::add(const DepthFrame& frame, const Arrival& arrival)
{
    auto job = std::unique_ptr<Job>(new Job{frame, arrival});
    std::unique_lock lock(m_mutex);
    m_heldUp = m_heldUp || m_jobs.size() >= kMostWaiting;
    m_changed.wait(lock, [&] { return m_jobs.size() < kMostWaiting || m_error; });
    if (m_error)
        std::rethrow_exception(m_error);
    m_jobs.push_back(std::move(job));
    m_changed.notify_all();
}

void Series::finish()
{
    end(false);
    m_table.reset();
    if (m_kept > 0)
        bringToDisk(m_directory);
    if (m_error)
        std::rethrow_exception(m_error);
}

void Series::run()
{
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [&] { return !m_jobs.empty() || m_ending; });
        if (m_jobs.empty())
            return;
        const std::unique_ptr<Job> job = std::move(m_jobs.front());
        m_jobs.pop_front();
        m_changed.notify_all();
        lock.unlock();
        std::exception_ptr error;
        try {
            write(*job, m_kept + 1);
            ++m_kept;
        } catch (...) {
            error = std::current_exception();
        }
        lock.lock();
        if (error) {
            m_error = error;
            m_changed.notify_all();
            return;
        }
    }
}

void Series::write(const Job& job, int number)
{
    const std::vector<FrameFile> files = seriesFiles(m_format, number);
    writeFiles(m_directory, files, job.frame, OnDisk::later);
    if (number == 1) {
        removeOlder(files);
        m_table = std::make_unique<Table>(m_directory / kTable);
        m_table->append("file,frame,host_time,stamp_ms,reopened,lost_estimate\n");
    }
    m_table->append(formatted("%s,%d,%.6f,%lld,%d,%d\n", files.front().name.c_str(), number,
                              std::chrono::duration<double>(job.arrival.time.time_since_epoch()).count(),
                              static_cast<long long>(job.frame.info.nTimeStamp), job.arrival.reopened,
                              job.arrival.lost));
}

void Series::removeOlder(const std::vector<FrameFile>& but)
{
    for (const std::string& name : m_older)
        if (std::ranges::find(but, name, &FrameFile::name) == but.end() && unlink((m_directory / name).c_str()) != 0 &&
            errno != ENOENT)
            fail(m_directory / name);
}
