// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A plan is cut into words; phrases of one or more words are looked up in tables.
#include "fault_language.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>
#include <optional>
#include <span>

#include "fault_words.h"
#include "wire.h"

namespace sim
{

namespace
{

struct Transfer {
    const char* phrase;
    Channel channel;
    int request;
};

constexpr Transfer kTransfers[] = {
    {"bulk in", Channel::bulkIn, -1},
    {"frame", Channel::bulkIn, -1},
    {"bulk out", Channel::bulkOut, -1},
    {"image", Channel::bulkOut, -1},
    {"eeprom read", Channel::control, kReadEeprom},
    {"eeprom write", Channel::control, kWriteEeprom},
    {"table read", Channel::control, kReadTable},
    {"table write", Channel::control, kWriteTable},
    {"control", Channel::control, -1},
    {"transfer", Channel::any, -1},
};

struct Effect {
    const char* phrase;
    Fault::Kind kind;
    Transfer usual; // the transfer that is meant when none is named
};

constexpr Transfer kFrame = kTransfers[0], kEepromRead = kTransfers[4], kAny = kTransfers[9];

constexpr Effect kEffects[] = {
    {"stalls", Fault::Kind::stall, kFrame},
    {"refused", Fault::Kind::stall, kFrame},
    {"times out", Fault::Kind::timeout, kFrame},
    {"timeout", Fault::Kind::timeout, kFrame},
    {"overflows", Fault::Kind::overflow, kFrame},
    {"breaks", Fault::Kind::ioError, kFrame},
    {"out of memory", Fault::Kind::noMemory, kFrame},
    {"answers", Fault::Kind::shortened, kEepromRead},
    {"bad start code", Fault::Kind::badStartCode, kFrame},
    {"unplugs", Fault::Kind::unplug, kAny},
    {"unplug", Fault::Kind::unplug, kAny},
    {"silent", Fault::Kind::silence, kAny},
};

constexpr const char* kOrdinals[] = {"first", "second",  "third",  "fourth", "fifth",
                                     "sixth", "seventh", "eighth", "ninth",  "tenth"};
constexpr const char* kNumberEndings[] = {"st", "nd", "rd", "th"};
constexpr const char* kFillers[] = {"a", "has", "is", "the", "with"}; // may stand before what goes wrong

constexpr struct {
    const char* name;
    double us;
} kUnits[] = {{"us", 1}, {"ms", 1e3}, {"s", 1e6}, {"min", 60e6}};

constexpr double kMostSeconds = 1e6;
constexpr double kMostCount = 1e9;

class Parser
{
public:
    Parser(std::string_view plan, size_t cameras) : m_plan(plan), m_words(cutIntoWords(plan)), m_cameras(cameras) {}

    std::vector<PlannedFault> parse()
    {
        std::vector<PlannedFault> faults;
        while (!word().text.empty())
            if (!take(";"))
                faults.push_back(line());
        return faults;
    }

private:
    const Word& word(size_t ahead = 0) const { return m_words[std::min(m_next + ahead, m_words.size() - 1)]; }
    bool atEnd() const { return word().text.empty() || word().text == ";"; }

    [[noreturn]] void fail(const std::string& what) const { fail(what, word()); }
    [[noreturn]] void fail(const std::string& what, const Word& where) const
    {
        throw FaultPlanError(what, m_plan, where.at);
    }

    // Takes all words of the phrase or none.
    bool take(std::string_view phrase)
    {
        size_t ahead = 0;
        for (std::string_view rest = phrase; !rest.empty(); ++ahead) {
            const std::string_view first = rest.substr(0, rest.find(' '));
            if (word(ahead).text != first)
                return false;
            rest.remove_prefix(std::min(rest.size(), first.size() + 1));
        }
        m_next += ahead;
        return true;
    }

    template <typename Row> const Row* takeRow(std::span<const Row> rows)
    {
        const auto row = std::find_if(rows.begin(), rows.end(), [&](const Row& r) { return take(r.phrase); });
        return row == rows.end() ? nullptr : &*row;
    }

    double number(const char* what, double least, double most)
    {
        const Word& at = word();
        double value = 0;
        const char* const end = at.text.data() + at.text.size();
        const auto [stop, error] = std::from_chars(at.text.data(), end, value);
        if (!at.number || error != std::errc{} || stop != end)
            fail(std::string("expected ") + what);
        if (value < least || value > most)
            fail(std::string(what) + " is out of range");
        ++m_next;
        return value;
    }

    template <typename Count> Count count(const char* what, Count least)
    {
        const Word& at = word();
        const double value = number(what, least, kMostCount);
        if (value != std::floor(value))
            fail(std::string("expected ") + what, at);
        return static_cast<Count>(value);
    }

    TimeUs duration()
    {
        const Word& at = word();
        const double value = number("a duration such as 350 ms", 0, 1e12);
        const auto unit =
            std::find_if(std::begin(kUnits), std::end(kUnits), [&](const auto& u) { return take(u.name); });
        if (unit == std::end(kUnits))
            fail("expected a unit: us, ms, s or min");
        if (value * unit->us > kMostSeconds * 1e6)
            fail("the duration is out of range", at);
        return static_cast<TimeUs>(std::llround(value * unit->us));
    }

