#include "tavrikctl/Report.h"

#include <algorithm>

#include "client/Printable.h"

namespace tavrik {

namespace {

constexpr std::size_t kScreenWidth = 80;  // columns
constexpr std::size_t kSubjectGap = 2;    // between columns
constexpr std::size_t kMarkWidth = 5;     // "wrong"
constexpr std::size_t kWidestSubject = 24;
constexpr const char* kSubjectTitle = "WHAT";
constexpr const char* kTextTitle = "FINDING";

using Rows = std::vector<std::vector<Cell>>;

bool SayTheSame(const Finding& one, const Finding& other) {
    return one.mark == other.mark && one.text == other.text && one.remedy == other.remedy;
}

/// Three or more in a row that say the same, as one.
Findings Gather(const Findings& findings) {
    constexpr std::ptrdiff_t kMany = 3;
    Findings gathered;
    for (auto first = findings.begin(); first != findings.end();) {
        const auto last = std::find_if(
            first, findings.end(), [&](const Finding& each) { return !SayTheSame(each, *first); });
        const std::ptrdiff_t count = last - first;
        if (count < kMany) {
            gathered.insert(gathered.end(), first, last);
        } else {
            gathered.push_back(*first);
            gathered.back().text += "; " + std::to_string(count - 1) + " more like this";
        }
        first = last;
    }
    return gathered;
}

std::size_t SubjectWidth(const Findings& findings) {
    std::size_t width = std::char_traits<char>::length(kSubjectTitle);
    for (const Finding& finding : findings) {
        width = std::max(width, Width(finding.subject));
    }
    return std::min(width, kWidestSubject);
}

std::string Joined(const std::string& subject, std::size_t width, const std::string& text) {
    return subject +
           (text.empty() ? "" : std::string(width - Width(subject) + kSubjectGap, ' ') + text);
}

void AddRows(const Finding& finding, std::size_t width, Rows& rows) {
    auto subjects = Wrap(finding.subject, width);
    auto texts = Wrap(finding.text, kScreenWidth - kMarkWidth - kSubjectGap - width - kSubjectGap);
    const std::size_t count = std::max(subjects.size(), texts.size());
    subjects.resize(count);
    texts.resize(count);
    const bool wrong = finding.mark == Mark::Wrong;
    for (std::size_t i = 0; i < count; ++i) {
        rows.push_back({{i == 0 ? MarkText(finding.mark) : "", wrong},
                        {Joined(subjects[i], width, texts[i]), wrong}});
    }
}

void AddRemedy(const std::string& remedy, Rows& rows) {
    const std::string title = "do: ";
    const auto lines = Wrap(remedy, kScreenWidth - kMarkWidth - kSubjectGap - title.size());
    for (const std::string& line : lines) {
        const bool isFirst = &line == &lines.front();
        rows.push_back({{}, {(isFirst ? title : std::string(title.size(), ' ')) + line}});
    }
}

}  // namespace

void PrintReport(const Findings& findings, Printer& printer) {
    const Findings gathered = Gather(findings);
    const std::size_t width = SubjectWidth(gathered);
    Rows rows;
    for (auto each = gathered.begin(); each != gathered.end(); ++each) {
        AddRows(*each, width, rows);
        const auto next = each + 1;
        const bool isNeededOnceMore = next != gathered.end() && next->remedy == each->remedy;
        if (!each->remedy.empty() && !isNeededOnceMore) {
            AddRemedy(each->remedy, rows);
        }
    }
    printer.Table({{""}, {Joined(kSubjectTitle, width, kTextTitle)}}, rows);
}

}  // namespace tavrik
