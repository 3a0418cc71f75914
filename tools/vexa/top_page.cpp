// The keys of `vexa top`. See top_page.h.
#include "top_page.h"

#include <algorithm>

namespace vexa {

void top_page::refresh() {
    if (!look_.paused) {
        numbers_ = now_();
    }
}

bool top_page::press(const key &pressed) {
    if (look_.typing) {
        type(pressed);
        return true;
    }
    switch (pressed.kind) {
    case key_kind::text:
        return press_letter(pressed.text);
    case key_kind::escape:
        look_.filter = {};
        look_.filter_text.clear();
        look_.shows_help = false;
        break;
    case key_kind::tab:
        look_.shows_sockets = !look_.shows_sockets;
        look_.shows_help = false;
        look_.first_row = 0;
        break;
    case key_kind::left:
    case key_kind::right:
        sort_by_next(pressed.kind == key_kind::left ? -1 : 1);
        break;
    default:
        scroll(pressed);
    }
    return true;
}

bool top_page::press_letter(char letter) {
    switch (letter) {
    case 'q':
    case 'Q':
        return false;
    case 's':
    case '>':
        sort_by_next(1);
        break;
    case '<':
        sort_by_next(-1);
        break;
    case 'r':
        look_.reversed = !look_.reversed;
        break;
    case 'p':
    case ' ':
        look_.paused = !look_.paused;
        refresh();
        break;
    case 'h':
    case '?':
        look_.shows_help = !look_.shows_help;
        break;
    case '/':
        before_typing_ = look_;
        look_.typing = look_.filter_text;
        look_.shows_help = false;
        break;
    default:
        break; // says nothing to it
    }
    return true;
}

void top_page::sort_by_next(int step) {
    look_.sort = static_cast<top_sort>((static_cast<int>(look_.sort) + step + k_top_sorts) % k_top_sorts);
    look_.reversed = false;
    look_.first_row = 0;
}

void top_page::scroll(const key &pressed) {
    const size_t rows = look_.shows_sockets ? numbers_.sockets.size() : chosen(numbers_.flows, look_).size();
    const size_t last = rows > room_ ? rows - room_ : 0;
    const size_t at = std::min(look_.first_row, last); // rows may have gone since
    switch (pressed.kind) {
    case key_kind::up:
        look_.first_row = at - std::min<size_t>(at, 1);
        break;
    case key_kind::down:
        look_.first_row = std::min(at + 1, last);
        break;
    case key_kind::page_up:
        look_.first_row = at - std::min(at, room_);
        break;
    case key_kind::page_down:
        look_.first_row = std::min(at + room_, last);
        break;
    case key_kind::home:
        look_.first_row = 0;
        break;
    case key_kind::end:
        look_.first_row = last;
        break;
    default:
        break;
    }
}

/// The rows follow what is typed as soon as it makes sense; what does not is complained of at its end.
void top_page::type(const key &pressed) {
    look_.complaint.clear();
    switch (pressed.kind) {
    case key_kind::text:
        look_.typing->push_back(pressed.text);
        break;
    case key_kind::erase:
        look_.typing->resize(look_.typing->size() - std::min<size_t>(look_.typing->size(), 1));
        break;
    case key_kind::erase_all:
        look_.typing->clear();
        break;
    case key_kind::escape:
        look_.typing.reset();
        look_.filter = before_typing_.filter;
        look_.filter_text = before_typing_.filter_text;
        return;
    case key_kind::enter:
        try_filter();
        look_.typing = look_.complaint.empty() ? std::nullopt : look_.typing;
        return;
    default:
        return;
    }
    try_filter();
    look_.complaint.clear();
}

void top_page::try_filter() {
    try {
        look_.filter = message_filter(*look_.typing);
        look_.filter_text = *look_.typing;
        look_.first_row = 0;
    } catch (const filter_error &wrong) {
        look_.complaint = wrong.what();
    }
}

text_screen top_page::draw(screen_size size) {
    room_ = std::max<size_t>(room_for_rows(size), 1);
    return top_screen(numbers_, look_, size);
}

} // namespace vexa
