// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The pause between two writes to one camera's EEPROM. An EEPROM wears out with writes, and a script or a page that
// saves in a loop would do so within days. All programs of a user share the time of the last write.
#pragma once

#include <string>

#include "host/failure.h"

inline constexpr int kSavePauseSeconds = 10;

// What to do when the last write to the camera was less than that ago.
enum class TooSoon { refuse, save };

struct SavedTooSoon : Failure {
    SavedTooSoon(const std::string& serial, double left);
    double left; // seconds until a save is allowed
};

// The right to write to the EEPROM of a camera, for as long as this object lives. No other program has it meanwhile.
// Fails with SavedTooSoon, or when another program is just writing.
class SaveTurn
{
public:
    SaveTurn(const std::string& serial, TooSoon tooSoon);
    ~SaveTurn();
    SaveTurn(const SaveTurn&) = delete;
    SaveTurn& operator=(const SaveTurn&) = delete;

    // To be called when the EEPROM may have been written, even if that failed.
    void saved() const;

private:
    const std::string m_serial;
    int m_file; // its last change is the last write; -1 where there is no place for it
};
