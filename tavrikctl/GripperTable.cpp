#include "tavrikctl/GripperTable.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "client/Printable.h"
#include "tavrikctl/Printer.h"
#include "tavrikctl/ScreenParts.h"

namespace tavrik {

namespace {

/// How a gripper is named: by its device string, its serial number or its place in the list.
enum class Name { Full, Serial, Place };

/// How much a layout shows: each value shows one thing less than the one before.
enum class Detail { Bar, Age, Values, Titles, Flags, Position, State };

struct Layout {
    Name name;
    Detail detail;

    bool Shows(Detail what) const { return detail <= what; }
};

std::string NameText(Name form, const std::string& name, std::size_t place) {
    constexpr std::string_view kSerial = " SN:";
    const std::size_t serial = name.rfind(kSerial);
    if (form == Name::Place) {
        return "#" + std::to_string(place);
    }
    return form == Name::Full || serial == std::string::npos ? name
                                                             : name.substr(serial + kSerial.size());
}

/// The flags; if there is no column for the values, also what is wrong with them.
std::string FlagsText(const GripperRow& row, const Layout& layout) {
    const bool isFine = row.values == "fresh" || row.values == "unasked";
    if (layout.Shows(Detail::Values) || isFine) {
        return row.flags;
    }
    return row.flags == "none" || row.flags == "-" ? row.values : row.flags + ", " + row.values;
}

/// Lines that grow to the right by a column at a time; the first one has the titles.
class Lines {
public:
    Lines(std::size_t count, std::size_t gap) : lines(count), gap(gap) {}

    /// @param texts one for each line
    void Add(Align align, const std::vector<std::string>& texts) {
        std::size_t width = 0;
        for (const std::string& text : texts) {
            width = std::max(width, tavrik::Width(text));
        }
        const std::string space(lines.front().empty() ? 0 : gap, ' ');
        for (std::size_t i = 0; i < lines.size(); ++i) {
            lines[i] += space + (align == Align::Left ? AlignLeft(texts[i], width)
                                                      : AlignRight(texts[i], width));
        }
    }

    std::size_t Width() const { return tavrik::Width(lines.front()); }
    const std::vector<std::string>& Texts() const { return lines; }

private:
    std::vector<std::string> lines;
    std::size_t gap;
};

Lines LayOut(const std::vector<GripperRow>& rows, const Layout& layout, std::size_t width) {
    constexpr std::size_t kShortestBar = 12;
    const bool isTitled = layout.Shows(Detail::Titles);
    const std::size_t gap = isTitled ? 2 : 1;
    Lines lines(rows.size() + 1, gap);
    const auto add = [&](const std::string& title, Align align, auto text) {
        std::vector<std::string> texts{isTitled ? title : ""};
        std::ranges::transform(rows, std::back_inserter(texts), text);
        lines.Add(align, texts);
    };
    std::size_t place = 0;
    add("GRIPPER", Align::Left,
        [&](const GripperRow& row) { return NameText(layout.name, row.name, ++place); });
    add("STATE", Align::Right, [](const GripperRow& row) { return row.state; });
    if (layout.Shows(Detail::Position)) {
        add("POSITION", Align::Right, [](const GripperRow& row) { return row.position; });
    }
    if (layout.Shows(Detail::Flags)) {
        add("FLAGS", Align::Left, [&](const GripperRow& row) { return FlagsText(row, layout); });
    } else {
        add("", Align::Left, [](const GripperRow& row) { return row.alarming ? "!" : ""; });
    }
    if (layout.Shows(Detail::Values)) {
        add("VALUES", Align::Left, [](const GripperRow& row) { return row.values; });
    }
    if (layout.Shows(Detail::Age)) {
        add("AGE", Align::Right, [](const GripperRow& row) { return row.age; });
    }
    if (layout.Shows(Detail::Bar)) {
        const std::size_t used = lines.Width() + gap;
        const std::size_t room = std::max(width - std::min(width, used), kShortestBar);
        add("RANGE SO FAR", Align::Left,
            [room](const GripperRow& row) { return Bar(row.share, room); });
    }
    return lines;
}

/// From the most to the least detailed. A full name matters more than the columns after the flags.
std::vector<Layout> Layouts() {
    std::vector<Layout> layouts;
    for (const auto& [name, least] : {std::pair(Name::Full, Detail::Titles),
                                      {Name::Serial, Detail::Position},
                                      {Name::Place, Detail::State}}) {
        for (int detail = 0; detail <= static_cast<int>(least); ++detail) {
            layouts.push_back({name, static_cast<Detail>(detail)});
        }
    }
    return layouts;
}

}  // namespace

GripperTable LayOut(const std::vector<GripperRow>& rows, std::size_t width) {
    Layout chosen{};
    for (const Layout& layout : Layouts()) {
        chosen = layout;
        if (LayOut(rows, layout, width).Width() <= width) {
            break;
        }
    }
    const std::vector<std::string> lines = LayOut(rows, chosen, width).Texts();
    return {chosen.Shows(Detail::Titles) ? lines.front() : "", {lines.begin() + 1, lines.end()}};
}

}  // namespace tavrik