    size_t camera()
    {
        if (word(1).text != ":")
            return 0;
        const Word& at = word();
        const auto chosen = count<size_t>("the number of a camera", 1);
        if (chosen > m_cameras)
            fail("there is no camera " + at.text + " (" + std::to_string(m_cameras) + " plugged in)", at);
        take(":");
        return chosen;
    }

    // Which of the matching transfers; true when the line says so.
    bool which(Fault& fault)
    {
        if (take("every")) {
            fault.times = 0;
            return true;
        }
        for (unsigned i = 0; i < std::size(kOrdinals); ++i)
            if (take(kOrdinals[i])) {
                fault.nth = i + 1;
                return true;
            }
        if (!word().number)
            return false;
        fault.nth = count<unsigned>("which one, such as 12th", 1);
        if (!std::any_of(std::begin(kNumberEndings), std::end(kNumberEndings), [&](auto* e) { return take(e); }))
            fail("expected an ending, such as 12th");
        return true;
    }

    std::optional<Transfer> transfer()
    {
        if (const Transfer* row = takeRow(std::span<const Transfer>(kTransfers)))
            return *row;
        if (!take("request"))
            return std::nullopt;
        const std::string& text = word().text;
        int request = 0;
        const char* const end = text.data() + text.size();
        const auto [stop, error] = std::from_chars(text.data() + std::min<size_t>(text.size(), 2), end, request, 16);
        if (!text.starts_with("0x") || error != std::errc{} || stop != end || request > 0xFF)
            fail("expected the number of a request, such as 0xB1");
        ++m_next;
        return Transfer{"", Channel::control, request};
    }

    const Effect& effect(bool transferNamed)
    {
        if (const Effect* row = takeRow(std::span<const Effect>(kEffects)))
            return *row;
        fail(transferNamed ? "expected what goes wrong: stalls, times out, overflows, breaks, out of memory, answers N "
                             "bytes, bad start code, unplugs"
                           : "expected a transfer (frame, EEPROM read, ...) or what goes wrong (stalls, unplug, ...)");
    }

    PlannedFault line()
    {
        PlannedFault planned{camera(), {}};
        Fault& fault = planned.fault;
        const bool counted = which(fault);
        const std::optional<Transfer> named = transfer();
        if (counted && !named)
            fail("expected a transfer: frame, image, EEPROM read, EEPROM write, table read, table write, request 0x..");
        while (std::any_of(std::begin(kFillers), std::end(kFillers), [&](auto* filler) { return take(filler); })) {
        }
        const Word& effectAt = word();
        const Effect& row = effect(named.has_value());
        fault.kind = row.kind;
        fault.channel = (named ? *named : row.usual).channel;
        fault.request = (named ? *named : row.usual).request;
        if (fault.kind == Fault::Kind::badStartCode && fault.channel != Channel::bulkIn)
            fail("only a frame has a start code", effectAt);
        if (fault.kind == Fault::Kind::shortened)
            bytes(fault);
        while (!atEnd())
            addition(fault);
        return planned;
    }

    void bytes(Fault& fault)
    {
        const Word& at = word();
        fault.bytes = count<size_t>("how many bytes arrive", 0);
        if (take("of") && count<size_t>("how many bytes were asked for", 1) < fault.bytes)
            fail("more bytes than were asked for", at);
        if (!take("bytes"))
            take("byte");
    }

    void addition(Fault& fault)
    {
        take(",");
        if (take("after frame"))
            fault.afterFrames = count<uint64_t>("the number of a frame", 0);
        else if ((fault.kind == Fault::Kind::unplug && take("back after")) ||
                 (fault.kind == Fault::Kind::silence && take("for")))
            fault.backAfter = duration();
        else if (word(1).text == "times") {
            fault.times = count<unsigned>("how often", 1);
            take("times");
        } else
            fail(std::string("expected the end of the line, \"after frame N\"") +
                 (fault.kind == Fault::Kind::unplug    ? ", \"back after 350 ms\""
                  : fault.kind == Fault::Kind::silence ? ", \"for 2 s\""
                                                       : "") +
                 " or \"N times\"");
    }

    std::string_view m_plan;
    std::vector<Word> m_words;
    size_t m_next = 0;
    size_t m_cameras;
};

// The line of the plan and a caret below; nothing that a terminal would act on.
std::string pointAt(std::string_view plan, size_t at)
{
    const size_t start = at == 0 ? 0 : plan.rfind('\n', at - 1) + 1; // 0 when there is no line before
    std::string line(plan.substr(start, plan.find('\n', start) - start));
    for (char& c : line)
        if (c < ' ' || c > '~')
            c = c == '\t' ? ' ' : '?';
    return "\n    " + line + "\n    " + std::string(at - start, ' ') + '^';
}

} // namespace

FaultPlanError::FaultPlanError(const std::string& what, std::string_view plan, size_t at)
    : std::runtime_error(what + pointAt(plan, at)), at(at)
{
}

std::vector<PlannedFault> parseFaultPlan(std::string_view plan, size_t cameras)
{
    return Parser(plan, cameras).parse();
}

} // namespace sim
