#include "doctor/log/LoggedLinks.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <utility>

#include "client/Printable.h"
#include "doctor/log/LogMessage.h"

namespace tavrik {

namespace {

// Only a log that was tampered with has more. What is read must not fill the memory.
constexpr std::size_t kMostLinks = 256;
constexpr std::size_t kMostLinkThreads = 4096;
constexpr std::size_t kMostReplies = 32;
constexpr std::size_t kLongestText = 1024;

std::string Short(std::string_view text) {
    return std::string(text.substr(0, kLongestText));
}

/// "[48,56,41]" as text.
std::string ReadText(std::string_view list) {
    std::string text;
    while (!list.empty()) {
        list.remove_prefix(1);  // "[" or ","
        unsigned byte = 0;
        std::from_chars(list.data(), list.data() + list.size(), byte, 16);
        text += static_cast<char>(byte);
        list.remove_prefix(std::min(list.find(','), list.size()));
    }
    text.resize(text.find_last_not_of('\0') + 1);
    return Printable(text);
}

/// The gripper's model in the device information "[1,3,17,32,16,20,0,31249,20]", or null.
const GripperModel* ReadModel(std::string_view list) {
    constexpr std::size_t kModelElement = 8;
    for (std::size_t i = 0; i < kModelElement && !list.empty(); ++i) {
        list.remove_prefix(std::min(list.find(','), list.size() - 1) + 1);
    }
    const std::string_view number = list.substr(0, list.find_first_of(",]"));
    const auto models = GripperModels();
    const auto found = std::ranges::find(models, number, &GripperModel::deviceId);
    return found == models.end() ? nullptr : &*found;
}

/// The blank-separated word `number` of `text`.
std::string_view Word(std::string_view text, int number) {
    for (; number > 0; --number) {
        text.remove_prefix(std::min(text.find(' '), text.size() - 1) + 1);
    }
    return text.substr(0, text.find(' '));
}

bool IsOfStateThread(std::string_view message) {
    return message == "ESTABCOMM" || message == "STARTUP" || message == "PREOPERATE" ||
           message == "Switching to OPERATE" || message == "OPERATE" || message == "POWERFAULT" ||
           message == "FALLBACK: Waiting and Restarting";
}

bool IsOfParser(std::string_view message) {
    return message.starts_with("Parsing line: ") || message == "Parser: No input data";
}

}  // namespace

std::string LoggedLink::Gripper() const {
    return serialNumber.empty() ? product : product + " SN:" + serialNumber;
}

void LoggedLink::AddReply(LoggedReply reply) {
    reply.begin = acknowledged == reply.key ? acknowledgedLine : reply.line;
    acknowledged.clear();
    Keep(std::move(reply));
}

void LoggedLink::Keep(LoggedReply reply) {
    replies.push_back(std::move(reply));
    if (replies.size() > kMostReplies) {
        replies.pop_front();
    }
}

void LoggedLink::Drop(std::uint64_t line) {
    std::erase_if(replies, [line](const LoggedReply& reply) { return reply.line == line; });
}

void LoggedLink::TakeReply(std::string_view key, std::uint64_t line) {
    const auto found = std::ranges::find_if(
        replies, [&](const LoggedReply& each) { return each.key == key && each.line > line; });
    if (found != replies.end()) {
        replies.erase(found);
    }
}

void LoggedLinks::Take(std::uint64_t line, std::uint64_t thread, std::string_view message) {
    if (message.starts_with("Starting TavrikDaemon")) {
        Clear();
        isComplete = true;
        return;
    }
    if (TakeThread(thread, message)) {
        return;
    }
    if (IsOfParser(message) && !Is(Role::Parser, thread)) {
        Store(Role::Parser, thread, Add());
    } else if (IsOfStateThread(message) && !Is(Role::State, thread)) {
        Store(Role::State, thread, nullptr);
    }
    TakeUsb(thread, message);
    TakeTty(thread, message);
    if (const LinkPointer link = LinkOf(thread)) {
        if (Is(Role::Parser, thread)) {
            TakeParserLine(line, *link, message);
        } else if (const auto ended = After("Pending command ", message)) {
            link->TakeReply(Word(*ended, 0), 0);
        } else if (message.starts_with("Init: Device mode is ")) {
            link->isSetUp = true;
        }
    }
}

void LoggedLinks::TakeTimeout(std::uint64_t line, std::uint64_t thread, std::string_view request,
                              std::chrono::milliseconds age) {
    constexpr std::uint32_t kNoAnswer = 5;
    if (!threads.contains(thread)) {
        Store(Role::Monitor, thread, nullptr);
    }
    const auto lacks = [](const LinkPointer& link) { return !link->hasMonitor; };
    if (isComplete && LinkOf(thread) == nullptr && std::ranges::count_if(links, lacks) == 1) {
        threads[thread].link = *std::ranges::find_if(links, lacks);  // no other is left
        threads[thread].link->hasMonitor = true;
    }
    LoggedReply reply{.line = line,
                      .begin = line,
                      .key = Short(request.substr(0, request.find_first_of("?=("))),
                      .status = kNoAnswer,
                      .text = Short(request),
                      .before = "",
                      .isFinished = true,
                      .age = age};
    if (const LinkPointer link = LinkOf(thread)) {
        reply.before = link->processOutput;
        link->AddReply(std::move(reply));
        return;
    }
    for (const LinkPointer& link : links) {
        if (lacks(link)) {  // it may be of each of these
            link->Keep(reply);
        }
    }
}

LinkPointer LoggedLinks::LinkOf(std::uint64_t thread) const {
    const auto found = threads.find(thread);
    return found == threads.end() ? nullptr : found->second.link;
}

bool LoggedLinks::IsLinkUnknown(std::uint64_t thread) const {
    return Is(Role::State, thread) && LinkOf(thread) == nullptr;
}

std::vector<LinkPointer> LoggedLinks::LinksWithoutStateThread() const {
    std::vector<LinkPointer> without;
    std::ranges::copy_if(links, std::back_inserter(without),
                         [](const LinkPointer& link) { return !link->hasState; });
    return without;
}

void LoggedLinks::Attach(std::uint64_t thread, const LinkPointer& link) {
    if (Is(Role::State, thread) && LinkOf(thread) == nullptr) {
        link->hasState = true;
        threads[thread].link = link;
    }
}

LinkPointer LoggedLinks::FindByNode(std::string_view node) const {
    const auto found = std::ranges::find(
        links, node, [](const LinkPointer& link) { return std::string_view(link->node); });
    return found == links.end() ? nullptr : *found;
}

LinkPointer LoggedLinks::OnlyLink() const {
    return isComplete && links.size() == 1 ? links.front() : nullptr;
}

void LoggedLinks::Clear() {
    links.clear();
    threads.clear();
    opened = nullptr;
}

/// Takes the first and the last line of a thread.
bool LoggedLinks::TakeThread(std::uint64_t thread, std::string_view message) {
    if (message.ends_with(" thread terminated")) {
        threads.erase(thread);
        return true;
    }
    if (message == "Parser thread active") {
        // Masters are set up one at a time, and each waits for its parser.
        if (opened && !opened->hasParser) {
            opened->hasParser = true;
            Store(Role::Parser, thread, opened);
        }
        return true;
    }
    // The other two threads may start late, when the next master is being set up.
    const bool isMonitor = message == "Timeout monitor thread active";
    if (!isMonitor && message != "State thread active") {
        return false;
    }
    const auto lacks = [isMonitor](const LinkPointer& link) {
        return isMonitor ? !link->hasMonitor : link->isSetUp && !link->hasState;
    };
    LinkPointer owner;
    if (isComplete && std::ranges::count_if(links, lacks) == 1) {
        owner = *std::ranges::find_if(links, lacks);
        (isMonitor ? owner->hasMonitor : owner->hasState) = true;
    }
    Store(isMonitor ? Role::Monitor : Role::State, thread, owner);
    return true;
}

/// Takes the lines of the thread that looks for masters.
void LoggedLinks::TakeUsb(std::uint64_t thread, std::string_view message) {
    const bool isOfSearch = message.starts_with("Got Device ") ||
                            message.starts_with("   Node: ") || message.starts_with("  SN: ") ||
                            message == "GripperManager started" || message == "PELLIX detected";
    if (isOfSearch && Is(Role::Adder, thread)) {
        threads.erase(thread);  // it is done with its last master
    }
}

void LoggedLinks::TakeTty(std::uint64_t thread, std::string_view message) {
    constexpr std::string_view kTty = "SerialConnection: ";
    if (const auto unopened = After("Failed to open serial connection on ", message)) {
        Remove(*unopened);
    }
    if (!message.starts_with(kTty)) {
        return;
    }
    const std::string_view text = message.substr(kTty.size());
    const auto node = After("Opening device ", text);
    const auto closed = After("Closed device ", text);
    if (Is(Role::Parser, thread)) {
        LinkOf(thread)->node = Short(node.value_or(LinkOf(thread)->node));  // it reopens its own
    } else if (closed) {
        Remove(*closed);
    } else if (node) {
        Remove(*node);
        opened = Add();
        opened->node = Short(*node);
        Store(Role::Adder, thread, opened);
    }
}

void LoggedLinks::TakeParserLine(std::uint64_t line, LoggedLink& link, std::string_view message) {
    if (const auto text = After("Parsing line: ", message)) {
        Parse(line, link, *text);
    } else if (const auto accepted = After("ACK:", message)) {
        link.acknowledged = Short(*accepted);
        link.acknowledgedLine = line;
    } else if (const auto finished = After("FIN:", message)) {
        const auto last = std::ranges::find_if(
            link.replies.rbegin(), link.replies.rend(),
            [&](const LoggedReply& each) { return each.key == *finished && !each.isFinished; });
        if (last != link.replies.rend() && link.acknowledged != *finished) {
            last->isFinished = true;
        } else {
            link.AddReply({line, 0, Short(*finished), 0, "", link.processOutput, true});
        }
    } else if (const auto failed = After("ERR:", message)) {
        const std::string_view code = Word(link.lastLine, 2);
        int status = 0;
        if (std::from_chars(code.data(), code.data() + code.size(), status).ec == std::errc()) {
            link.AddReply({line, 0, Short(*failed), static_cast<std::uint32_t>(status), "",
                           link.processOutput, true});
        }
    } else if (const auto lost = Between("Active command ", " could not be found", message)) {
        const auto last =
            std::ranges::find(link.replies.rbegin(), link.replies.rend(), *lost, &LoggedReply::key);
        if (last != link.replies.rend() && last->line >= link.lastLineNumber) {
            link.replies.erase(std::next(last).base());
        }
    } else if (const auto mode = After("Setting device mode to ", message)) {
        if (*mode == "1" || *mode == "7") {
            link.product.clear();
            link.serialNumber.clear();
        }
        if (*mode != "4") {
            link.processOutput.clear();
        }
    }
}

/// Takes a line of the master.
void LoggedLinks::Parse(std::uint64_t line, LoggedLink& link, std::string_view text) {
    link.lastLine = Short(text);
    link.lastLineNumber = line;
    const std::string_view key = text.substr(0, text.find('='));
    if (key.size() == text.size() || text.starts_with("ACK") || text.starts_with("FIN") ||
        text.starts_with("ERR")) {
        return;
    }
    link.AddReply({line, 0, Short(key), 0, Short(text), link.processOutput, false});
    const std::string_view list = text.substr(key.size() + 1, kLongestText);
    if (!list.starts_with('[')) {
        return;
    }
    if (key == "PARAM[19][0]") {
        link.product = ReadText(list);
    } else if (key == "PARAM[21][0]") {
        link.serialNumber = ReadText(list);
    } else if (key == "DEVINFO") {
        link.model = ReadModel(list);
    } else if (key == "PDOUT") {
        link.processOutput = list.substr(1, list.find(']') - 1);
    }
}

void LoggedLinks::Store(Role role, std::uint64_t thread, const LinkPointer& link) {
    if (threads.size() >= kMostLinkThreads) {
        threads.clear();
    }
    threads[thread] = {role, link};
}

bool LoggedLinks::Is(Role role, std::uint64_t thread) const {
    const auto found = threads.find(thread);
    return found != threads.end() && found->second.role == role;
}

LinkPointer LoggedLinks::Add() {
    if (links.size() >= kMostLinks) {
        links.erase(links.begin());
    }
    return links.emplace_back(std::make_shared<LoggedLink>());
}

void LoggedLinks::Remove(std::string_view node) {
    std::erase_if(links, [&](const LinkPointer& link) { return link->node == node; });
}

}  // namespace tavrik
