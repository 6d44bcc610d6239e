#include "tools/Printable.h"

#include <algorithm>

namespace tavrikctl {

std::string Printable(const std::string& text) {
    constexpr unsigned char kDelete = 0x7f;
    constexpr unsigned char kLeadOfC1 = 0xc2;  // U+0080 to U+009F are c2 80 to c2 9f
    constexpr unsigned char kLastOfC1 = 0x9f;
    std::string printable;
    for (std::size_t place = 0; place < text.size(); ++place) {
        const auto byte = static_cast<unsigned char>(text[place]);
        const bool hasNext = place + 1 < text.size();
        const bool isControl = byte < ' ' || byte == kDelete;
        const bool isC1 = byte == kLeadOfC1 && hasNext &&
                          static_cast<unsigned char>(text[place + 1]) <= kLastOfC1;
        printable += isControl || isC1 ? '?' : text[place];
        place += isC1 ? 1 : 0;
    }
    return printable;
}

std::size_t Width(const std::string& text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char letter) {
        return (static_cast<unsigned char>(letter) & 0xc0U) != 0x80U;
    }));
}

}  // namespace tavrikctl
