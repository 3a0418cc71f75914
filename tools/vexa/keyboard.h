/**
 * @file
 * Keys one by one from the terminal that is standard input, without being shown there; the terminal is given
 * back as it was. Where standard input is no terminal, or another program's at the moment, there is none.
 *
 *     vexa::keyboard keys;
 *     // when keys.fd() is readable:
 *     for (const vexa::key &each : keys.take()) { act_on(each); }
 */
#ifndef VEXA_KEYBOARD_H
#define VEXA_KEYBOARD_H

#include "key_reader.h"

#include <termios.h>
#include <vector>

namespace vexa {

class keyboard {
public:
    keyboard();
    ~keyboard();
    keyboard(const keyboard &) = delete;
    keyboard &operator=(const keyboard &) = delete;

    /** Becomes readable with a key, for poll; -1 when there is no keyboard. */
    [[nodiscard]] int fd() const;

    /** What was pressed since the last time; never waits. */
    std::vector<key> take();

private:
    void give_back();

    termios settings_{}; // as they were; before there_, by which they are read
    bool there_;
    key_reader reader_;
};

} // namespace vexa

#endif
