/**
 * @file
 * `vexa top` as something that is fed with datagrams and keys and draws itself; the terminal is around it.
 *
 *     vexa::top_page page(numbers_of_the_moment, look);
 *     page.press({vexa::key_kind::text, 's'});
 *     const vexa::text_screen lines = page.draw({80, 24});
 */
#ifndef VEXA_TOP_PAGE_H
#define VEXA_TOP_PAGE_H

#include "key_reader.h"
#include "top_screen.h"

#include <functional>

namespace vexa {

class top_page {
public:
    /** @param now  gives the numbers of the moment; not asked while the picture is held */
    top_page(std::function<top_numbers()> now, top_look look)
        : now_(std::move(now)), look_(std::move(look)) {}

    /** Takes the numbers of the moment, unless the picture is held. */
    void refresh();

    /** Does what a key is for; false when it is to end. */
    bool press(const key &pressed);

    text_screen draw(screen_size size);

private:
    void type(const key &pressed);
    void try_filter();
    bool press_letter(char letter);
    void scroll(const key &pressed);
    void sort_by_next(int step);

    std::function<top_numbers()> now_;
    top_look look_;
    top_numbers numbers_;
    top_look before_typing_;
    size_t room_ = 1; // rows, at the last picture
};

} // namespace vexa

#endif
