#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "client/GripperModels.h"

namespace tavrik {

/// The end of a request, as the log has it from the master or the timeout monitor.
struct LoggedReply {
    std::uint64_t line;   ///< number of its line in the log
    std::uint64_t begin;  ///< number of the line with its acknowledgement, otherwise as `line`
    std::string key;
    std::uint32_t status;
    std::string text;    ///< the line with a value, or the request that timed out; may be empty
    std::string before;  ///< the value of PDOUT before, "3,1"
    bool isFinished;     ///< false after a value that a FIN may follow
    std::chrono::milliseconds age{};  ///< of the request when it timed out
};

/// A master and its gripper, as far as known from the log. Texts are empty while unknown.
struct LoggedLink {
    std::string node;                     ///< "/dev/ttyACM0"
    std::string product;                  ///< of the gripper
    std::string serialNumber;             ///< of the gripper
    std::string processOutput;            ///< the last value of PDOUT, "3,1"
    const GripperModel* model = nullptr;  ///< of the gripper
    std::string acknowledged;             ///< the key that the master acknowledged last
    std::uint64_t acknowledgedLine = 0;
    std::string lastLine;              ///< the last line of the master
    std::uint64_t lastLineNumber = 0;  ///< its number
    std::deque<LoggedReply> replies;   ///< those that no request has been found for yet
    bool isSetUp = false;              ///< its state thread has started, or is about to
    bool hasParser = false;
    bool hasMonitor = false;
    bool hasState = false;

    /// The gripper's device string.
    std::string Gripper() const;

    /// Adds a reply; `reply.begin` is found here.
    void AddReply(LoggedReply reply);

    /// Adds a reply as it is.
    void Keep(LoggedReply reply);

    /// Forgets the reply on `line`, if it has one.
    void Drop(std::uint64_t line);

    /// Forgets the oldest reply to `key` after `line`.
    void TakeReply(std::string_view key, std::uint64_t line);
};

using LinkPointer = std::shared_ptr<LoggedLink>;

/// The masters, and the threads that work for one of them. The log names neither: this is learned
/// from the lines that open a tty, start a thread, or contain a name. What these lines leave open
/// stays open.
class LoggedLinks {
public:
    /// Learns from a line of the daemon.
    /// @param line its number
    void Take(std::uint64_t line, std::uint64_t thread, std::string_view message);

    /// Learns that `request` timed out after `age`, as the timeout monitor `thread` has logged.
    void TakeTimeout(std::uint64_t line, std::uint64_t thread, std::string_view request,
                     std::chrono::milliseconds age);

    /// The master that `thread` works for, or null.
    LinkPointer LinkOf(std::uint64_t thread) const;

    /// Whether `thread` works for one master: what it sends is not a call.
    bool IsLinkThread(std::uint64_t thread) const { return threads.contains(thread); }

    /// Whether `thread` is a state thread of which the master is not known yet.
    bool IsLinkUnknown(std::uint64_t thread) const;

    /// The masters whose state thread is not known yet.
    std::vector<LinkPointer> LinksWithoutStateThread() const;

    /// Notes that `thread`, if it is a state thread, works for `link`.
    void Attach(std::uint64_t thread, const LinkPointer& link);

    /// The master whose tty is `node`, or null.
    LinkPointer FindByNode(std::string_view node) const;

    /// The only master there can be; null if there are several, or the log began in the middle.
    LinkPointer OnlyLink() const;

    const std::vector<LinkPointer>& All() const { return links; }

private:
    enum class Role { Adder, Parser, Monitor, State };
    struct Thread {
        Role role;
        LinkPointer link;  // null while unknown
    };

    void Clear();
    bool TakeThread(std::uint64_t thread, std::string_view message);
    void TakeUsb(std::uint64_t thread, std::string_view message);
    void TakeTty(std::uint64_t thread, std::string_view message);
    void TakeParserLine(std::uint64_t line, LoggedLink& link, std::string_view message);
    void Parse(std::uint64_t line, LoggedLink& link, std::string_view text);
    void Store(Role role, std::uint64_t thread, const LinkPointer& link);
    bool Is(Role role, std::uint64_t thread) const;
    LinkPointer Add();
    void Remove(std::string_view node);

    std::vector<LinkPointer> links;  // oldest first
    std::unordered_map<std::uint64_t, Thread> threads;
    LinkPointer opened;       // the one whose tty was opened last
    bool isComplete = false;  // whether the log was read from the start of the daemon
};

}  // namespace tavrik
