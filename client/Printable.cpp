#include "client/Printable.h"

#include <algorithm>
#include <clocale>
#include <cwchar>
#include <iterator>
#include <sstream>
#include <string_view>
#include <vector>

namespace tavrik {

namespace {

/// Makes the C library read UTF-8 in this thread, regardless of the user's locale.
class Utf8 {
public:
    Utf8() : previous(uselocale(Locale())) {}
    ~Utf8() { uselocale(previous); }
    Utf8(const Utf8&) = delete;
    Utf8& operator=(const Utf8&) = delete;

private:
    static locale_t Locale() {
        static const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
        return locale;
    }

    locale_t previous;
};

struct Character {
    std::string_view bytes;
    std::size_t width;  // in columns; 0 if not printable
};

Character First(std::string_view text) {
    std::mbstate_t state{};
    wchar_t letter = 0;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): its state is here
    const std::size_t size = std::mbrtowc(&letter, text.data(), text.size(), &state);
    if (size == 0 || size > text.size()) {  // a zero byte, or invalid UTF-8
        return {text.substr(0, 1), 0};
    }
    const int width = wcwidth(letter);
    return {text.substr(0, size), width < 0 ? 0U : static_cast<std::size_t>(width)};
}

constexpr std::string_view kBlanks = " \t\n";

/// The position of the quotation mark that ends the quotation at `begin`; `begin` without one. An
/// apostrophe within a word ends none.
std::size_t EndOfQuote(const std::string& text, std::size_t begin) {
    constexpr std::string_view kAfterQuote = " \t\n,;:.)";
    const bool isQuoted = text[begin] == '\'';
    for (std::size_t i = begin + 1; isQuoted && i < text.size(); ++i) {
        const bool isLast = i + 1 == text.size();
        if (text[i] == '\'' &&
            (isLast || kAfterQuote.find(text[i + 1]) != std::string_view::npos)) {
            return i;
        }
    }
    return begin;
}

/// The words; one in single quotes has its blanks.
std::vector<std::string> Words(const std::string& text) {
    std::vector<std::string> words;
    std::size_t begin = text.find_first_not_of(kBlanks);
    while (begin != std::string::npos) {
        const std::size_t end = text.find_first_of(kBlanks, EndOfQuote(text, begin));
        words.push_back(text.substr(begin, end - begin));
        begin = text.find_first_not_of(kBlanks, end);
    }
    return words;
}

/// The words, and those of quotations that are wider than `width`.
std::vector<std::string> WordsWithin(const std::string& text, std::size_t width) {
    std::vector<std::string> words;
    for (const std::string& word : Words(text)) {
        if (Width(word) <= width) {
            words.push_back(word);
            continue;
        }
        std::istringstream parts(word);
        words.insert(words.end(), std::istream_iterator<std::string>(parts), {});
    }
    return words;
}

/// Whether `text` is printable ASCII, as most texts are: found sooner than the width of each
/// letter.
bool IsPlain(const std::string& text) {
    return std::ranges::all_of(text, [](char letter) { return letter >= ' ' && letter <= '~'; });
}

std::vector<Character> Characters(std::string_view text) {
    const Utf8 encoding;
    std::vector<Character> characters;
    while (!text.empty()) {
        characters.push_back(First(text));
        text.remove_prefix(characters.back().bytes.size());
    }
    return characters;
}

}  // namespace

std::string Printable(const std::string& text) {
    if (IsPlain(text)) {
        return text;
    }
    std::string printable;
    for (const auto& [bytes, width] : Characters(text)) {
        printable += width == 0 ? "?" : bytes;
    }
    return printable;
}

std::string ShellWord(const std::string& text) {
    constexpr std::string_view kPlain =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-+./:=@%,";
    if (!text.empty() && text.find_first_not_of(kPlain) == std::string::npos) {
        return text;
    }
    std::string word = "'";
    for (const char letter : text) {
        word += letter == '\'' ? "'\\''" : std::string(1, letter);
    }
    return word + "'";
}

std::string CopyableName(const std::string& device) {
    const bool isPlain = device.find("  ") == std::string::npos && !device.starts_with(' ') &&
                         !device.ends_with(' ');
    return isPlain ? device : ShellWord(device);
}

std::size_t Width(const std::string& text) {
    if (IsPlain(text)) {
        return text.size();
    }
    std::size_t sum = 0;
    for (const Character& character : Characters(text)) {
        sum += character.width;
    }
    return sum;
}

std::string AlignRight(const std::string& text, std::size_t width) {
    return std::string(width - std::min(width, Width(text)), ' ') + text;
}

std::string AlignLeft(const std::string& text, std::size_t width) {
    return text + std::string(width - std::min(width, Width(text)), ' ');
}

std::string CutToWidth(const std::string& text, std::size_t width) {
    std::string beginning;
    for (const Character& character : Characters(text)) {
        if (character.width > width) {
            break;
        }
        width -= character.width;
        beginning += character.bytes;
    }
    return beginning;
}

std::vector<std::string> Wrap(const std::string& text, std::size_t width) {
    std::vector<std::string> lines(1);
    for (const std::string& word : WordsWithin(text, width)) {
        if (!lines.back().empty() && Width(lines.back()) + 1 + Width(word) > width) {
            lines.emplace_back();
        }
        lines.back() += (lines.back().empty() ? "" : " ") + word;
        while (Width(lines.back()) > width) {
            const std::string begin = CutToWidth(lines.back(), width);
            lines.push_back(lines.back().substr(begin.size()));
            lines[lines.size() - 2] = begin;
        }
    }
    return lines;
}

}  // namespace tavrik
