#include "simulator/LineProtocol.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <system_error>
#include <utility>

namespace simulator {

namespace {

constexpr std::size_t kLongestLine = 1024;
constexpr std::chrono::milliseconds kPauseBetweenPieces{1};
constexpr std::string_view kDecimalDigits = "0123456789";
constexpr std::string_view kHexadecimalDigits = "0123456789abcdef";

std::optional<unsigned> ParseDigits(std::string_view text, std::string_view digits) {
    const bool leadingZero = text.size() > 1 && text.front() == '0';
    if (text.empty() || leadingZero || text.find_first_not_of(digits) != std::string_view::npos) {
        return std::nullopt;
    }
    unsigned number = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number,
                                        static_cast<int>(digits.size()));
    if (result.ec != std::errc()) {
        return std::nullopt;
    }
    return number;
}

/// Removes "[TEXT]" from the front of `rest`.
/// @return TEXT
std::optional<std::string_view> TakeBracketGroup(std::string_view& rest) {
    const auto end = rest.find(']');
    if (!rest.starts_with('[') || end == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string_view group = rest.substr(1, end - 1);
    rest.remove_prefix(end + 1);
    return group;
}

}  // namespace

std::vector<std::string> LineAssembler::Add(std::string_view bytes) {
    std::vector<std::string> lines;
    for (const char byte : bytes) {
        if (byte == '\n') {
            std::string line = std::exchange(partialLine, {});
            if (!std::exchange(overlong, false)) {
                lines.push_back(std::move(line));
            }
        } else if (partialLine.size() < kLongestLine) {
            partialLine += byte;
        } else {
            overlong = true;
            partialLine.clear();
        }
    }
    return lines;
}

void LineAssembler::Clear() {
    partialLine.clear();
    overlong = false;
}

std::optional<Request> ParseRequest(std::string_view line) {
    if (const auto equals = line.find('='); equals != std::string_view::npos) {
        return Request{RequestForm::Assignment, std::string(line.substr(0, equals)),
                       std::string(line.substr(equals + 1))};
    }
    if (line.ends_with('?')) {
        return Request{RequestForm::Query, std::string(line.substr(0, line.size() - 1)), {}};
    }
    const auto parenthesis = line.find('(');
    if (parenthesis != std::string_view::npos && line.ends_with(')')) {
        const auto length = line.size() - parenthesis - 2;
        return Request{RequestForm::Call, std::string(line.substr(0, parenthesis)),
                       std::string(line.substr(parenthesis + 1, length))};
    }
    return std::nullopt;
}

std::optional<unsigned> ParseNumber(std::string_view text) {
    return ParseDigits(text, kDecimalDigits);
}

std::optional<ParameterKey> ParseParameterKey(std::string_view key) {
    constexpr std::string_view kWord = "PARAM";
    if (!key.starts_with(kWord)) {
        return std::nullopt;
    }
    key.remove_prefix(kWord.size());
    const auto indexText = TakeBracketGroup(key);
    const auto subindexText = TakeBracketGroup(key);
    if (!indexText || !subindexText || !key.empty()) {
        return std::nullopt;
    }
    const auto index = ParseNumber(*indexText);
    const auto subindex = ParseNumber(*subindexText);
    if (!index || !subindex) {
        return std::nullopt;
    }
    return ParameterKey{*index, *subindex};
}

std::optional<Bytes> ParseByteList(std::string_view text) {
    const auto list = TakeBracketGroup(text);
    if (!list || !text.empty()) {
        return std::nullopt;
    }
    Bytes bytes;
    std::string_view rest = *list;
    while (!rest.empty()) {
        const auto comma = rest.find(',');
        const auto number = ParseDigits(rest.substr(0, comma), kHexadecimalDigits);
        if (!number || *number > 0xff || comma == rest.size() - 1) {
            return std::nullopt;
        }
        bytes.push_back(static_cast<std::uint8_t>(*number));
        rest.remove_prefix(comma == std::string_view::npos ? rest.size() : comma + 1);
    }
    return bytes;
}

std::string FormatByteList(const Bytes& bytes) {
    std::string text = "[";
    for (const std::uint8_t byte : bytes) {
        if (text.size() > 1) {
            text += ',';
        }
        std::array<char, 2> digits{};
        const auto result = std::to_chars(digits.begin(), digits.end(), byte, 16);
        text.append(digits.begin(), result.ptr);
    }
    text += ']';
    return text;
}

void AnswerQueue::Push(std::string text, TimePoint due) {
    const auto firstFree = entries.begin() + (InsideText() ? 1 : 0);
    const auto place = std::find_if(firstFree, entries.end(),
                                    [due](const Entry& entry) { return entry.due > due; });
    entries.insert(place, Entry{due, std::move(text)});
}

std::string AnswerQueue::Pop(TimePoint now) {
    if (entries.empty() || entries.front().due > now) {
        return {};
    }
    Entry& first = entries.front();
    if (pieceLength == 0 || first.text.size() <= pieceLength) {
        std::string whole = std::move(first.text);
        entries.pop_front();
        return whole;
    }
    std::string piece = first.text.substr(0, pieceLength);
    first.text.erase(0, pieceLength);
    first.begun = true;
    first.due = now + kPauseBetweenPieces;
    return piece;
}

std::optional<TimePoint> AnswerQueue::NextDue() const {
    if (entries.empty()) {
        return std::nullopt;
    }
    return entries.front().due;
}

}  // namespace simulator
