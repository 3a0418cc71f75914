/**
 * @file
 * From what a terminal sends to the keys that were pressed.
 *
 *     vexa::key_reader keys;
 *     for (const vexa::key &each : keys.take(bytes)) { act_on(each); }
 */
#ifndef VEXA_KEY_READER_H
#define VEXA_KEY_READER_H

#include <string>
#include <string_view>
#include <vector>

namespace vexa {

enum class key_kind {
    text,
    enter,
    escape,
    erase,
    erase_all,
    tab,
    up,
    down,
    left,
    right,
    page_up,
    page_down,
    home,
    end
};

struct key {
    key_kind kind = key_kind::text;
    char text = 0; /**< a printable ASCII character, of key_kind::text */
    bool operator==(const key &) const = default;

    [[nodiscard]] bool is(char wanted) const { return kind == key_kind::text && text == wanted; }
};

class key_reader {
public:
    /** The keys in what has come. The beginning of a sequence is kept for the next time; an escape character
     * at the end is the escape key. */
    std::vector<key> take(std::string_view bytes);

private:
    std::string rest_;
};

} // namespace vexa

#endif
