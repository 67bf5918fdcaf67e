// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A second reading of the text, which counts lines and follows names.
#include "serve/json_lines.h"

#include <iterator>
#include <vector>

#include "host/failure.h"
#include "host/json.h"

namespace
{

// Counts the line ends that the parser has taken.
class Counting
{
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    Counting(const char* at, int* line) : m_at(at), m_line(line) {}
    reference operator*() const { return *m_at; }
    Counting& operator++()
    {
        *m_line += *m_at++ == '\n';
        return *this;
    }
    Counting operator++(int)
    {
        const Counting before = *this;
        ++*this;
        return before;
    }
    bool operator==(const Counting& other) const { return m_at == other.m_at; }

private:
    const char* m_at;
    int* m_line;
};

// What the parser tells. A path has an element for each object and array that is open.
class Follower : public nlohmann::json_sax<Json>
{
public:
    Follower(std::map<std::string, int>& lines, const int& line, const std::string& file)
        : m_lines(lines), m_line(line), m_file(file)
    {
    }

    bool null() override { return true; }
    bool boolean(bool) override { return true; }
    bool number_integer(number_integer_t) override { return true; }
    bool number_unsigned(number_unsigned_t) override { return true; }
    bool number_float(number_float_t, const string_t&) override { return true; }
    bool string(string_t&) override { return true; }
    bool binary(binary_t&) override { return true; }
    bool start_array(std::size_t) override { return start_object(0); }
    bool end_array() override { return end_object(); }
    bool parse_error(std::size_t, const std::string&, const Json::exception&) override { return false; }

    bool start_object(std::size_t) override
    {
        m_path.emplace_back();
        return true;
    }
    bool end_object() override
    {
        m_path.pop_back();
        return true;
    }
    bool key(string_t& name) override
    {
        m_path.back() = name;
        std::string path;
        for (const std::string& part : m_path)
            path += '/' + part;
        if (!m_lines.emplace(path, m_line).second)
            throw Failure(kUsage,
                          m_file + ":" + std::to_string(m_line) + ": \"" + name + "\" stands here a second time");
        return true;
    }

private:
    std::map<std::string, int>& m_lines;
    const int& m_line;
    const std::string& m_file;
    std::vector<std::string> m_path;
};

} // namespace

JsonLines::JsonLines(std::string_view text, const std::string& file)
{
    int line = 1;
    Follower follower(m_lines, line, file);
    Json::sax_parse(Counting(text.data(), &line), Counting(text.data() + text.size(), &line), &follower);
}

int JsonLines::of(const std::string& path) const
{
    const auto found = m_lines.find(path);
    return found != m_lines.end() ? found->second : 1;
}
